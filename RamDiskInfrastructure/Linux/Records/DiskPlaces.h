#pragma once

#include "RamDiskInfrastructure/Linux/Records/DiskRecordStore.h"
#include "RamDiskInfrastructure/Linux/Records/MountFolders.h"

#include <filesystem>
#include <functional>
#include <string>
#include <string_view>

/// The names and mount folders that disks compete for. Callers hold `DiskRecordStore::lockNames`, so that
/// nobody else can take the same one between the check and the taking.
namespace ramdisk {

/// @throws RamDiskError `invalidSpecification` when a disk other than that of `own` has the name. A disk that
///         only waits for its memory to be freed has given up its name.
void requireFreeName(const DiskRecordStore& store, const DiskRecord& own, std::string_view name);

/// Whether the record of another disk names this folder.
[[nodiscard]] bool isMountPointOfAnother(const DiskRecordStore& store, const DiskRecord& own,
                                         const std::filesystem::path& folder);

/// Makes a folder to mount the disk on. The record names its path before the folder exists. `notice` gets a
/// sentence if the folder could not have the disk's name.
/// @throws SystemCallError
[[nodiscard]] MountFolders::Made makeMountFolder(const LinuxHost& host, const DiskRecordStore& store,
                                                 RecordHold& hold,
                                                 const std::function<void(std::string)>& notice);

} // namespace ramdisk
