#include "RamDiskInfrastructure/Redirects/StrayOriginals.h"

#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskInfrastructure/Redirects/HomeTree.h"
#include "RamDiskInfrastructure/Redirects/RedirectPlaces.h"

#include <chrono>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

namespace ramdisk {

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds searchLimit{3};

struct Whereabouts {
    std::optional<fs::path> operator()(const RedirectRestoreState::MovedFolder& state) const {
        return state.backup ? state.backup : state.place;
    }
    std::optional<fs::path> operator()(const RedirectRestoreState::LinkedFolder& state) const {
        return state.backup ? state.backup : state.place;
    }
    template <typename Setting>
    std::optional<fs::path> operator()(const Setting&) const {
        return std::nullopt;
    }
};

/// Calls `visit` with each entry of the folder, until the time is up.
template <typename Visit>
void forEachEntry(const fs::path& folder, Clock::time_point end, const Visit& visit) {
    std::error_code error;
    for (fs::directory_iterator entry(folder, error), last; !error && entry != last; entry.increment(error)) {
        if (Clock::now() > end) {
            trace("redirects", "the search for originals ends before {}", entry->path().native());
            return;
        }
        visit(*entry);
    }
}

bool isFolder(const fs::directory_entry& entry) {
    std::error_code error;
    return entry.symlink_status(error).type() == fs::file_type::directory;
}

bool isThere(const fs::path& path) {
    std::error_code error;
    return fs::symlink_status(path, error).type() != fs::file_type::not_found;
}

/// The name without its number, as in “p 2”: an original gets one if another has its name. Absent if there
/// is no number.
std::optional<std::string> withoutNumber(const std::string& name) {
    const auto blank = name.rfind(' ');
    const bool isNumbered = blank != std::string::npos && blank > 0 && blank + 1 < name.size()
                            && name.find_first_not_of("0123456789", blank + 1) == std::string::npos;
    return isNumbered ? std::optional(name.substr(0, blank)) : std::nullopt;
}

StrayOriginal strayOriginal(const fs::path& place, std::string_view ending) {
    auto name = place.filename().string();
    name.resize(name.size() - ending.size());
    const auto shorter = withoutNumber(name);
    // A folder may have a name with a number of its own.
    if (shorter
        && (isThere(place.parent_path() / *shorter)
            || isThere(place.parent_path() / (*shorter + std::string(ending))))) {
        name = *shorter;
    }
    return {place, name, isThere(place.parent_path() / name)};
}

std::set<fs::path> placesToLookIn(const fs::path& home, const std::vector<FolderRedirect>& known,
                                  Clock::time_point end) {
    std::set<fs::path> places{home};
    forEachEntry(home, end, [&](const fs::directory_entry& entry) {
        if (isFolder(entry)) {
            places.insert(entry.path());
        }
    });
    const auto add = [&](const fs::path& folder) {
        std::error_code error;
        const auto real = fs::canonical(folder, error);
        if (!error && isInside(real, home)) {
            places.insert(real);
        }
    };
    for (const auto cache : allKnownCaches) {
        add((home / folderOfCache(cache)).parent_path());
    }
    for (const auto& redirect : known) {
        if (const auto* const folder = std::get_if<RedirectTarget::Folder>(&redirect.target.value)) {
            add((home / folder->path).parent_path());
        }
        const auto recorded =
            redirect.restoreState ? std::visit(Whereabouts{}, redirect.restoreState->value) : std::nullopt;
        if (recorded) {
            add(recorded->parent_path());
        }
    }
    return places;
}

} // namespace

std::vector<StrayOriginal> findStrayOriginals(const fs::path& home,
                                              const std::vector<FolderRedirect>& known) {
    std::error_code error;
    const auto root = fs::canonical(home, error);
    if (error) {
        return {};
    }
    std::set<fs::path> backups;
    for (const auto& redirect : known) {
        if (redirect.restoreState) {
            backups.insert(std::visit(Whereabouts{}, redirect.restoreState->value).value_or(""));
        }
    }
    const auto end = Clock::now() + searchLimit;
    std::vector<StrayOriginal> found;
    for (const auto& place : placesToLookIn(root, known, end)) {
        forEachEntry(place, end, [&](const fs::directory_entry& entry) {
            const auto& path = entry.path();
            const bool isFormer = path.native().ends_with(formerEnding);
            if ((!isFormer && !path.native().ends_with(originalEnding)) || !isFolder(entry)
                || backups.contains(path)) {
                return;
            }
            auto original = strayOriginal(path, isFormer ? formerEnding : originalEnding);
            if (!isFormer || !original.isNameTaken) {
                found.push_back(std::move(original));
            }
        });
    }
    return found;
}

} // namespace ramdisk
