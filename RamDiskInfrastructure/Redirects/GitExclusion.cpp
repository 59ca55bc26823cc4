#include "RamDiskInfrastructure/Redirects/GitExclusion.h"

#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskInfrastructure/Redirects/FolderOnDisk.h"
#include "RamDiskInfrastructure/Stores/StoredFile.h"

#include <fmt/format.h>

#include <utility>

#include <sys/stat.h>
#include <unistd.h>

namespace ramdisk {

namespace {

constexpr const char* excludeFile = "exclude";
/// At the end of the first line, when there was no file.
constexpr const char* madeMark = " (no file before)";

bool isOwnFolder(const std::filesystem::path& path) {
    struct stat status {};
    return lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode) && status.st_uid == geteuid();
}

std::string pattern(const std::filesystem::path& path) {
    std::string text;
    for (const char letter : path.string()) {
        // A blank counts only at the end, but may be escaped anywhere.
        if (std::string_view("*?[]\\!# ").find(letter) != std::string_view::npos) {
            text += '\\';
        }
        text += letter;
    }
    return "/" + text;
}

bool isNowhere(const std::filesystem::path& path) {
    struct stat status {};
    return lstat(path.c_str(), &status) != 0 && errno == ENOENT;
}

} // namespace

GitExclusion::GitExclusion(std::filesystem::path home, const UUID& redirect, StepObserver observer)
    : home_(std::move(home)),
      begin_("# A folder is kept on a RAM disk, with a link here. This goes with it. " + redirect.text()),
      end_("# End of " + redirect.text() + "\n"),
      observer_(std::move(observer)) {}

std::optional<GitExclusion::Project> GitExclusion::projectOf(const OpenedFolder& parent) const {
    // Root would follow another user's folders by their names.
    if (!parent.missing.empty() || privateAccessOfOwner(home_).owner != geteuid()) {
        return std::nullopt;
    }
    const auto home = std::filesystem::canonical(home_);
    for (auto folder = parent.path; isInside(folder, home); folder = folder.parent_path()) {
        if (isOwnFolder(folder / ".git")) {
            const auto patterns = folder / ".git/info";
            return isOwnFolder(patterns) ? std::optional(Project{patterns, folder}) : std::nullopt;
        }
    }
    return std::nullopt;
}

void GitExclusion::replace(const std::filesystem::path& file, const std::string& text) const {
    tell(observer_, "write git's patterns");
    PreparedFile prepared(file, text);
    prepared.takeAccessOfFormer();
    prepared.takePlace();
}

void GitExclusion::add(const OpenedFolder& parent, const std::string& name) const {
    const auto project = projectOf(parent);
    if (!project) {
        return;
    }
    const auto file = project->patterns / excludeFile;
    const auto path = (parent.path / name).lexically_relative(project->root);
    struct stat status {};
    const bool isFile = lstat(file.c_str(), &status) == 0 && S_ISREG(status.st_mode);
    const auto text = readStoredFile(file);
    // A line end would make two patterns of one.
    if ((!isFile && !isNowhere(file)) || (isFile && (!text || text->find(begin_) != std::string::npos))
        || path.string().find('\n') != std::string::npos) {
        return;
    }
    try {
        removeAbandonedVersions(file);
        replace(file, begin_ + (isFile ? "" : madeMark) + "\n" + pattern(path) + "\n" + pattern(path)
                          + ".ramdisk-*\n" + pattern(path) + "\\ *.ramdisk-*\n" + end_ + text.value_or(""));
    } catch (const std::system_error&) {
        traceCaught("redirects", "git is not told of a link");
    }
}

bool GitExclusion::isHidden(const OpenedFolder& parent) const {
    const auto project = projectOf(parent);
    const auto text = project ? readStoredFile(project->patterns / excludeFile) : std::nullopt;
    return text && text->find(begin_) != std::string::npos;
}

std::optional<std::string> GitExclusion::hazard(const OpenedFolder& parent, const std::string& name) const {
    const auto home = std::filesystem::canonical(home_);
    for (auto folder = parent.path; isInside(folder, home); folder = folder.parent_path()) {
        if (!isNowhere(folder / ".git")) {
            // Both names begin with the folder's own.
            return fmt::format("`git clean {}` would delete the link “~/{}” and the original beside it: add "
                               "`-e '{}*'` to it, or eject the disk first.",
                               isHidden(parent) ? "-fdx" : "-fd",
                               (parent.path / name).lexically_relative(home).string(),
                               pattern((parent.path / name).lexically_relative(folder)));
        }
    }
    return std::nullopt;
}

void GitExclusion::remove(const OpenedFolder& parent) const {
    const auto project = projectOf(parent);
    if (!project) {
        return;
    }
    const auto file = project->patterns / excludeFile;
    removeAbandonedVersions(file);
    struct stat status {};
    auto text =
        lstat(file.c_str(), &status) == 0 && S_ISREG(status.st_mode) ? readStoredFile(file) : std::nullopt;
    const auto begin = text ? text->find(begin_) : std::string::npos;
    const auto end = begin == std::string::npos ? begin : text->find(end_, begin);
    if (end == std::string::npos) {
        return;
    }
    const bool wasMade =
        text->compare(begin + begin_.size(), std::string_view(madeMark).size(), madeMark) == 0;
    text->erase(begin, end + end_.size() - begin);
    try {
        if (wasMade && text->empty()) {
            unlink(file.c_str());
        } else {
            replace(file, *text);
        }
    } catch (const std::system_error&) {
        traceCaught("redirects", "git still ignores what is gone");
    }
}

} // namespace ramdisk
