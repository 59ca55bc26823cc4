#pragma once

#include "RamDiskCore/Ports/TransferProgress.h"
#include "RamDiskInfrastructure/Commands/FileDescriptor.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace ramdisk {

class WriteWatch;

/// Everything that is to be known of a tree of files to tell what changed in it: for every item its metadata,
/// for every file also hashes of its contents, block by block.
///
/// What changed is told by content and not by dates: a program that writes through a shared mapping changes
/// neither the change date nor the modification date of a file on tmpfs.
class TreeManifest {
public:
    /// Reads the whole tree below the open folder `root`, the root itself included. No link is followed and
    /// no other mounted volume entered; an item that vanishes meanwhile is left out.
    /// @throws SystemCallError naming the item, when one cannot be read.
    [[nodiscard]] static TreeManifest scan(const FileDescriptor& root, const ProgressObserver& observer);
    /// The same of the tree that is being watched, so that it can be scanned again.
    [[nodiscard]] static TreeManifest scan(WriteWatch& watch, const ProgressObserver& observer);
    /// The same, but the files that provably nobody wrote to since `earlier`, a scan made by this watch, are
    /// not read.
    [[nodiscard]] static TreeManifest scanAgain(WriteWatch& watch, const TreeManifest& earlier,
                                                const ProgressObserver& observer);

    TreeManifest();
    ~TreeManifest();
    TreeManifest(TreeManifest&&) noexcept;
    TreeManifest& operator=(TreeManifest&&) noexcept;

    /// @throws SystemCallError
    void write(const FileDescriptor& file) const;
    /// Reads what `write` wrote. Absent for anything else, damaged or cut short included.
    [[nodiscard]] static std::optional<TreeManifest> read(const FileDescriptor& file);

    /// How many items there are, the root not counted.
    [[nodiscard]] std::uint64_t itemCount() const noexcept;
    /// How many bytes of contents the files hold, holes not counted and files of several names once.
    [[nodiscard]] std::uint64_t byteCount() const noexcept;
    /// The first two paths of one folder that a volume which ignores letter case would take for one another.
    [[nodiscard]] std::optional<std::string> firstNameClash() const;
    /// Tells the first item in which the trees differ and how; absent when they are the same.
    [[nodiscard]] std::optional<std::string> firstDifference(const TreeManifest& other) const;

    /// What the manifest is made of, for those who work on trees.
    struct Contents;
    [[nodiscard]] const Contents& contents() const noexcept { return *contents_; }
    [[nodiscard]] Contents& contents() noexcept { return *contents_; }

private:
    std::unique_ptr<Contents> contents_;
};

} // namespace ramdisk
