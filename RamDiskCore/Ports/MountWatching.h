#pragma once

#include "RamDiskCore/Ports/Port.h"

#include <functional>

namespace ramdisk {

/// Tells when something was mounted or unmounted, by whomever. Holds nothing that outlives the process.
class MountWatching : public Port {
public:
    /// Watches from now on; to be called once. `changed` is called on a thread of this object's within a
    /// second of a change, once for changes that follow each other closely. It must be quick and must not
    /// throw, and is never called again once `stop` has returned.
    /// @throws std::system_error when nothing can be watched.
    virtual void start(std::function<void()> changed) = 0;

    /// Watches no longer. Not to be called by the listener.
    virtual void stop() noexcept = 0;
};

} // namespace ramdisk
