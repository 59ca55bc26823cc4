#pragma once

namespace ramdisk {

/// What all interfaces are that the outside stands behind: held by pointer, never copied.
class Port {
public:
    Port(const Port&) = delete;
    Port& operator=(const Port&) = delete;
    virtual ~Port() = default;

protected:
    Port() = default;
};

} // namespace ramdisk
