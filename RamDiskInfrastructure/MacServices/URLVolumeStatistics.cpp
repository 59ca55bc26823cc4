#include "RamDiskInfrastructure/MacServices/URLVolumeStatistics.h"

#include "RamDiskInfrastructure/MacServices/CoreFoundationValue.h"
#include "RamDiskInfrastructure/MacTools/MacFormat.h"

#include <sys/mount.h>
#include <sys/param.h>

namespace ramdisk {

namespace {

std::optional<FileSystem> fileSystem(CFURLRef url, const std::filesystem::path& mountPoint) {
    struct statfs status {};
    if (::statfs(mountPoint.c_str(), &status) != 0) {
        return std::nullopt;
    }
    const auto isSensitive = booleanResource(url, kCFURLVolumeSupportsCaseSensitiveNamesKey).value_or(false);
    const auto isJournaling = booleanResource(url, kCFURLVolumeIsJournalingKey).value_or(false);
    return fileSystemOfMountType(status.f_fstypename,
                                 isSensitive ? CaseSensitivity::sensitive : CaseSensitivity::insensitive,
                                 isJournaling ? Journaling::on : Journaling::off);
}

} // namespace

std::optional<VolumeStatistics> URLVolumeStatistics::read(const std::filesystem::path& mountPoint) const {
    const auto& path = mountPoint.native();
    const CoreFoundationValue<CFURLRef> url(CFURLCreateFromFileSystemRepresentation(
        nullptr, reinterpret_cast<const UInt8*>(path.data()), static_cast<CFIndex>(path.size()), 1));
    if (!url) {
        return std::nullopt;
    }
    const auto total = numberResource(url.get(), kCFURLVolumeTotalCapacityKey);
    const auto available = numberResource(url.get(), kCFURLVolumeAvailableCapacityKey);
    if (!total || !available) {
        return std::nullopt;
    }
    return VolumeStatistics{stringResource(url.get(), kCFURLVolumeNameKey),
                            stringResource(url.get(), kCFURLVolumeLocalizedFormatDescriptionKey),
                            fileSystem(url.get(), mountPoint),
                            ByteCount{*total},
                            ByteCount{*available},
                            booleanResource(url.get(), kCFURLVolumeIsEncryptedKey)};
}

} // namespace ramdisk
