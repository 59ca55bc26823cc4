#include "RamDiskCore/Startup/StartupDiskMaking.h"

#include <utility>

namespace ramdisk {

StartupDiskMaking::StartupDiskMaking(RamDiskServices services,
                                     std::shared_ptr<ProfileContentsUseCase> contents)
    : services_(std::move(services)),
      contents_(std::move(contents)) {}

RamDisk StartupDiskMaking::make(const RamDiskProfile& profile) {
    return make(profile, specificationOf(profile), {});
}

void StartupDiskMaking::makeAnewWithRoom(std::optional<KeptDisk>& disk) {
    const auto replacement = contents_->interruptedLoad(*disk);
    // As the disk is, which may have changed since it was made.
    auto wanted = specificationOf(disk->profile);
    wanted.name = disk->disk.name;
    wanted.size = disk->disk.capacity;
    wanted.access = disk->disk.access;
    wanted.hasRestoreRoom = true;
    services_.eject->eject(disk->disk, Force::no);
    const auto former = *std::exchange(disk, std::nullopt);
    contents_->noteLeft(former, ProfileContentsUseCase::LeftFiles::givenUp);
    disk = KeptDisk{make(former.profile, std::move(wanted), replacement), former.profile};
}

RamDisk StartupDiskMaking::make(const RamDiskProfile& profile, RamDiskSpecification wanted,
                                const std::optional<std::string>& replacement) {
    if (profile.keepsContents) {
        contents_->announceDisk(profile, replacement);
    }
    try {
        return services_.create->execute(std::move(wanted), CreateRamDiskUseCase::Purpose::startupDisk)
            .ramDisk;
    } catch (...) {
        contents_->withdrawDisk(profile);
        throw;
    }
}

} // namespace ramdisk
