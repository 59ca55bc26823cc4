#pragma once

#include "RamDiskCore/Disks/RamDiskServices.h"
#include "RamDiskCore/Redirects/FolderRedirectsUseCase.h"
#include "RamDiskCore/Setup/RamDiskSetupResult.h"
#include "RamDiskCore/Startup/ManageProfilesUseCase.h"
#include "RamDiskCore/Values/RamDiskSetup.h"

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace ramdisk {

/// What to change on an existing disk. What is absent stays as it is.
struct RamDiskChanges {
    std::optional<std::string> name;
    std::optional<SearchIndexing> indexing;
    std::optional<VolumeAccess> access;
    /// Whether the disk becomes a startup disk, if it is not one yet.
    bool becomesStartupDisk = false;
    /// For startup disks only, as are the next two.
    std::optional<bool> keepsFiles;
    /// How many earlier copies of its files are kept from the next save on.
    std::optional<std::uint32_t> previousCopies;
    std::optional<std::filesystem::path> seedFolder;
    /// Further folders to make on the disk.
    std::vector<std::string> folders;
    /// Further tools' folders to keep on the disk.
    std::vector<RedirectTarget> redirects;
    /// Whether the disk's other redirects go.
    bool replacesRedirects = false;
};

struct ConfigureRamDiskResult {
    /// As it is listed afterwards.
    RamDisk ramDisk;
    std::vector<RamDiskSetupProblem> problems;
};

/// Reads how a disk is set up, and changes what can change on an existing disk: its name, indexing, access,
/// whether it is a startup disk and keeps its files, its folders and redirects.
class ConfigureRamDiskUseCase {
public:
    ConfigureRamDiskUseCase(RamDiskServices services, std::shared_ptr<ManageProfilesUseCase> profiles,
                            std::shared_ptr<FolderRedirectsUseCase> redirects);

    /// The set-up that would make a disk like this one.
    /// @throws RamDiskError `notMounted`; `formattingFailed` when its format is none that a user can ask for.
    [[nodiscard]] RamDiskSetup setup(const RamDisk& disk) const;

    /// The same for a set-up that is kept.
    /// @throws as `setup`; RamDiskError `invalidSpecification` when no disk could be made of it.
    [[nodiscard]] RamDiskSetup validSetup(const RamDisk& disk) const;

    /// A new profile that makes this disk at every launch.
    /// @throws as `setup`
    [[nodiscard]] RamDiskProfile makeProfile(const RamDisk& disk) const;

    /// Makes the changes in the order of their fields. The profile of a startup disk is changed along with
    /// it. A failure up to and including the change of the profile ends the run and is thrown. Later failures
    /// are returned as problems, as is a profile that a disk could not get.
    /// @throws RamDiskError `invalidSpecification`, `notMounted`, `formattingFailed`; std::exception
    ConfigureRamDiskResult execute(const RamDisk& disk, RamDiskChanges changes);

private:
    void requireValid(const RamDisk& disk, const RamDiskChanges& changes) const;
    RamDisk rename(const RamDisk& disk, const std::string& newName,
                   std::vector<RamDiskSetupProblem>& problems);
    RamDisk setAccess(const RamDisk& disk, VolumeAccess access, std::vector<RamDiskSetupProblem>& problems);
    /// Undoes a rename that could not be stored.
    void takeNameBack(const RamDisk& renamed, const std::string& formerName) const;
    void putRedirectsBack(const RamDisk& disk) const;
    void changeProfile(const RamDisk& disk, const RamDiskChanges& changes,
                       std::vector<RamDiskSetupProblem>& problems);

    RamDiskServices services_;
    std::shared_ptr<ManageProfilesUseCase> profiles_;
    std::shared_ptr<FolderRedirectsUseCase> redirects_;
};

} // namespace ramdisk
