#pragma once

#include "RamDiskInfrastructure/Stores/StoreFolder.h"

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include <sys/types.h>

/// Small files that are read whole and replaced whole.
namespace ramdisk {

/// The whole content of a regular file. Absent when there is none or it cannot be read. Never waits, whatever
/// has the name.
/// @throws std::runtime_error as `openStoreFolder`.
[[nodiscard]] std::optional<std::string> readStoredFile(const std::filesystem::path& path);

/// Waits until the names in a folder would survive a power cut, if the file system can promise that.
/// @throws std::system_error
void flushFolder(const std::filesystem::path& folder);

/// A new version of a file, complete and safe on the disk, but not yet in its place.
///
/// It lies beside the file under a name of its own. It is locked while this object exists, which tells it
/// from what a killed process left. It is deleted with this object unless it took the file's place.
class PreparedFile {
public:
    /// Writes `content` and waits until it would survive a power cut.
    /// @throws std::system_error, or std::runtime_error as `openStoreFolder`, with nothing left behind and
    /// the
    ///         file as it was.
    PreparedFile(std::filesystem::path target, std::string_view content);
    PreparedFile(const PreparedFile&) = delete;
    PreparedFile& operator=(const PreparedFile&) = delete;
    ~PreparedFile();

    /// Gives the new version the owner and the mode of the file that it replaces, if there is one.
    /// @throws std::system_error when that fails, since nobody may read the new version who could not read
    ///         the old one.
    void takeAccessOfFormer();

    /// Replaces the file in one step. Readers see the old content or the new one, also after a power cut.
    /// @throws std::system_error
    void takePlace();

private:
    std::filesystem::path target_;
    /// In which it lies, whatever happens to the path.
    FileDescriptor folder_;
    /// Its name in there; empty once it took its place.
    std::string temporary_;
    FileDescriptor file_;
};

/// Removes what killed processes prepared for `target`.
void removeAbandonedVersions(const std::filesystem::path& target) noexcept;

} // namespace ramdisk
