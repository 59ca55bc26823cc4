#include "RamDiskInfrastructure/Linux/Mounting/VolumeMarkLinux.h"

#include "RamDiskInfrastructure/Commands/SystemCallError.h"

#include <array>
#include <string>

#include <sys/xattr.h>

namespace ramdisk {

namespace {

/// Linux lets users set attributes in one namespace only.
std::string volumeMarkAttribute() {
    return std::string("user.") + VolumeMark::attribute;
}

} // namespace

void writeVolumeMark(int rootDescriptor, const UUID& instance) {
    const auto text = instance.text();
    if (fsetxattr(rootDescriptor, volumeMarkAttribute().c_str(), text.data(), text.size(), 0) != 0
        && errno != ENOTSUP && errno != EPERM) {
        throw SystemCallError("mark the volume");
    }
}

VolumeMark::Reading readVolumeMark(const std::filesystem::path& volume) {
    std::array<char, 64> buffer{};
    const auto length =
        lgetxattr(volume.c_str(), volumeMarkAttribute().c_str(), buffer.data(), buffer.size());
    if (length < 0) {
        // An attribute that is longer than any of ours is still set.
        return {errno == ERANGE, std::nullopt};
    }
    return {true, UUID::parse({buffer.data(), static_cast<std::size_t>(length)})};
}

} // namespace ramdisk
