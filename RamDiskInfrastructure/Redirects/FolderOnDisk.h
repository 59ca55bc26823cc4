#pragma once

#include <filesystem>
#include <string>

#include <sys/types.h>

/// The folders that tools get on a disk. All lie in one folder of the disk. So they never collide with a
/// folder of the user's, and a path alone shows that this system wrote it, even long after the disk is gone.
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

/// Whether `folderOnDisk` made this path for this name, on any disk.
[[nodiscard]] bool isFolderOnDisk(const std::filesystem::path& path, const std::string& name);

/// Whether the folder exists and is not a link.
[[nodiscard]] bool existsOnDisk(const std::filesystem::path& mountPoint, const std::string& name);

/// Makes the folder and gives it that access. If it exists, its contents stay.
/// @throws SystemCallError; std::runtime_error when the disk cannot keep other users out although the access
///         demands it.
void makeFolderOnDisk(const std::filesystem::path& mountPoint, const std::string& name,
                      const FolderAccess& access);

/// Removes the folder with everything in it. Other users' folders and other file systems stay.
/// @returns false when there is none.
/// @throws SystemCallError with part of it removed.
bool removeFolderOnDisk(const std::filesystem::path& mountPoint, const std::string& name);

/// Access for the owner of the home folder alone.
/// @throws SystemCallError
[[nodiscard]] FolderAccess privateAccessOfOwner(const std::filesystem::path& home);

} // namespace ramdisk
