#pragma once

#include <ostream>
#include <string>
#include <string_view>

namespace ramdisk {

/// The text of a volume's password. It never prints, so no log and no error text can contain it. Its memory
/// is overwritten when the value is destroyed or moved from. It is copied only where the caller asks for it.
class VolumePassphrase {
public:
    /// Takes over `value`; the caller wipes what it still holds of the text.
    explicit VolumePassphrase(std::string_view value);
    VolumePassphrase(const VolumePassphrase& other);
    VolumePassphrase(VolumePassphrase&& other) noexcept;
    VolumePassphrase& operator=(const VolumePassphrase& other);
    VolumePassphrase& operator=(VolumePassphrase&& other) noexcept;
    ~VolumePassphrase();

    /// The secret itself. Only for a tool's standard input.
    [[nodiscard]] std::string_view value() const noexcept { return value_; }

    /// Always "VolumePassphrase(<redacted>)".
    [[nodiscard]] static std::string_view description() noexcept;

    friend bool operator==(const VolumePassphrase&, const VolumePassphrase&) = default;
    friend std::ostream& operator<<(std::ostream& stream, const VolumePassphrase&) {
        return stream << description();
    }

private:
    std::string value_;
};

/// Overwrites the bytes of `text` in a way that the compiler cannot remove, then empties it.
void wipe(std::string& text) noexcept;

} // namespace ramdisk
