#include "RamDiskInfrastructure/Redirects/StandingRedirects.h"

#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskInfrastructure/Redirects/FolderNames.h"
#include "RamDiskInfrastructure/Redirects/FolderOnDisk.h"
#include "RamDiskInfrastructure/Redirects/HomeTree.h"
#include "RamDiskInfrastructure/Redirects/StrayOriginals.h"

#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>
#include <set>
#include <string>
#include <system_error>
#include <utility>

#include <sys/stat.h>

namespace ramdisk {

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds homeSearchLimit{3};

/// The newest backup: an original gets the first name that is free.
std::optional<fs::path> backupBeside(const fs::path& link) {
    std::optional<fs::path> found;
    for (int number = 1;; ++number) {
        const auto candidate =
            link.parent_path()
            / (link.filename().string() + (number == 1 ? "" : " " + std::to_string(number)) + originalEnding);
        std::error_code error;
        const auto type = fs::symlink_status(candidate, error).type();
        if (type == fs::file_type::not_found) {
            return found;
        }
        if (type == fs::file_type::directory) {
            found = candidate;
        }
    }
}

class Search {
public:
    explicit Search(fs::path home) : home_(std::move(home)) {}

    void take(const FolderMounting::Mounted& mount, const std::vector<fs::path>& mountPoints) {
        const auto relative = mount.place.lexically_relative(home_);
        const auto name = mount.root.filename().string();
        auto onDisk = mount.root;
        for (const auto& disk : mountPoints) {
            struct stat status {};
            const auto folder = folderOnDisk(disk, name);
            if (lstat(folder.c_str(), &status) == 0 && status.st_dev == mount.device) {
                onDisk = folder;
            }
        }
        if (takeOnce(relative, onDisk)) {
            // Any number but none says that it is a mount.
            add(relative, {std::nullopt, onDisk.string(), mount.place, std::uint64_t{1}});
        }
    }

    void takeLink(const fs::path& path) {
        std::error_code error;
        const auto target = fs::read_symlink(path, error);
        const auto relative = path.lexically_relative(home_);
        if (!error && isFolderOnDisk(target, nameOfFolder(relative)) && takeOnce(relative, target)) {
            const auto backup = backupBeside(path);
            add(relative,
                {backup, target.string(), backup ? std::nullopt : std::optional(path), std::nullopt});
        }
    }

    void searchHome() {
        const auto end = Clock::now() + homeSearchLimit;
        std::deque<fs::path> folders{home_};
        while (!folders.empty()) {
            const auto folder = folders.front();
            folders.pop_front();
            std::error_code error;
            for (fs::directory_iterator entry(folder, error), last; !error && entry != last;
                 entry.increment(error)) {
                if (Clock::now() > end) {
                    trace("redirects", "the search for links ends before {}", entry->path().native());
                    return;
                }
                const auto type = entry->symlink_status(error).type();
                if (type == fs::file_type::symlink) {
                    takeLink(entry->path());
                } else if (type == fs::file_type::directory) {
                    folders.push_back(entry->path());
                }
            }
        }
    }

    [[nodiscard]] std::vector<StandingRedirect> found() const { return found_; }

private:
    /// A folder can be mounted over itself, and a link is found on its disk and in the home folder.
    bool takeOnce(const fs::path& relative, const fs::path& onDisk) {
        return seen_.emplace(relative, onDisk).second;
    }

    void add(const fs::path& relative, const RedirectRestoreState::LinkedFolder& state) {
        const fs::path onDisk(state.link);
        found_.push_back({{.id = UUID::random(),
                           .diskName = onDisk.parent_path().parent_path().filename().string(),
                           .target = {RedirectTarget::Folder{relative.string()}},
                           .restoreState = RedirectRestoreState{state}},
                          onDisk});
    }

    fs::path home_;
    std::set<std::pair<fs::path, fs::path>> seen_;
    std::vector<StandingRedirect> found_;
};

} // namespace

std::vector<StandingRedirect> findStandingRedirects(const fs::path& home,
                                                    const std::vector<FolderMounting::Mounted>& mounts,
                                                    const std::vector<fs::path>& mountPoints,
                                                    StandingSearch reach) {
    std::error_code error;
    const auto root = fs::canonical(home, error);
    if (error) {
        return {};
    }
    Search search(root);
    for (const auto& mount : mounts) {
        search.take(mount, mountPoints);
    }
    for (const auto& disk : mountPoints) {
        const auto common = folderOnDisk(disk, "x").parent_path();
        for (fs::directory_iterator entry(common, error), last; !error && entry != last;
             entry.increment(error)) {
            search.takeLink(root / folderOfName(entry->path().filename().string()));
        }
    }
    if (reach == StandingSearch::homeFolder) {
        search.searchHome();
    }
    return search.found();
}

} // namespace ramdisk
