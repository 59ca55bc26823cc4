#include "RamDiskInfrastructure/Redirects/FolderUse.h"

#include <sys/stat.h>

namespace ramdisk {

FolderUse useOfFolder(const std::filesystem::path& folder, std::size_t limit) {
    constexpr std::uint64_t blockSize = 512;
    FolderUse use;
    std::error_code error;
    std::filesystem::recursive_directory_iterator entries(folder, error);
    for (const std::filesystem::recursive_directory_iterator end; !error && entries != end;
         entries.increment(error)) {
        if (limit-- == 0) {
            use.isMore = true;
            return use;
        }
        struct stat status {};
        if (lstat(entries->path().c_str(), &status) == 0) {
            use.bytes.bytes += static_cast<std::uint64_t>(status.st_blocks) * blockSize;
        }
    }
    use.isMore = static_cast<bool>(error);
    return use;
}

} // namespace ramdisk
