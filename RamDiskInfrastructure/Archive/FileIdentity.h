#pragma once

#include "RamDiskInfrastructure/Stores/StoreFiles.h"

#include <filesystem>
#include <optional>

#include <sys/stat.h>

namespace ramdisk {

/// Tells whether two names are names of one file.
struct FileIdentity {
    dev_t device = 0;
    ino_t number = 0;

    /// The regular file under a name. Absent for a symbolic link and anything else, and when there is
    /// nothing.
    /// @throws std::runtime_error as `openStoreFolder`.
    [[nodiscard]] static std::optional<FileIdentity> of(const std::filesystem::path& file) {
        struct stat status {};
        if (stored::status(file, status) != 0 || !S_ISREG(status.st_mode)) {
            return std::nullopt;
        }
        return FileIdentity{status.st_dev, status.st_ino};
    }

    friend bool operator==(const FileIdentity&, const FileIdentity&) = default;
};

} // namespace ramdisk
