#include "RamDiskInfrastructure/Stores/StoredFile.h"

#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskInfrastructure/Commands/SystemCallError.h"
#include "RamDiskInfrastructure/Stores/FlushToDisk.h"
#include "RamDiskInfrastructure/Stores/StoreFiles.h"

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

std::string preparedName(const std::filesystem::path& target) {
    static std::atomic<std::uint64_t> count{0};
    return fmt::format("{}{}-{}{}", preparedPrefix(target), getpid(), count++, preparedSuffix);
}

/// The folder of a file that is written.
FileDescriptor requireFolderOf(const std::filesystem::path& target) {
    auto folder = openStoreFolder(target.parent_path());
    if (!folder) {
        throw SystemCallError("write", target);
    }
    return folder;
}

/// Creates and locks a version. Whoever clears up may remove it between the two; then another one is made.
FileDescriptor createPrepared(const std::filesystem::path& target, const FileDescriptor& folder,
                              std::string& temporary) {
    for (;;) {
        temporary = preparedName(target);
        FileDescriptor file(openat(folder.get(), temporary.c_str(),
                                   O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, fileMode));
        if (!file && errno != EEXIST && errno != EINTR) {
            throw SystemCallError("write", target.parent_path() / temporary);
        }
        struct stat status {};
        if (file && flock(file.get(), LOCK_EX | LOCK_NB) == 0 && fstat(file.get(), &status) == 0
            && status.st_nlink != 0) {
            giveToOwnerOf(folder, file);
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

void flush(const FileDescriptor& folder, const std::filesystem::path& path) {
    const int error = folder ? flushToDisk(folder) : errno;
    // Some file systems know no such thing as flushing a folder.
    if (error != 0 && error != EINVAL) {
        throw SystemCallError("flush the folder", path, error);
    }
}

void removeIfAbandoned(const std::filesystem::path& path) {
    const auto file = stored::open(path, O_RDONLY | O_NONBLOCK);
    struct stat held {};
    struct stat named {};
    // Its writer may have put it in its place between the two calls; the name is then nobody's, or another's.
    if (file && flock(file.get(), LOCK_EX | LOCK_NB) == 0 && fstat(file.get(), &held) == 0
        && stored::status(path, named) == 0 && held.st_ino == named.st_ino && stored::remove(path) == 0) {
        trace("stores", "removed {}, whose writer is gone", path.native());
    }
}

} // namespace

std::optional<std::string> readStoredFile(const std::filesystem::path& path) {
    const auto folder = openStoreFolder(path.parent_path());
    // What root finds in another user's folder may be that user's link to a file that only root may read.
    const int follow = geteuid() == 0 ? O_NOFOLLOW : 0;
    const FileDescriptor file(
        folder ? openat(folder.get(), path.filename().c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | follow)
               : -1);
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

void flushFolder(const std::filesystem::path& folder) {
    flush(openStoreFolder(folder), folder);
}

PreparedFile::PreparedFile(std::filesystem::path target, std::string_view content)
    : target_(std::move(target)),
      folder_(requireFolderOf(target_)),
      file_(createPrepared(target_, folder_, temporary_)) {
    int error = writeWhole(file_, content);
    if (error == 0) {
        error = flushToDisk(file_);
    }
    if (error != 0) {
        unlinkat(folder_.get(), temporary_.c_str(), 0);
        throw SystemCallError("write", target_, error);
    }
}

PreparedFile::~PreparedFile() {
    if (!temporary_.empty()) {
        unlinkat(folder_.get(), temporary_.c_str(), 0);
    }
}

void PreparedFile::takeAccessOfFormer() {
    constexpr mode_t allModes = 07777;
    struct stat former {};
    struct stat made {};
    if (fstatat(folder_.get(), target_.filename().c_str(), &former, AT_SYMLINK_NOFOLLOW) != 0
        && errno == ENOENT) {
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
    if (renameat(folder_.get(), temporary_.c_str(), folder_.get(), target_.filename().c_str()) != 0) {
        throw SystemCallError("replace", target_);
    }
    temporary_.clear();
    flush(folder_, target_.parent_path());
}

void removeAbandonedVersions(const std::filesystem::path& target) noexcept {
    try {
        const auto prefix = preparedPrefix(target);
        for (const auto& entry : stored::entries(target.parent_path())) {
            const auto name = entry.filename().string();
            if (name.starts_with(prefix) && name.ends_with(preparedSuffix)) {
                removeIfAbandoned(entry);
            }
        }
    } catch (const std::exception&) {
        traceCaught("stores", "nothing is tidied up there");
    }
}

} // namespace ramdisk
