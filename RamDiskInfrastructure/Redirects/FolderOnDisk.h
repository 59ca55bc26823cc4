#pragma once

#include "RamDiskInfrastructure/Commands/FileDescriptor.h"

#include <filesystem>
#include <optional>
#include <string>

#include <sys/stat.h>
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

[[nodiscard]] FolderAccess accessOf(const struct stat& status);

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

/// The folder on the disk, open; no descriptor when there is none.
[[nodiscard]] FileDescriptor openOnDisk(const std::filesystem::path& mountPoint, const std::string& name);

/// Removes the folder with everything in it, and what was left of an earlier try. It loses its name first, so
/// that half of it is never taken for the whole. Other file systems stay, and what is not `owner`'s if root
/// acts for that user.
/// @returns false when there is none.
/// @throws SystemCallError with part of it removed.
bool removeFolderOnDisk(const std::filesystem::path& mountPoint, const std::string& name, uid_t owner);

/// Removes the folder, and the one that holds all of them, if there is nothing in them.
void removeEmptyFolderOnDisk(const std::filesystem::path& mountPoint, const std::string& name) noexcept;

/// Gives the folder another name, unless there is one of that name already.
/// @returns 0 or the errno.
[[nodiscard]] int renameFolderOnDisk(const std::filesystem::path& mountPoint, const std::string& from,
                                     const std::string& to) noexcept;

/// Removes the folder `name` in `parent` with everything in it; follows neither links nor mounts.
/// @returns false when there is none.
/// @throws SystemCallError with part of it removed.
bool removeFolderIn(const FileDescriptor& parent, const std::string& name, const std::filesystem::path& path);

/// Whether there is anything but folders in the folder.
[[nodiscard]] bool holdsFiles(const std::filesystem::path& folder);

/// A folder in this one, however deep, that is on another file system. Absent when there is none.
[[nodiscard]] std::optional<std::filesystem::path> otherFileSystemIn(const std::filesystem::path& folder);

/// Access for the owner of the home folder alone.
/// @throws SystemCallError
[[nodiscard]] FolderAccess privateAccessOfOwner(const std::filesystem::path& home);

} // namespace ramdisk
