#include "RamDiskInfrastructure/Linux/Volumes/IndexingMarkers.h"

#include "RamDiskInfrastructure/Commands/FileDescriptor.h"
#include "RamDiskInfrastructure/Commands/SystemCallError.h"
#include "RamDiskInfrastructure/Linux/Host/SmallFile.h"

#include <fmt/format.h>

#include <algorithm>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace ramdisk {

void MarkerFileIndexController::set(SearchIndexing indexing, const std::filesystem::path& volume) {
    const auto root = requireFolder(volume);
    struct stat status {};
    if (fstat(root.get(), &status) != 0) {
        throw SystemCallError("open", volume);
    }
    for (const auto marker : indexingMarkers) {
        if (indexing == SearchIndexing::on) {
            if (unlinkat(root.get(), marker.data(), 0) != 0 && errno != ENOENT) {
                throw SystemCallError("remove", volume / marker);
            }
            continue;
        }
        const FileDescriptor file(
            openat(root.get(), marker.data(), O_WRONLY | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0644));
        // The volume's owner must be able to switch it on again.
        if (!file || (status.st_uid != geteuid() && fchown(file.get(), status.st_uid, status.st_gid) != 0)) {
            throw SystemCallError("write", volume / marker);
        }
    }
}

std::optional<SearchIndexing> MarkerFileIndexController::state(const std::filesystem::path& volume) {
    struct stat status {};
    if (lstat(volume.c_str(), &status) != 0) {
        throw SystemCallError("look at", volume);
    }
    const auto count =
        std::count_if(indexingMarkers.begin(), indexingMarkers.end(), [&](std::string_view marker) {
            return lstat((volume / marker).c_str(), &status) == 0;
        });
    if (count == 0) {
        return SearchIndexing::on;
    }
    return count == static_cast<std::ptrdiff_t>(indexingMarkers.size()) ? std::optional(SearchIndexing::off)
                                                                        : std::nullopt;
}

std::vector<std::string> MarkerFileIndexController::plan(SearchIndexing indexing) const {
    return {fmt::format("{} {} on the volume", indexing == SearchIndexing::off ? "write" : "remove",
                        fmt::format("{} and {}", indexingMarkers[0], indexingMarkers[1]))};
}

} // namespace ramdisk
