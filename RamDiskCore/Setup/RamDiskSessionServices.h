#pragma once

#include "RamDiskCore/Ports/DiskOrderStoring.h"
#include "RamDiskCore/Setup/DiskTemplatesUseCase.h"
#include "RamDiskCore/Setup/SetUpRamDiskUseCase.h"
#include "RamDiskCore/Startup/LoadSavedContentsUseCase.h"
#include "RamDiskCore/Startup/SessionLifecycleUseCase.h"

#include <memory>

namespace ramdisk {

/// Everything that knows of startup disks, saved files and redirects. It is built once, from what acts on
/// disks.
struct RamDiskSessionServices {
    RamDiskServices core;
    std::shared_ptr<ManageProfilesUseCase> profiles;
    std::shared_ptr<ProfileContentsUseCase> profileContents;
    std::shared_ptr<SessionLifecycleUseCase> lifecycle;
    std::shared_ptr<ConfigureRamDiskUseCase> configure;
    std::shared_ptr<FolderRedirectsUseCase> redirects;
    std::shared_ptr<DiskOrderStoring> diskOrder;
    std::shared_ptr<SetUpRamDiskUseCase> setUp;
    std::shared_ptr<LoadSavedContentsUseCase> loadSaved;
    std::shared_ptr<DiskTemplatesUseCase> templates;
};

} // namespace ramdisk
