#include "RamDiskInfrastructure/Linux/Host/MediaIDs.h"

#include "RamDiskInfrastructure/Linux/Host/MountTable.h"
#include "RamDiskInfrastructure/Linux/Host/SmallFile.h"
#include "RamDiskInfrastructure/Unix/MountedVolume.h"

#include <fmt/format.h>

#include <charconv>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

namespace ramdisk {

namespace {

/// STATX_MNT_ID_UNIQUE, which older headers do not know.
constexpr unsigned uniqueMountID = 0x4000U;

std::optional<std::uint64_t> numberIn(const std::filesystem::path& file) {
    const auto text = tryReadSmallFile(file);
    std::uint64_t number = 0;
    if (!text || std::from_chars(text->data(), text->data() + text->size(), number).ec != std::errc{}) {
        return std::nullopt;
    }
    return number;
}

} // namespace

std::optional<std::uint64_t> MediaIDs::identifier(std::string_view blockDevice,
                                                  const std::filesystem::path& sys) {
    return numberIn(sys / "block" / blockDevice / "diskseq");
}

std::optional<std::uint64_t> MediaIDs::identifierAt(const std::filesystem::path& location) {
    struct statx status {};
    if (statx(AT_FDCWD, location.c_str(), AT_NO_AUTOMOUNT, STATX_TYPE | uniqueMountID, &status) != 0) {
        return std::nullopt;
    }
    // Major number 0 is for file systems without a device.
    if (status.stx_dev_major != 0) {
        return numberIn(
            fmt::format("/sys/dev/block/{}:{}/diskseq", status.stx_dev_major, status.stx_dev_minor));
    }
    return (status.stx_mask & uniqueMountID) != 0 ? std::optional<std::uint64_t>(status.stx_mnt_id)
                                                  : std::nullopt;
}

std::optional<MountedVolume> MountedVolume::at(const std::filesystem::path& location) {
    struct stat status {};
    if (stat(location.c_str(), &status) != 0) {
        return std::nullopt;
    }
    const auto mounts = MountTable::read("/proc");
    for (auto entry = mounts.entries().rbegin(); entry != mounts.entries().rend(); ++entry) {
        if (entry->device == status.st_dev) {
            return MountedVolume{entry->fileSystem, MediaIDs::identifierAt(location)};
        }
    }
    return std::nullopt;
}

} // namespace ramdisk
