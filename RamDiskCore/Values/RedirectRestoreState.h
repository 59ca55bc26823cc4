#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <variant>

namespace ramdisk {

/// What was in the place of a redirect before, so that it can be undone, also after a crash.
struct RedirectRestoreState {
    /// The former value of a preference; absent when it was unset.
    struct Preference {
        std::optional<std::string> value;
        friend bool operator==(const Preference&, const Preference&) = default;
    };
    /// The former line of a configuration file; absent when there was none.
    struct ConfigLine {
        std::optional<std::string> line;
        friend bool operator==(const ConfigLine&, const ConfigLine&) = default;
    };
    /// The original folder has its backup name, and nothing has its own name yet. Absent when there was no
    /// original.
    struct MovedFolder {
        std::optional<std::filesystem::path> backup;
        /// Where the link stands, with every link on the way followed. Only without a backup, whose folder
        /// tells it otherwise.
        std::optional<std::filesystem::path> place = std::nullopt;
        /// Tells the original from a folder that was made anew in its place. Absent in older records.
        std::optional<std::uint64_t> inode = std::nullopt;
        friend bool operator==(const MovedFolder&, const MovedFolder&) = default;
    };
    /// The same, and a symbolic link to `link` has the original name. Without a backup but with an inode, the
    /// folder `link` is mounted over the original, which lies hidden in its place. Earlier versions find no
    /// link there and change nothing.
    struct LinkedFolder {
        std::optional<std::filesystem::path> backup;
        std::string link;
        /// As of a moved folder.
        std::optional<std::filesystem::path> place = std::nullopt;
        std::optional<std::uint64_t> inode = std::nullopt;
        friend bool operator==(const LinkedFolder&, const LinkedFolder&) = default;
    };
    /// The former value of an environment variable; absent when it was unset.
    struct EnvironmentVariable {
        std::optional<std::string> value;
        friend bool operator==(const EnvironmentVariable&, const EnvironmentVariable&) = default;
    };

    std::variant<Preference, ConfigLine, MovedFolder, LinkedFolder, EnvironmentVariable> value;

    friend bool operator==(const RedirectRestoreState&, const RedirectRestoreState&) = default;
};

} // namespace ramdisk
