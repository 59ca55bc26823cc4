#pragma once

#include "RamDiskInfrastructure/Trees/TreeContents.h"

#include <optional>

#include <sys/stat.h>

namespace ramdisk {

/// What the kernel tells of an item.
struct ItemStatus {
    struct stat basic {};
    ItemFlags flags = 0;
};

/// As `fstatat`, with the flags. Absent with errno set when it fails.
[[nodiscard]] std::optional<ItemStatus> readStatus(int folder, const char* name, int lookup);

/// Gives an open file or folder just these flags, of those that manifests have. False with errno set when it
/// fails, as it does where the file system or the process cannot set flags.
[[nodiscard]] bool setItemFlags(int item, ItemFlags wanted);

} // namespace ramdisk
