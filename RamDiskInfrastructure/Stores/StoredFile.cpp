#include "RamDiskInfrastructure/Stores/StoredFile.h"

#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskInfrastructure/Commands/SystemCallError.h"
#include "RamDiskInfrastructure/Stores/FlushToDisk.h"

#include <fmt/format.h>

#include <atomic>
#include <cstdint>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

namespace ramdisk {

namespace {

constexpr mode_t fileMode = 0600;
constexpr std::string_view preparedSuffix = ".new";

std::string preparedPrefix(const std::filesystem::path& target) {
    return fmt::format(".{}.", target.filename().string());
}

std::filesystem::path preparedName(const std::filesystem::path& target) {
    static std::atomic<std::uint64_t> count{0};
    return target.parent_path()
           / fmt::format("{}{}-{}{}", preparedPrefix(target), getpid(), count++, preparedSuffix);
}

/// Creates and locks a version. Whoever clears up may remove it between the two; then another one is made.
FileDescriptor createPrepared(const std::filesystem::path& target, std::filesystem::path& temporary) {
    for (;;) {
        temporary = preparedName(target);
        FileDescriptor file(
            open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, fileMode));
        if (!file && errno != EEXIST && errno != EINTR) {
            throw SystemCallError("write", temporary);
        }
        struct stat status {};
        if (file && flock(file.get(), LOCK_EX | LOCK_NB) == 0 && fstat(file.get(), &status) == 0
            && status.st_nlink != 0) {
            giveToOwnerOf(target.parent_path(), file);
            return file;
        }
    }
}

int writeWhole(const FileDescriptor& file, std::string_view content) {
    while (!content.empty()) {
        const auto count = write(file.get(), content.data(), content.size());
        if (count < 0 && errno != EINTR) {
            return errno;
        }
        content.remove_prefix(count < 0 ? 0 : static_cast<std::size_t>(count));
    }
    return 0;
}

void removeIfAbandoned(const std::filesystem::path& path) noexcept {
    const FileDescriptor file(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat held {};
    struct stat named {};
    // Its writer may have put it in its place between the two calls; the name is then nobody's, or another's.
    if (file && flock(file.get(), LOCK_EX | LOCK_NB) == 0 && fstat(file.get(), &held) == 0
        && lstat(path.c_str(), &named) == 0 && held.st_ino == named.st_ino) {
        unlink(path.c_str());
        trace("stores", "removed {}, whose writer is gone", path.native());
    }
}

} // namespace

std::optional<std::string> readStoredFile(const std::filesystem::path& path) {
    const FileDescriptor file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    struct stat status {};
    if (!file || fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) {
        return std::nullopt;
    }
    std::string content(static_cast<std::size_t>(status.st_size), '\0');
    std::size_t filled = 0;
    while (filled < content.size()) {
        const auto count = read(file.get(), content.data() + filled, content.size() - filled);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            return std::nullopt;
        }
        if (count == 0) {
            break;
        }
        filled += static_cast<std::size_t>(count);
    }
    content.resize(filled);
    return content;
}

void makeFolders(const std::filesystem::path& folder, mode_t mode) {
    if (folder.empty() || mkdir(folder.c_str(), mode) == 0) {
        if (!folder.empty()) {
            giveToOwnerOf(folder.parent_path(), openFolder(AT_FDCWD, folder.c_str()));
        }
        return;
    }
    if (errno == ENOENT && folder.has_parent_path() && folder.parent_path() != folder) {
        makeFolders(folder.parent_path(), mode);
        makeFolders(folder, mode);
        return;
    }
    const int error = errno;
    struct stat status {};
    if (error != EEXIST || stat(folder.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) {
        throw SystemCallError("make the folder", folder, error);
    }
}

void flushFolder(const std::filesystem::path& folder) {
    const FileDescriptor opened(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const int error = opened ? flushToDisk(opened) : errno;
    // Some file systems know no such thing as flushing a folder.
    if (error != 0 && error != EINVAL) {
        throw SystemCallError("flush the folder", folder, error);
    }
}

PreparedFile::PreparedFile(std::filesystem::path target, std::string_view content)
    : target_(std::move(target)),
      file_(createPrepared(target_, temporary_)) {
    int error = writeWhole(file_, content);
    if (error == 0) {
        error = flushToDisk(file_);
    }
    if (error != 0) {
        unlink(temporary_.c_str());
        throw SystemCallError("write", target_, error);
    }
}

PreparedFile::~PreparedFile() {
    if (!temporary_.empty()) {
        unlink(temporary_.c_str());
    }
}

void PreparedFile::takeAccessOfFormer() {
    constexpr mode_t allModes = 07777;
    struct stat former {};
    struct stat made {};
    if (lstat(target_.c_str(), &former) != 0 && errno == ENOENT) {
        return;
    }
    if (fstat(file_.get(), &made) != 0
        || ((former.st_uid != made.st_uid || former.st_gid != made.st_gid)
            && fchown(file_.get(), former.st_uid, former.st_gid) != 0)
        || fchmod(file_.get(), former.st_mode & allModes) != 0) {
        throw SystemCallError("keep the access rights of", target_);
    }
}

void PreparedFile::takePlace() {
    if (rename(temporary_.c_str(), target_.c_str()) != 0) {
        throw SystemCallError("replace", target_);
    }
    temporary_.clear();
    flushFolder(target_.parent_path());
}

void removeAbandonedVersions(const std::filesystem::path& target) noexcept {
    const auto prefix = preparedPrefix(target);
    std::error_code error;
    for (std::filesystem::directory_iterator entry(target.parent_path(), error), end; !error && entry != end;
         entry.increment(error)) {
        const auto name = entry->path().filename().string();
        if (name.starts_with(prefix) && name.ends_with(preparedSuffix)) {
            removeIfAbandoned(entry->path());
        }
    }
}

void giveToOwnerOf(const std::filesystem::path& folder, const FileDescriptor& made) noexcept {
    struct stat status {};
    if (geteuid() == 0 && stat(folder.c_str(), &status) == 0 && status.st_uid != 0) {
        // The file is of use to root in any case.
        if (fchown(made.get(), status.st_uid, status.st_gid) != 0) {
            traceRefused("stores", "handing a file to its folder's owner", "it stays root's");
        }
    }
}

} // namespace ramdisk
