#include "RamDiskInfrastructure/Redirects/NpmCacheRedirector.h"

#include "RamDiskCore/Values/Text.h"
#include "RamDiskInfrastructure/Commands/SystemCallError.h"
#include "RamDiskInfrastructure/Redirects/FolderOnDisk.h"
#include "RamDiskInfrastructure/Redirects/HomeTree.h"
#include "RamDiskInfrastructure/Redirects/NpmConfiguration.h"
#include "RamDiskInfrastructure/Stores/StoredFile.h"

#include <cerrno>
#include <stdexcept>
#include <utility>

#include <sys/stat.h>
#include <unistd.h>

namespace ramdisk {

namespace {

constexpr const char* fileName = ".npmrc";

std::optional<struct stat> lookAt(const std::filesystem::path& file) {
    struct stat status {};
    if (stat(file.c_str(), &status) == 0) {
        return status;
    }
    if (errno == ENOENT) {
        return std::nullopt;
    }
    throw SystemCallError("look at", file);
}

/// Absent when there is no file.
std::optional<std::string> contentOf(const std::filesystem::path& file) {
    if (!lookAt(file)) {
        return std::nullopt;
    }
    auto content = readStoredFile(file);
    if (!content) {
        throw SystemCallError("read", file, EACCES);
    }
    return content;
}

/// Replaces the file, unless somebody changed it since `former` was read.
void replace(const std::filesystem::path& file, const std::optional<std::string>& former,
             std::string_view content, const StepObserver& observer) {
    PreparedFile prepared(file, content);
    prepared.takeAccessOfFormer();
    if (contentOf(file) != former) {
        throw std::runtime_error("“~/.npmrc” was changed at the same moment. Try again.");
    }
    tell(observer, "put the new version in its place");
    prepared.takePlace();
}

LineChoice isOurs(const std::string& name) {
    return [name](std::string_view line) { return isFolderOnDisk(folderInLine(line), name); };
}

} // namespace

NpmCacheRedirector::NpmCacheRedirector(std::filesystem::path home, StepObserver observer)
    : home_(std::move(home)),
      observer_(std::move(observer)) {}

std::filesystem::path NpmCacheRedirector::file() const {
    const auto link = home_ / fileName;
    struct stat status {};
    if (lstat(link.c_str(), &status) != 0) {
        if (errno == ENOENT) {
            return link;
        }
        throw SystemCallError("look at", link);
    }
    std::error_code error;
    auto file = std::filesystem::canonical(link, error);
    if (error || !std::filesystem::is_regular_file(file)) {
        throw std::runtime_error("“~/.npmrc” is not a file, or a link to nothing.");
    }
    if (!isInside(file, std::filesystem::canonical(home_))) {
        throw std::runtime_error("“~/.npmrc” is a link that leads out of the home folder.");
    }
    return file;
}

RedirectRestoreState NpmCacheRedirector::apply(const RedirectDestination& destination,
                                               const FolderRedirecting::Record& record) const {
    const auto target = file();
    const auto content = contentOf(target);
    auto former = cacheLine(content.value_or(""));
    if (former && isOurs(destination.name)(*former)) {
        // Left behind by a redirect that no list knows any more: nobody wants it back.
        former.reset();
    }
    if (former && replacingInvalidUTF8(*former) != *former) {
        throw std::runtime_error(
            "The cache line of “~/.npmrc” is not UTF-8, so it could not be kept to be put back.");
    }
    const auto line = lineFor(folderOnDisk(destination.mountPoint, destination.name));
    tell(observer_, "make the folder on the disk");
    makeFolderOnDisk(destination.mountPoint, destination.name, privateAccessOfOwner(home_));
    const RedirectRestoreState state{RedirectRestoreState::ConfigLine{former}};
    record(state);
    tell(observer_, "write the line");
    replace(target, content, withCacheLine(content, line), observer_);
    return state;
}

void NpmCacheRedirector::undo(const std::string& name, const RedirectRestoreState::ConfigLine& former) const {
    const auto target = file();
    removeAbandonedVersions(target);
    const auto content = contentOf(target);
    const auto ours = isOurs(name);
    if (!cacheLine(content.value_or(""), ours)) {
        // The user has a line of his own, or wants none.
        return;
    }
    tell(observer_, "put the line back");
    // A user may have copied our line; one is as much in his way as the other.
    auto single = *content;
    for (auto fewer = withoutCacheLine(single, ours); fewer && cacheLine(*fewer, ours);
         fewer = withoutCacheLine(single, ours)) {
        single = *fewer;
    }
    if (former.line) {
        replace(target, content, withCacheLine(single, *former.line, ours), observer_);
    } else if (const auto rest = withoutCacheLine(single, ours)) {
        replace(target, content, *rest, observer_);
    } else if (unlink(target.c_str()) != 0 && errno != ENOENT) {
        throw SystemCallError("remove", target);
    }
}

std::optional<std::filesystem::path> NpmCacheRedirector::standing(const std::string& name) const {
    const auto line = cacheLine(contentOf(file()).value_or(""), isOurs(name));
    return line ? std::optional<std::filesystem::path>(folderInLine(*line)) : std::nullopt;
}

bool NpmCacheRedirector::isInForce(const RedirectDestination& destination) const {
    const auto line = cacheLine(contentOf(file()).value_or(""));
    return line && existsOnDisk(destination.mountPoint, destination.name)
           && folderInLine(*line) == folderOnDisk(destination.mountPoint, destination.name);
}

} // namespace ramdisk
