#pragma once

#include "RamDiskCore/Ports/ContentArchiving.h"
#include "RamDiskCore/Ports/RamDeviceAllocating.h"
#include "RamDiskCore/Startup/SaveBeforeEject.h"
#include "RamDiskCore/Values/ByteCount.h"
#include "RamDiskCore/Values/FileSystem.h"
#include "RamDiskCore/Values/RamDiskReference.h"
#include "RamDiskCore/Values/RedirectTarget.h"
#include "RamDiskCore/Values/VolumeAccess.h"
#include "tramdisk/Setting.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
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
    bool trace = false;
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

/// What a user said of everything around a disk; what he left open is absent.
struct SetupOptions {
    SpecificationOptions specification;
    std::optional<bool> createsAtLaunch;
    std::optional<bool> keepsFiles;
    std::optional<std::filesystem::path> seedFolder;
    std::vector<std::string> folders;
    std::vector<RedirectTarget> redirects;
};

struct CreateInvocation {
    SetupOptions setup;
    /// The title of the template that stands for what the options leave open.
    std::optional<std::string> templateTitle;
    bool isDryRun = false;
};
struct ValidateInvocation {
    SetupOptions setup;
    std::optional<std::string> templateTitle;
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
    SaveBeforeEject saving = SaveBeforeEject::yes;
};
struct RenameInvocation {
    RamDiskReference reference;
    std::string newName;
};
/// What is to change on a standing disk; what is absent stays.
struct ConfigureInvocation {
    RamDiskReference reference;
    SetupOptions setup;
};
struct MemoryInvocation {};
struct StartupListInvocation {};
struct StartupAddInvocation {
    RamDiskReference reference;
    bool keepsFiles = false;
    std::uint32_t previousCopies = 0;
};
struct StartupRemoveInvocation {
    std::string name;
    Force force = Force::no;
};
struct StartupCreateInvocation {
    std::string name;
};
struct SaveInvocation {
    /// Empty means every disk that keeps its files.
    std::vector<RamDiskReference> references;
    Verification verification = Verification::no;
};
struct CopiesInvocation {
    /// A disk, or the name of a startup disk that is not mounted.
    RamDiskReference reference;
};
struct LoadInvocation {
    RamDiskReference reference;
    /// 1 is the latest.
    std::size_t copy = 1;
};
struct SessionRunInvocation {};
struct SessionStatusInvocation {};
struct RedirectsListInvocation {};
struct RedirectsAddInvocation {
    RamDiskReference reference;
    RedirectTarget target{};
};
struct RedirectsRemoveInvocation {
    /// A disk, or the name of one that is not mounted.
    RamDiskReference reference;
    RedirectTarget target{};
};
struct RedirectsRepairInvocation {};
struct TemplatesListInvocation {};
struct TemplatesSaveInvocation {
    std::string title;
    RamDiskReference reference;
};
struct TemplatesRemoveInvocation {
    std::string title;
};
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
    std::variant<
        PrintInvocation, CreateInvocation, ValidateInvocation, ListInvocation, ShowInvocation,
        UsersInvocation, EjectInvocation, RenameInvocation, ConfigureInvocation, MemoryInvocation,
        StartupListInvocation, StartupAddInvocation, StartupRemoveInvocation, StartupCreateInvocation,
        SaveInvocation, CopiesInvocation, LoadInvocation, SessionRunInvocation, SessionStatusInvocation,
        RedirectsListInvocation, RedirectsAddInvocation, RedirectsRemoveInvocation, RedirectsRepairInvocation,
        TemplatesListInvocation, TemplatesSaveInvocation, TemplatesRemoveInvocation, SettingsListInvocation,
        SettingsGetInvocation, SettingsSetInvocation, SettingsUnsetInvocation>
        command;
};

} // namespace ramdisk::cli
