#include "RamDiskInfrastructure/Linux/VolumeMarkLinux.h"

#include "RamDiskInfrastructure/Linux/SystemCallError.h"

#include <array>
#include <string>

#include <sys/xattr.h>

namespace ramdisk {

namespace {

/// Linux lets users set attributes in this namespace only.
std::string attributeName() {
    return std::string("user.") + VolumeMark::attribute;
}

} // namespace

void writeVolumeMark(int rootDescriptor, const UUID& instance) {
    const auto text = instance.text();
    if (fsetxattr(rootDescriptor, attributeName().c_str(), text.data(), text.size(), 0) != 0
        && errno != ENOTSUP && errno != EPERM) {
        throw SystemCallError("mark the volume");
    }
}

VolumeMark::Reading readVolumeMark(const std::filesystem::path& volume) {
    std::array<char, 64> buffer{};
    const auto length = lgetxattr(volume.c_str(), attributeName().c_str(), buffer.data(), buffer.size());
    if (length < 0) {
        // An attribute that is longer than any of ours is still set.
        return {errno == ERANGE, std::nullopt};
    }
    return {true, UUID::parse({buffer.data(), static_cast<std::size_t>(length)})};
}

} // namespace ramdisk
