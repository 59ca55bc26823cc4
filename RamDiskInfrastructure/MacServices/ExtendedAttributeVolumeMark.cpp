#include "RamDiskInfrastructure/MacServices/ExtendedAttributeVolumeMark.h"

#include <array>
#include <cerrno>
#include <system_error>

#include <sys/xattr.h>

namespace ramdisk {

VolumeMark::Reading ExtendedAttributeVolumeMark::read(const std::filesystem::path& volume) const {
    // A longer value is no mark of ours, but is one all the same.
    std::array<char, 256> buffer{};
    const auto length = ::getxattr(volume.c_str(), VolumeMark::attribute, buffer.data(), buffer.size(), 0, 0);
    if (length < 0) {
        return errno == ERANGE ? markReading(std::string()) : markReading(std::nullopt);
    }
    return markReading(std::string(buffer.data(), static_cast<std::size_t>(length)));
}

void ExtendedAttributeVolumeMark::write(const std::filesystem::path& volume, const UUID& instance) {
    const auto text = instance.text();
    if (::setxattr(volume.c_str(), VolumeMark::attribute, text.data(), text.size(), 0, 0) != 0) {
        throw std::system_error(errno, std::generic_category(), "Could not mark " + volume.string());
    }
}

} // namespace ramdisk
