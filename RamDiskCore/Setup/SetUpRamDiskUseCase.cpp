#include "RamDiskCore/Setup/SetUpRamDiskUseCase.h"

#include "RamDiskCore/Setup/SetupSteps.h"
#include "RamDiskCore/Validation/DiskFolders.h"

namespace ramdisk {

SetUpRamDiskUseCase::SetUpRamDiskUseCase(RamDiskServices services,
                                         std::shared_ptr<ManageProfilesUseCase> profiles,
                                         std::shared_ptr<FolderRedirectsUseCase> redirects)
    : services_(std::move(services)),
      profiles_(std::move(profiles)),
      redirects_(std::move(redirects)) {}

void SetUpRamDiskUseCase::check(RamDiskSetup& setup) const {
    if (!DiskFolders::check(setup.folders).issues.empty()) {
        const auto context = services_.validationContext.current();
        requireFolders(setup.folders, services_.validator.validate(setup.specification, context).errors());
    }
    setup.folders = checkedFolders(setup.folders);
    if (setup.seedFolder) {
        services_.folderCopier->requireSource(*setup.seedFolder);
    }
    if (setup.createsAtLaunch || !setup.redirects.empty()) {
        requireStorable(setup.specification.name);
    }
    redirects_->requirePlaces(setup.redirects);
    if (setup.createsAtLaunch) {
        profiles_->requireReadable();
    }
    if (setup.keepsFiles && setup.specification.isEncrypted) {
        profiles_->requireKeyStore();
    }
}

RamDiskSetupResult SetUpRamDiskUseCase::execute(RamDiskSetup setup) {
    check(setup);
    RamDiskSetupResult result{services_.create->execute(setup.specification), {}};
    storeProfile(setup, result);
    copySeed(setup, result);
    const auto& disk = result.creation.ramDisk;
    makeFolders(*services_.folderMaker, setup.folders, disk, result.problems);
    applyStoredRedirects(*redirects_, disk, result.problems);
    addRedirects(*redirects_, setup.redirects, disk, result.problems);
    return result;
}

void SetUpRamDiskUseCase::storeProfile(const RamDiskSetup& setup, RamDiskSetupResult& result) const {
    if (!setup.createsAtLaunch) {
        return;
    }
    // As the disk came out, so that the next launch makes the same one.
    const auto& disk = result.creation.ramDisk;
    const auto& wanted = setup.specification;
    try {
        if (setup.keepsFiles) {
            services_.archiver->requireSupport(disk);
        }
        profiles_->store({.id = UUID::random(),
                          .name = disk.name,
                          .size = wanted.size,
                          .fileSystem = wanted.fileSystem,
                          .isEncrypted = wanted.isEncrypted,
                          .isIndexingEnabled = wanted.isIndexingEnabled,
                          .access = wanted.access,
                          .keepsContents = setup.keepsFiles,
                          .seedFolder = setup.seedFolder,
                          .folders = setup.folders},
                         disk);
    } catch (const std::exception&) {
        result.problems.push_back({RamDiskSetupProblem::ProfileNotSaved{std::current_exception()}});
    }
}

void SetUpRamDiskUseCase::copySeed(const RamDiskSetup& setup, RamDiskSetupResult& result) const {
    if (!setup.seedFolder) {
        return;
    }
    try {
        services_.folderCopier->copy(*setup.seedFolder, result.creation.ramDisk.mountPoint.value());
    } catch (const std::exception&) {
        result.problems.push_back({RamDiskSetupProblem::SeedNotCopied{std::current_exception()}});
    }
}

} // namespace ramdisk
