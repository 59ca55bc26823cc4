#pragma once

#include "RamDiskCore/Disks/RamDiskServices.h"
#include "RamDiskCore/Startup/ProfileContentsUseCase.h"

#include <memory>
#include <optional>
#include <string>

namespace ramdisk {

/// Makes the disks of profiles, empty, with the notes from which the next launch sees that they still have to
/// be filled. The caller holds the profile's lock.
class StartupDiskMaking {
public:
    StartupDiskMaking(RamDiskServices services, std::shared_ptr<ProfileContentsUseCase> contents);

    /// @throws as `CreateRamDiskUseCase::execute`, with no note left.
    [[nodiscard]] RamDisk make(const RamDiskProfile& profile);

    /// Ejects a disk that has no room for what fitted onto its like, and makes it anew with room that only a
    /// restore may use. What is on it is given up. After a crash in between, the next launch goes on with the
    /// copy that was being put on the disk.
    /// @param disk nothing is left of it when the new one could not be made.
    /// @throws as `EjectRamDiskUseCase::eject`, with nothing changed, and as `make`.
    void makeAnewWithRoom(std::optional<KeptDisk>& disk);

private:
    RamDisk make(const RamDiskProfile& profile, RamDiskSpecification wanted,
                 const std::optional<std::string>& replacement);

    RamDiskServices services_;
    std::shared_ptr<ProfileContentsUseCase> contents_;
};

} // namespace ramdisk
