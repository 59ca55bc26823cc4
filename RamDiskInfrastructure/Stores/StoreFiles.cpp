#include "RamDiskInfrastructure/Stores/StoreFiles.h"

#include "RamDiskInfrastructure/Commands/SystemCallError.h"
#include "RamDiskInfrastructure/Stores/StoreFolder.h"

#include <cstdio>
#include <memory>
#include <string_view>

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

namespace ramdisk::stored {

namespace {

using std::filesystem::path;

/// A name in an open folder.
struct Place {
    explicit Place(const path& file) : folder(openStoreFolder(file.parent_path())), name(file.filename()) {}

    FileDescriptor folder;
    path name;
};

/// Runs `call` when both folders could be opened.
template <typename Call>
int between(const path& from, const path& to, const Call& call) {
    const Place source(from);
    if (!source.folder) {
        return -1;
    }
    const Place target(to);
    return target.folder ? call(source, target) : -1;
}

} // namespace

FileDescriptor open(const path& file, int flags, mode_t mode) {
    const Place place(file);
    return place.folder ? FileDescriptor(
               openat(place.folder.get(), place.name.c_str(), flags | O_NOFOLLOW | O_CLOEXEC, mode))
                        : FileDescriptor();
}

int status(const path& file, struct stat& status) {
    const Place place(file);
    return place.folder ? fstatat(place.folder.get(), place.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) : -1;
}

int rename(const path& from, const path& to) {
    return between(from, to, [](const Place& source, const Place& target) {
        return renameat(source.folder.get(), source.name.c_str(), target.folder.get(), target.name.c_str());
    });
}

int link(const path& file, const path& name) {
    return between(file, name, [](const Place& source, const Place& target) {
        return linkat(source.folder.get(), source.name.c_str(), target.folder.get(), target.name.c_str(), 0);
    });
}

int remove(const path& file) {
    const Place place(file);
    return place.folder ? unlinkat(place.folder.get(), place.name.c_str(), 0) : -1;
}

std::vector<path> entries(const path& folder) {
    auto open = openStoreFolder(folder);
    if (!open && errno == ENOENT) {
        return {};
    }
    const std::unique_ptr<DIR, int (*)(DIR*)> stream(open ? fdopendir(open.get()) : nullptr, closedir);
    if (!stream) {
        throw SystemCallError("look into", folder);
    }
    static_cast<void>(open.release());
    std::vector<path> found;
    for (errno = 0; const auto* entry = readdir(stream.get()); errno = 0) {
        const std::string_view name(static_cast<const char*>(entry->d_name));
        if (name != "." && name != "..") {
            found.push_back(folder / name);
        }
    }
    if (errno != 0) {
        throw SystemCallError("look into", folder);
    }
    return found;
}

} // namespace ramdisk::stored
