#pragma once

#include "RamDiskCore/Values/RedirectTarget.h"
#include "RamDiskInfrastructure/Redirects/RedirectPlaces.h"

#include <filesystem>
#include <functional>
#include <optional>
#include <string>

namespace ramdisk {

/// The value of a variable; absent when it is not set, empty, or not to be trusted.
using VariableLookup = std::function<std::optional<std::string>(const char* name)>;

/// Where tools keep their caches in the environment of this process. A redirect of a folder that its tool
/// does not use would be a success that changes nothing.
class ToolPlaces {
public:
    /// Where a tool keeps its cache now.
    struct Place {
        /// Below the home folder; absent when the cache is not there.
        std::optional<std::filesystem::path> folder;
        /// What moved it: the name of a variable, or an older folder of the tool's, such as "~/.ccache".
        /// Empty when nothing did.
        std::string movedBy;
        /// Why there is no folder, as a sentence that names the variable.
        std::string problem;
    };

    ToolPlaces(std::filesystem::path home, VariableLookup variables, HomeLayout layout = homeLayout());

    [[nodiscard]] Place placeOf(KnownCache cache) const;

    /// As `FolderRedirecting::settled`.
    /// @throws std::runtime_error
    [[nodiscard]] RedirectTarget settled(const RedirectTarget& target) const;

    /// The target as users name it: a folder that is a cache's place is that cache.
    [[nodiscard]] RedirectTarget named(const RedirectTarget& target) const;

    /// What leads the tool of a stored target elsewhere, as in `Place::movedBy`. Absent when the tool uses
    /// it.
    [[nodiscard]] std::optional<std::string> overriding(const RedirectTarget& target) const;

private:
    [[nodiscard]] Place placeBelowHome(KnownCache cache, const char* variable, const std::string& value,
                                       const char* below) const;
    /// What makes npm ignore the line of ~/.npmrc.
    [[nodiscard]] std::optional<Place> npmElsewhere() const;

    std::filesystem::path home_;
    VariableLookup variables_;
    HomeLayout layout_;
};

} // namespace ramdisk
