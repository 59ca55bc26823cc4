#include "RamDiskInfrastructure/Redirects/StrayOriginals.h"

#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskInfrastructure/Redirects/HomeTree.h"
#include "RamDiskInfrastructure/Redirects/RedirectPlaces.h"

#include <chrono>
#include <set>
#include <system_error>

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

std::vector<fs::path> findStrayOriginals(const fs::path& home, const std::vector<FolderRedirect>& known) {
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
    std::vector<fs::path> found;
    for (const auto& place : placesToLookIn(root, known, end)) {
        forEachEntry(place, end, [&](const fs::directory_entry& entry) {
            if (entry.path().native().ends_with(originalEnding) && isFolder(entry)
                && !backups.contains(entry.path())) {
                found.push_back(entry.path());
            }
        });
    }
    return found;
}

} // namespace ramdisk
