#pragma once

#include "RamDiskInfrastructure/Commands/FileDescriptor.h"

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include <sys/types.h>

/// Small files that are read whole and replaced whole.
namespace ramdisk {

/// The whole of a regular file; absent when there is none or it cannot be read. Never waits, whatever stands
/// under the name.
[[nodiscard]] std::optional<std::string> readStoredFile(const std::filesystem::path& path);

/// Makes the folder and its parents where they are missing, for their owner alone where no other mode is
/// given. Below the home of the user behind sudo they are that user's.
/// @throws std::system_error
void makeFolders(const std::filesystem::path& folder, mode_t mode = 0700);

/// Waits until the names in a folder would survive a power cut, where the file system can promise that.
/// @throws std::system_error
void flushFolder(const std::filesystem::path& folder);

/// A new version of a file, complete and safe on the disk, but not yet in its place.
///
/// It lies beside the file under a name of its own and is locked while this value lives, which is how the
/// leftover of a killed process is told from work under way. It disappears with this value unless it took its
/// place.
class PreparedFile {
public:
    /// Writes `content` and waits until it would survive a power cut.
    /// @throws std::system_error with nothing left behind and the file as it was.
    PreparedFile(std::filesystem::path target, std::string_view content);
    PreparedFile(const PreparedFile&) = delete;
    PreparedFile& operator=(const PreparedFile&) = delete;
    ~PreparedFile();

    /// Gives the new version the owner and the mode of the file that it is to replace, where there is one.
    /// @throws std::system_error when that cannot be; others must not read what they could not read before.
    void takeAccessOfFormer();

    /// Replaces the file at once: readers see the old content or the new one, also after a power cut.
    /// @throws std::system_error
    void takePlace();

private:
    std::filesystem::path target_;
    std::filesystem::path temporary_;
    FileDescriptor file_;
};

/// Removes what killed processes prepared for `target` and left behind.
void removeAbandonedVersions(const std::filesystem::path& target) noexcept;

/// When root made `made` in somebody else's folder, hands it to that user, who would be locked out otherwise.
/// Only for what the caller just created himself.
void giveToOwnerOf(const std::filesystem::path& folder, const FileDescriptor& made) noexcept;

} // namespace ramdisk
