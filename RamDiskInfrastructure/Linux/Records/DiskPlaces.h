#pragma once

#include "RamDiskInfrastructure/Linux/Records/DiskRecordStore.h"
#include "RamDiskInfrastructure/Linux/Records/MountFolders.h"

#include <filesystem>
#include <string_view>

/// The names and mount folders that disks take from one another. Callers hold `DiskRecordStore::lockNames`,
/// so that between the look and the taking nobody else can take the same.
namespace ramdisk {

/// @throws RamDiskError `invalidSpecification` when another disk than that of `own` goes by the name. A disk
/// that
///         only waits for its memory to come back has given its name up.
void requireFreeName(const DiskRecordStore& store, const DiskRecord& own, std::string_view name);

/// Whether the record of another disk names the folder.
[[nodiscard]] bool isMountPointOfAnother(const DiskRecordStore& store, const DiskRecord& own,
                                         const std::filesystem::path& folder);

/// Makes a folder for the disk to be mounted on, under a path that the record names before the folder exists.
/// @throws SystemCallError
[[nodiscard]] MountFolders::Made makeMountFolder(const LinuxHost& host, const DiskRecordStore& store,
                                                 RecordHold& hold);

} // namespace ramdisk
