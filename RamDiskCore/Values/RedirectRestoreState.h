#pragma once

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
        friend bool operator==(const MovedFolder&, const MovedFolder&) = default;
    };
    /// The same, and a symbolic link to `link` has the original name.
    struct LinkedFolder {
        std::optional<std::filesystem::path> backup;
        std::string link;
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
