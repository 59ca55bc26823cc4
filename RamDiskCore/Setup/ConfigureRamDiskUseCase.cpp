#include "RamDiskCore/Setup/ConfigureRamDiskUseCase.h"

#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskCore/Setup/SetupSteps.h"
#include "RamDiskCore/Values/Text.h"

#include <algorithm>

namespace ramdisk {

namespace {

template <typename Change, typename Field>
void assign(const std::optional<Change>& change, Field& field) {
    if (change) {
        field = *change;
    }
}

} // namespace

ConfigureRamDiskUseCase::ConfigureRamDiskUseCase(RamDiskServices services,
                                                 std::shared_ptr<ManageProfilesUseCase> profiles,
                                                 std::shared_ptr<FolderRedirectsUseCase> redirects)
    : services_(std::move(services)),
      profiles_(std::move(profiles)),
      redirects_(std::move(redirects)) {}

RamDiskSetup ConfigureRamDiskUseCase::setup(const RamDisk& disk) const {
    if (!disk.mountPoint) {
        throw RamDiskError(RamDiskError::NotMounted{disk.device});
    }
    if (!disk.fileSystem) {
        throw RamDiskError(RamDiskError::FormattingFailed{"“" + disk.name + "” has a format of its own."});
    }
    RamDiskSetup setup;
    setup.specification = {disk.name,
                           disk.capacity,
                           *disk.fileSystem,
                           services_.indexing->state(*disk.mountPoint) == SearchIndexing::on,
                           disk.isEncrypted.value_or(false),
                           disk.access};
    for (auto& redirect : redirects_->redirects(disk.name)) {
        setup.redirects.push_back(std::move(redirect.target));
    }
    if (const auto profile = profiles_->named(disk.name)) {
        // As it was asked for; a volume rounds its size and may be mounted otherwise for now.
        setup.specification.size = profile->size;
        setup.createsAtLaunch = true;
        setup.keepsFiles = profile->keepsContents;
        setup.seedFolder = profile->seedFolder;
        setup.folders = profile->folders;
    }
    return setup;
}

RamDiskSetup ConfigureRamDiskUseCase::validSetup(const RamDisk& disk) const {
    auto valid = setup(disk);
    const auto context = services_.validationContext.currentFor(disk);
    requireFolders(valid.folders, services_.validator.validate(valid.specification, context).errors());
    return valid;
}

RamDiskProfile ConfigureRamDiskUseCase::makeProfile(const RamDisk& disk) const {
    const auto described = setup(disk).specification;
    RamDiskProfile profile{.id = UUID::random(),
                           .name = described.name,
                           .size = described.size,
                           .fileSystem = described.fileSystem,
                           .isEncrypted = described.isEncrypted,
                           .isIndexingEnabled = described.isIndexingEnabled,
                           .access = described.access};
    profiles_->takeUpCopies(profile, disk);
    return profile;
}

ConfigureRamDiskResult ConfigureRamDiskUseCase::execute(const RamDisk& disk, RamDiskChanges changes) {
    if (!disk.mountPoint) {
        throw RamDiskError(RamDiskError::NotMounted{disk.device});
    }
    profiles_->requireReadable();
    requireValid(disk, changes);
    changes.folders = checkedFolders(changes.folders);
    if (changes.seedFolder) {
        services_.folderCopier->requireSource(*changes.seedFolder);
    }
    ConfigureRamDiskResult result{disk, {}};
    if (changes.name && trimmed(*changes.name) != disk.name) {
        result.ramDisk = rename(disk, *changes.name, result.problems);
    }
    if (changes.access && *changes.access != result.ramDisk.access) {
        result.ramDisk = setAccess(result.ramDisk, *changes.access, result.problems);
    }
    if (changes.indexing) {
        services_.indexing->set(*changes.indexing, result.ramDisk.mountPoint.value());
    }
    changeProfile(result.ramDisk, changes, result.problems);
    makeFolders(*services_.folderMaker, changes.folders, result.ramDisk, result.problems);
    if (changes.replacesRedirects) {
        noteFailures(redirects_->change(result.ramDisk, changes.redirects), result.problems);
    } else {
        addRedirects(*redirects_, changes.redirects, result.ramDisk, result.problems);
    }
    return result;
}

/// Tells all that is wrong with what was asked for at once, before any of it is done.
void ConfigureRamDiskUseCase::requireValid(const RamDisk& disk, const RamDiskChanges& changes) const {
    std::vector<ValidationIssue> issues;
    if (changes.name && trimmed(*changes.name) != disk.name) {
        issues = services_.rename->issues(disk, *changes.name);
    }
    auto folders = changes.folders;
    if (const auto profile = profiles_->named(disk.name); profile && !folders.empty()) {
        folders.insert(folders.begin(), profile->folders.begin(), profile->folders.end());
    }
    requireFolders(folders, std::move(issues));
}

RamDisk ConfigureRamDiskUseCase::setAccess(const RamDisk& disk, VolumeAccess access,
                                           std::vector<RamDiskSetupProblem>& problems) {
    // The disk is found elsewhere afterwards, and what leads to it must not lead nowhere meanwhile.
    noteFailures(redirects_->undoUnlessInUse(disk), problems);
    try {
        services_.access->setAccess(disk, access);
    } catch (const std::exception&) {
        putRedirectsBack(disk);
        throw;
    }
    auto changed = services_.list->resolve({RamDiskReference::Device{disk.device}});
    noteFailures(redirects_->apply(changed), problems);
    return changed;
}

void ConfigureRamDiskUseCase::putRedirectsBack(const RamDisk& disk) const {
    try {
        // It may have got to its new place.
        static_cast<void>(
            redirects_->apply(services_.list->resolve({RamDiskReference::Device{disk.device}})));
    } catch (const std::exception&) {
        // Why the access did not change is what the user must see; an undone redirect loses nothing.
        traceCaught("redirects", "the redirects of a disk whose access did not change are not put back");
    }
}

void ConfigureRamDiskUseCase::takeNameBack(const RamDisk& renamed, const std::string& formerName) const {
    try {
        services_.renamer->rename(renamed, formerName);
    } catch (const std::exception&) {
        // Why the record has the former name is what the user must see.
        traceCaught("session", "the disk keeps its new name, which its record does not have");
    }
}

RamDisk ConfigureRamDiskUseCase::rename(const RamDisk& disk, const std::string& newName,
                                        std::vector<RamDiskSetupProblem>& problems) {
    auto profile = profiles_->named(disk.name);
    if (profile || !redirects_->redirects(disk.name).empty()) {
        requireStorable(newName);
    }
    auto renamed = services_.rename->execute(disk, newName);
    if (profile) {
        // A crash in between leaves the record with the old name; the notes beside the saved files tell them
        // together.
        profile->name = renamed.name;
        try {
            profiles_->store(*profile);
        } catch (const std::exception&) {
            takeNameBack(renamed, disk.name);
            throw;
        }
    }
    noteFailures(redirects_->rename(disk.name, renamed.name), problems);
    return renamed;
}

void ConfigureRamDiskUseCase::changeProfile(const RamDisk& disk, const RamDiskChanges& changes,
                                            std::vector<RamDiskSetupProblem>& problems) {
    const auto stored = profiles_->named(disk.name);
    if (!stored && !changes.becomesStartupDisk) {
        return;
    }
    try {
        auto profile = stored ? *stored : makeProfile(disk);
        if (changes.keepsFiles.value_or(false)) {
            services_.archiver->requireSupport(disk);
        }
        assign(changes.keepsFiles, profile.keepsContents);
        assign(changes.previousCopies, profile.previousCopies);
        assign(changes.access, profile.access);
        if (changes.indexing) {
            profile.isIndexingEnabled = *changes.indexing == SearchIndexing::on;
        }
        if (changes.seedFolder) {
            profile.seedFolder = changes.seedFolder;
        }
        if (!changes.folders.empty()) {
            profile.folders.insert(profile.folders.end(), changes.folders.begin(), changes.folders.end());
            profile.folders = checkedFolders(profile.folders);
        }
        if (profile != stored || changes.becomesStartupDisk) {
            profiles_->store(profile, disk);
        }
    } catch (const std::exception&) {
        if (stored) {
            // The disk is made at every launch, as before.
            throw;
        }
        problems.push_back({RamDiskSetupProblem::ProfileNotSaved{std::current_exception()}});
    }
}

} // namespace ramdisk
