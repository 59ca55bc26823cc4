#pragma once

#include "RamDiskCore/Values/ByteCount.h"
#include "RamDiskCore/Values/FileSystem.h"
#include "RamDiskCore/Values/RedirectTarget.h"
#include "RamDiskCore/Values/VolumeAccess.h"
#include "tramdisk/Syntax.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace ramdisk::cli {

/// The options that describe a disk; what the user left open is absent.
struct SetupOptions {
    /// The template that stands for what the options leave open.
    std::optional<std::string> templateTitle;
    std::optional<ByteCount> size;
    std::optional<FileSystem> fileSystem;
    std::optional<bool> isEncrypted;
    std::optional<std::string> name;
    std::optional<bool> isIndexingEnabled;
    std::optional<VolumeAccess> access;
    std::optional<bool> createsAtLaunch;
    std::optional<bool> keepsFiles;
    /// Of an existing startup disk.
    std::optional<std::uint32_t> previousCopies;
    std::optional<std::filesystem::path> seedFolder;
    std::vector<std::string> folders;
    std::vector<RedirectTarget> redirects;
    /// Whether the redirects that the disk has go.
    bool replacesRedirects = false;

    void declareForNewDisk(Syntax& syntax);
    /// Without what an existing disk has settled.
    void declareForExistingDisk(Syntax& syntax);

    friend bool operator==(const SetupOptions&, const SetupOptions&) = default;

private:
    void declareAdditions(Syntax& syntax);
};

} // namespace ramdisk::cli
