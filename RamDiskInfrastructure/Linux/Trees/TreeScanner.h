#pragma once

#include "RamDiskInfrastructure/Linux/Trees/FolderCursor.h"

#include <map>
#include <string>
#include <utility>
#include <vector>

#include <sys/types.h>

namespace ramdisk {

/// Walks a tree and notes every item with its metadata; the contents of files are not yet read, nor the
/// attributes of those that have contents. Sockets are left out, other mounted volumes kept as empty folders.
class TreeScanner {
public:
    explicit TreeScanner(const FileDescriptor& root) : root_(root), cursor_(root, tree_) {}

    /// @throws SystemCallError naming the item that cannot be read
    [[nodiscard]] TreeManifest::Contents scan();

private:
    struct Inode {
        dev_t device;
        ino_t number;
        auto operator<=>(const Inode&) const = default;
    };

    void readFolder(std::uint32_t folder);
    void noteRoot();
    /// Adds the item; false when it is gone or left out.
    bool note(int folder, std::uint32_t parent, const std::string& name);
    void noteAttributes(int folder, std::uint32_t item);

    const FileDescriptor& root_;
    TreeManifest::Contents tree_;
    FolderCursor cursor_;
    std::vector<std::uint32_t> foldersToRead_;
    std::vector<bool> gone_;
    std::map<Inode, std::uint32_t> originals_;
    dev_t volume_ = 0;
};

/// Takes items out of the tree, and what lies in them. Where the first name of a file goes, the next one
/// takes its place.
void removeItems(TreeManifest::Contents& tree, const std::vector<bool>& gone);

} // namespace ramdisk
