#pragma once

#include <filesystem>
#include <string>

#include <sys/types.h>

/// The folders that tools are given on a disk. They lie together in one folder of it, so that they never meet
/// a folder of the user's, and so that a path alone tells that we wrote it, long after the disk is gone.
namespace ramdisk {

/// Who may use a folder.
struct FolderAccess {
    mode_t mode = 0700;
    uid_t owner = 0;
    gid_t group = 0;
};

/// Where a tool's folder lies on the disk that is mounted at `mountPoint`.
[[nodiscard]] std::filesystem::path folderOnDisk(const std::filesystem::path& mountPoint,
                                                 const std::string& name);

/// Whether this path was made by `folderOnDisk` for this name, on whatever disk.
[[nodiscard]] bool isFolderOnDisk(const std::filesystem::path& path, const std::string& name);

/// Whether there is such a folder, and no link in its place.
[[nodiscard]] bool existsOnDisk(const std::filesystem::path& mountPoint, const std::string& name);

/// Makes the folder, or takes the one that is there with all that it holds, and gives it that access.
/// @throws SystemCallError; std::runtime_error when the disk cannot keep others out who are to be kept out.
void makeFolderOnDisk(const std::filesystem::path& mountPoint, const std::string& name,
                      const FolderAccess& access);

/// Who may use the home folder, as owner of what is made in it.
/// @throws SystemCallError
[[nodiscard]] FolderAccess privateAccessOfOwner(const std::filesystem::path& home);

} // namespace ramdisk
