#pragma once

#include <compare>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>

namespace ramdisk {

/// The name of a device without "/dev/", such as disk5 or disk5s1.
class DeviceIdentifier {
public:
    /// Absent unless `bsdName` is "disk" and a number, followed by any count of "s" and a number.
    [[nodiscard]] static std::optional<DeviceIdentifier> make(std::string_view bsdName);

    /// The whole disk with this number.
    [[nodiscard]] static DeviceIdentifier wholeDisk(unsigned number);

    [[nodiscard]] const std::string& bsdName() const noexcept { return bsdName_; }

    /// Runs of digits compare as numbers: disk2 comes before disk10.
    friend std::strong_ordering operator<=>(const DeviceIdentifier& left, const DeviceIdentifier& right);
    friend bool operator==(const DeviceIdentifier&, const DeviceIdentifier&) = default;
    friend std::ostream& operator<<(std::ostream& stream, const DeviceIdentifier& device) {
        return stream << device.bsdName();
    }

private:
    explicit DeviceIdentifier(std::string bsdName) : bsdName_(std::move(bsdName)) {}

    std::string bsdName_;
};

} // namespace ramdisk
