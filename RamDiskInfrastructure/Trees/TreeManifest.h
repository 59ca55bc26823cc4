#pragma once

#include "RamDiskCore/Ports/TransferProgress.h"
#include "RamDiskInfrastructure/Commands/FileDescriptor.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace ramdisk {

class WriteWatch;

/// Everything about a tree of files that is needed to tell what changed in it: the metadata of every item,
/// and hashes of the contents of every file, block by block.
///
/// Contents decide what changed, not dates: a program that writes through a shared mapping changes neither
/// the change date nor the modification date of a file on tmpfs.
class TreeManifest {
public:
    /// Reads the whole tree below the open folder `root`, including the root. Follows no link and enters no
    /// other mounted volume. An item that vanishes meanwhile is left out.
    /// @throws SystemCallError with the item, when one cannot be read.
    [[nodiscard]] static TreeManifest scan(const FileDescriptor& root, const ProgressObserver& observer);
    /// The same for a watched tree, so that it can be scanned again.
    [[nodiscard]] static TreeManifest scan(WriteWatch& watch, const ProgressObserver& observer);
    /// The same, but skips the files that provably nobody wrote to since `earlier`, a scan with this watch.
    [[nodiscard]] static TreeManifest scanAgain(WriteWatch& watch, const TreeManifest& earlier,
                                                const ProgressObserver& observer);

    TreeManifest();
    ~TreeManifest();
    TreeManifest(TreeManifest&&) noexcept;
    TreeManifest& operator=(TreeManifest&&) noexcept;

    /// @throws SystemCallError
    void write(const FileDescriptor& file) const;
    /// Reads what `write` wrote. Absent for anything else, and when it is damaged or cut short.
    [[nodiscard]] static std::optional<TreeManifest> read(const FileDescriptor& file);

    /// How many items there are, without the root.
    [[nodiscard]] std::uint64_t itemCount() const noexcept;
    /// How many bytes of contents the files hold. Holes are not counted, and a file with several names is
    /// counted once.
    [[nodiscard]] std::uint64_t byteCount() const noexcept;
    /// The first two paths in one folder that are the same for a volume that ignores letter case.
    [[nodiscard]] std::optional<std::string> firstNameClash() const;
    /// The first item in which the trees differ, and how. Absent when they are the same.
    [[nodiscard]] std::optional<std::string> firstDifference(const TreeManifest& other) const;

    /// The parts of the manifest, for code that works on trees.
    struct Contents;
    [[nodiscard]] const Contents& contents() const noexcept { return *contents_; }
    [[nodiscard]] Contents& contents() noexcept { return *contents_; }

private:
    std::unique_ptr<Contents> contents_;
};

} // namespace ramdisk
