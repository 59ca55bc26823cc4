#pragma once

#include "RamDiskCore/Disks/RamDiskServices.h"
#include "RamDiskCore/Redirects/FolderRedirectsUseCase.h"
#include "RamDiskCore/Setup/RamDiskSetupResult.h"
#include "RamDiskCore/Startup/ManageProfilesUseCase.h"
#include "RamDiskCore/Values/RamDiskSetup.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace ramdisk {

/// What is to change on a standing disk; what is absent stays.
struct RamDiskChanges {
    std::optional<std::string> name;
    std::optional<SearchIndexing> indexing;
    std::optional<VolumeAccess> access;
    /// Whether the disk becomes a startup disk, if it is none.
    bool becomesStartupDisk = false;
    /// These two are of startup disks only.
    std::optional<bool> keepsFiles;
    std::optional<std::filesystem::path> seedFolder;
    /// Folders to make besides those that are made already.
    std::vector<std::string> folders;
    /// Tool folders to keep on the disk besides those that are kept on it already.
    std::vector<RedirectTarget> redirects;
};

struct ConfigureRamDiskResult {
    /// As it is listed afterwards.
    RamDisk ramDisk;
    std::vector<RamDiskSetupProblem> problems;
};

/// Tells how a disk is set up, and changes what can change on a standing one: its name, indexing, access,
/// whether it is a startup disk and keeps its files, its folders and redirects.
class ConfigureRamDiskUseCase {
public:
    ConfigureRamDiskUseCase(RamDiskServices services, std::shared_ptr<ManageProfilesUseCase> profiles,
                            std::shared_ptr<FolderRedirectsUseCase> redirects);

    /// The set-up that would make a disk like this one.
    /// @throws RamDiskError `notMounted`; `formattingFailed` when it has no format that could be asked for.
    [[nodiscard]] RamDiskSetup setup(const RamDisk& disk) const;

    /// A new record that would make this disk at every launch.
    /// @throws as `setup`
    [[nodiscard]] RamDiskProfile makeProfile(const RamDisk& disk) const;

    /// Makes the changes in the order of their fields; the record of a startup disk follows. The first
    /// failure up to the start-up ends the run and is thrown; what fails after that is a problem beside the
    /// disk.
    /// @throws RamDiskError `invalidSpecification`, `notMounted`, `formattingFailed`; std::exception
    ConfigureRamDiskResult execute(const RamDisk& disk, RamDiskChanges changes);

private:
    RamDisk rename(const RamDisk& disk, const std::string& newName,
                   std::vector<RamDiskSetupProblem>& problems);
    RamDisk setAccess(const RamDisk& disk, VolumeAccess access, std::vector<RamDiskSetupProblem>& problems);
    void changeProfile(const RamDisk& disk, const RamDiskChanges& changes,
                       std::vector<RamDiskSetupProblem>& problems);

    RamDiskServices services_;
    std::shared_ptr<ManageProfilesUseCase> profiles_;
    std::shared_ptr<FolderRedirectsUseCase> redirects_;
};

} // namespace ramdisk
