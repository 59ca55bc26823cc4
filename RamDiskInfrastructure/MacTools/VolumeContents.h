#pragma once

#include "RamDiskCore/Ports/CommandRunning.h"
#include "RamDiskCore/Ports/TransferProgress.h"

#include <chrono>
#include <filesystem>
#include <map>
#include <optional>
#include <utility>

namespace ramdisk {

/// The users' files on a mounted volume. Left out are the root folder itself, whose mark belongs to the
/// volume, and what macOS keeps for itself there (search index, change log, trash), which mostly nobody else
/// may read. No link is followed.
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

    /// Copies the items with all their metadata. Folders of one name are merged; anything else of the same
    /// name is replaced. Sockets and device nodes are left out.
    /// @throws CommandFailure, SystemCallError
    void copyFrom(const VolumeContents& source, CommandRunning& runner,
                  const ProgressObserver& observer) const;

    /// @throws std::filesystem::filesystem_error
    void removeAll() const;

    /// The first item that differs in kind or content from that in `other`, or exists in only one of them.
    /// @throws SystemCallError
    [[nodiscard]] std::optional<std::filesystem::path> firstDifference(const VolumeContents& other) const;

    /// Whether the volume ignores letter case in names. This is tried with an item of our own or, if none can
    /// be made, with one that exists. False when neither can tell.
    [[nodiscard]] bool mergesNames() const;

    /// Whether there are items here whose names would be one name on `target`.
    /// @throws SystemCallError
    [[nodiscard]] bool hasNamesMergedOn(const VolumeContents& target) const;

private:
    std::filesystem::path root_;
};

} // namespace ramdisk
