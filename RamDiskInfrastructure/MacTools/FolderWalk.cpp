#include "RamDiskInfrastructure/MacTools/FolderWalk.h"

#include "RamDiskInfrastructure/Commands/FileDescriptor.h"
#include "RamDiskInfrastructure/Commands/SystemCallError.h"

#include <algorithm>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <dirent.h>
#include <fcntl.h>

namespace ramdisk {

namespace {

bool hasVanished(int error) {
    return error == ENOENT || error == ENOTDIR || error == ELOOP;
}

std::vector<std::string> namesIn(const FileDescriptor& folder, const std::filesystem::path& path) {
    auto own = openFolder(folder.get(), ".");
    struct Close {
        void operator()(DIR* list) const noexcept { ::closedir(list); }
    };
    const std::unique_ptr<DIR, Close> list(own ? ::fdopendir(own.get()) : nullptr);
    if (!list) {
        throw SystemCallError("read the folder", path);
    }
    static_cast<void>(own.release());
    std::vector<std::string> names;
    errno = 0;
    while (const auto* entry = ::readdir(list.get())) {
        const std::string_view name(&entry->d_name[0]);
        if (name != "." && name != "..") {
            names.emplace_back(name);
        }
        errno = 0;
    }
    if (errno != 0) {
        throw SystemCallError("read the folder", path);
    }
    std::sort(names.begin(), names.end());
    return names;
}

class Walk {
public:
    Walk(const std::filesystem::path& root, const FolderVisitor& visitor) : root_(root), visitor_(visitor) {}

    void below(const FileDescriptor& folder, dev_t volume, const std::filesystem::path& path) const {
        for (const auto& name : namesIn(folder, root_ / path)) {
            struct stat status {};
            if (::fstatat(folder.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
                if (hasVanished(errno)) {
                    continue;
                }
                throw SystemCallError("read", root_ / path / name);
            }
            if (!visitor_(path / name, status) || !S_ISDIR(status.st_mode) || status.st_dev != volume) {
                continue;
            }
            const auto inner = openFolder(folder.get(), name.c_str());
            if (inner) {
                below(inner, volume, path / name);
            } else if (!hasVanished(errno)) {
                throw SystemCallError("read the folder", root_ / path / name);
            }
        }
    }

private:
    const std::filesystem::path& root_;
    const FolderVisitor& visitor_;
};

} // namespace

void walkFolder(const std::filesystem::path& root, const FolderVisitor& visitor) {
    const FileDescriptor folder(::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    struct stat status {};
    if (!folder || ::fstat(folder.get(), &status) != 0) {
        throw SystemCallError("read the folder", root);
    }
    Walk(root, visitor).below(folder, status.st_dev, {});
}

} // namespace ramdisk
