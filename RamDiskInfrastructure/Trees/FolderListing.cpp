#include "RamDiskInfrastructure/Trees/FolderListing.h"

#include "RamDiskInfrastructure/Commands/SystemCallError.h"

#include <algorithm>
#include <array>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

namespace ramdisk {

namespace {

unsigned char kindOf(int folder, const dirent64& entry) {
    struct stat status {};
    const bool isFolder =
        entry.d_type == DT_UNKNOWN
        && ::fstatat(folder, entry.d_name, &status, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT) == 0
        && S_ISDIR(status.st_mode);
    return isFolder ? static_cast<unsigned char>(DT_DIR) : entry.d_type;
}

} // namespace

FolderListing FolderListing::of(int folder) {
    alignas(dirent64) std::array<char, 32768> buffer;
    FolderListing listing;
    while (true) {
        const auto length = ::getdents64(folder, buffer.data(), buffer.size());
        if (length < 0 && errno != ENOENT) {
            throw SystemCallError("read");
        }
        if (length <= 0) {
            break;
        }
        for (std::size_t place = 0; place < static_cast<std::size_t>(length);) {
            const auto* entry = reinterpret_cast<const dirent64*>(buffer.data() + place);
            const std::string_view name(entry->d_name);
            if (name != "." && name != "..") {
                listing.entries.push_back({static_cast<std::uint32_t>(listing.names.size()),
                                           static_cast<std::uint32_t>(name.size()), kindOf(folder, *entry)});
                listing.names.append(name);
            }
            place += entry->d_reclen;
        }
    }
    auto& entries = listing.entries;
    std::sort(entries.begin(), entries.end(), [&](const Entry& left, const Entry& right) {
        return listing.name(left) < listing.name(right);
    });
    // A folder that changes meanwhile may tell a name twice.
    const auto isSame = [&](const Entry& left, const Entry& right) {
        return listing.name(left) == listing.name(right);
    };
    entries.erase(std::unique(entries.begin(), entries.end(), isSame), entries.end());
    return listing;
}

} // namespace ramdisk
