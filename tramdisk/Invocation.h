#pragma once

#include "RamDiskCore/Ports/RamDeviceAllocating.h"
#include "RamDiskCore/Ports/SearchIndexControlling.h"
#include "RamDiskCore/Values/ByteCount.h"
#include "RamDiskCore/Values/FileSystem.h"
#include "RamDiskCore/Values/RamDiskReference.h"
#include "RamDiskCore/Values/VolumeAccess.h"
#include "tramdisk/Setting.h"

#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace ramdisk::cli {

/// What holds for every subcommand.
struct GlobalOptions {
    bool json = false;
    bool noColor = false;
    bool quiet = false;
};

/// What a user said of a disk to make; what he left open is absent.
struct SpecificationOptions {
    std::optional<std::string> name;
    std::optional<ByteCount> size;
    std::optional<FileSystem> fileSystem;
    std::optional<bool> isEncrypted;
    std::optional<bool> isIndexingEnabled;
    std::optional<VolumeAccess> access;
};

struct CreateInvocation {
    SpecificationOptions specification;
    bool isDryRun = false;
};
struct ValidateInvocation {
    SpecificationOptions specification;
};
struct ListInvocation {};
struct ShowInvocation {
    RamDiskReference reference;
};
struct UsersInvocation {
    RamDiskReference reference;
};
struct EjectInvocation {
    /// Empty means all of the caller's disks.
    std::vector<RamDiskReference> references;
    Force force = Force::no;
};
struct RenameInvocation {
    RamDiskReference reference;
    std::string newName;
};
/// What is to change on a standing disk; what is absent stays.
struct ConfigureInvocation {
    RamDiskReference reference;
    std::optional<SearchIndexing> indexing;
};
struct MemoryInvocation {};
struct SettingsListInvocation {};
struct SettingsGetInvocation {
    Setting setting;
};
struct SettingsSetInvocation {
    Setting setting;
    DefaultsValue value;
};
struct SettingsUnsetInvocation {
    Setting setting;
};
/// Help or the version was asked for.
struct PrintInvocation {
    std::string text;
};

/// One call of the program, read and checked, but not yet carried out.
struct Invocation {
    GlobalOptions global;
    std::variant<PrintInvocation, CreateInvocation, ValidateInvocation, ListInvocation, ShowInvocation,
                 UsersInvocation, EjectInvocation, RenameInvocation, ConfigureInvocation, MemoryInvocation,
                 SettingsListInvocation, SettingsGetInvocation, SettingsSetInvocation,
                 SettingsUnsetInvocation>
        command;
};

} // namespace ramdisk::cli
