#pragma once

#include "RamDiskCore/Disks/RamDiskServices.h"
#include "RamDiskCore/Ports/FolderRedirecting.h"
#include "RamDiskCore/Ports/MountWatching.h"
#include "RamDiskCore/Ports/ShutdownDelaying.h"
#include "RamDiskInfrastructure/Platform/PlatformStores.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>

namespace ramdisk {

/// A setting that only this platform has: true or false. It is kept in the user defaults under its name, and
/// is not exported to other machines.
struct PlatformSetting {
    std::string_view name;
    bool defaultValue = false;
};

/// Everything that a platform gives.
struct Platform {
    RamDiskServices services;
    PlatformStores stores;
    /// Puts this user's folder redirects in place.
    std::shared_ptr<FolderRedirecting> redirecting;
    /// Delays a shutdown, where that is possible. Asks nobody before it is started.
    std::shared_ptr<ShutdownDelaying> shutdownDelay;
    /// Null where mounts are not watched.
    std::shared_ptr<MountWatching> mountWatching{};
    /// Whether what is stored in a folder, which need not exist yet, is gone after a restart. False when that
    /// cannot be told.
    std::function<bool(const std::filesystem::path&)> isFolderInMemory =
        [](const std::filesystem::path& /*folder*/) { return false; };
    /// This platform's own settings, valid for the life of the process.
    std::span<const PlatformSetting> settings;
};

/// Builds this platform for this user. Opens no file, starts no thread and changes nothing before it is used.
/// `notice` gets sentences that the user should know about the way in which this machine makes disks, each at
/// most once per case.
/// @throws std::exception when a variable of the environment has an invalid value.
[[nodiscard]] Platform makePlatform(std::function<void(std::string)> notice);

} // namespace ramdisk
