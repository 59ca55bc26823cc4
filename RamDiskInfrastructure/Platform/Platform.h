#pragma once

#include "RamDiskCore/Disks/RamDiskServices.h"
#include "RamDiskCore/Ports/FolderRedirecting.h"
#include "RamDiskCore/Ports/ShutdownDelaying.h"
#include "RamDiskInfrastructure/Platform/PlatformStores.h"

#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>

namespace ramdisk {

/// A setting that only this platform has, kept in the user defaults under its name and no part of what is
/// exported to other machines. Is true or false.
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
    /// What can be done to delay a shutdown. Asks nobody until it is started.
    std::shared_ptr<ShutdownDelaying> shutdownDelay;
    /// This platform's own settings, valid for the life of the process.
    std::span<const PlatformSetting> settings;
};

/// Builds this platform for this user. Opens no file, starts no thread and touches nothing before it is used.
/// `notice` is told what the user should know of the way in which this machine makes disks, at most once each
/// time it matters.
/// @throws std::exception when a variable of the environment has an invalid value.
[[nodiscard]] Platform makePlatform(std::function<void(std::string)> notice);

} // namespace ramdisk
