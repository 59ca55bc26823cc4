#pragma once

#include "RamDiskCore/Ports/FolderCopying.h"
#include "RamDiskInfrastructure/Redirects/HomeTree.h"
#include "RamDiskInfrastructure/Redirects/SymlinkFolderRedirector.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace ramdisk {

/// Copies a redirected folder to its disk and back, with modes and attributes. A copy has a name of its own
/// until it is complete.
class FolderCopies {
public:
    using Source = SymlinkFolderRedirector::Source;

    FolderCopies(std::filesystem::path home, std::vector<std::filesystem::path> reserved,
                 std::shared_ptr<FolderCopying> copier, StepObserver observer);

    /// As `FolderRedirecting::copyToDisk`. Without an original nothing is made.
    void toDisk(const Source& source, const std::filesystem::path& mountPoint) const;

    /// As `FolderRedirecting::copyFromDisk`.
    [[nodiscard]] std::optional<std::filesystem::path>
    fromDisk(const Source& source, const std::filesystem::path& mountPoint,
             const FolderRedirecting::Record& record) const;

    /// Removes a copy from the disk that a killed `fromDisk` left.
    /// @throws SystemCallError
    static void removeUnfinished(const OpenedFolder& parent, const UUID& redirect);

private:
    void copy(const FileDescriptor& from, const std::filesystem::path& fromPath, const FileDescriptor& to,
              const std::filesystem::path& toPath) const;
    /// The whole copy of a folder of the disk, under its hidden name.
    void copyHidden(const Source& source, const FileDescriptor& onDisk,
                    const std::filesystem::path& mountPoint, const OpenedFolder& parent) const;

    std::filesystem::path home_;
    std::vector<std::filesystem::path> reserved_;
    std::shared_ptr<FolderCopying> copier_;
    StepObserver observer_;
};

} // namespace ramdisk
