#pragma once

#include "RamDiskCore/Ports/CommandRunning.h"
#include "RamDiskCore/Ports/TransferProgress.h"

#include <chrono>
#include <filesystem>
#include <map>
#include <optional>
#include <utility>

namespace ramdisk {

/// The users' files on a mounted volume: everything on it but what macOS keeps for itself in its root folder
/// (search index, change log, trash), which mostly nobody else may read, and the root folder itself, whose
/// mark belongs to the volume. No link is followed.
class VolumeContents {
public:
    /// What of an item tells whether it changed.
    struct FileStatus {
        std::chrono::sys_time<std::chrono::nanoseconds> changed;
        bool isFolder = false;

        friend bool operator==(const FileStatus&, const FileStatus&) = default;
    };
    using Status = std::map<std::filesystem::path, FileStatus>;

    explicit VolumeContents(std::filesystem::path root) : root_(std::move(root)) {}

    /// Every item by its path below the root.
    /// @throws SystemCallError
    [[nodiscard]] Status status() const;

    /// Copies the items with all their metadata; folders of one name are merged, anything else of the same
    /// name is replaced. Sockets and device nodes are left out.
    /// @throws CommandFailure, SystemCallError
    void copyFrom(const VolumeContents& source, CommandRunning& runner,
                  const ProgressObserver& observer) const;

    /// @throws std::filesystem::filesystem_error
    void removeAll() const;

    /// The first item that is not of the same kind or content in `other`, or is in one of them only.
    /// @throws SystemCallError
    [[nodiscard]] std::optional<std::filesystem::path> firstDifference(const VolumeContents& other) const;

    /// Whether the volume takes names that differ only in letter case for one name. Tried with an item of our
    /// own, or where none can be made, with one that is there; false when neither can tell.
    [[nodiscard]] bool mergesNames() const;

    /// Whether there are items here which `target` could not hold beside each other.
    /// @throws SystemCallError
    [[nodiscard]] bool hasNamesMergedOn(const VolumeContents& target) const;

private:
    std::filesystem::path root_;
};

} // namespace ramdisk
