#pragma once

#include "RamDiskInfrastructure/Linux/Trees/FolderCursor.h"
#include "RamDiskInfrastructure/Linux/Trees/TreeComparison.h"
#include "RamDiskInfrastructure/Linux/Trees/WriteWatch.h"

#include <string>
#include <vector>

#include <sys/types.h>

namespace ramdisk {

/// Finds every item of a tree and notes its metadata; the contents of files are not yet read, nor the
/// attributes of those that have contents. Sockets are left out, other mounted volumes kept as empty folders.
///
/// The folders are walked by one thread, which takes the names and kinds of what is in them from the folders
/// alone. With the items numbered, several threads can look at them, each noting what it sees in its place.
class TreeScanner {
public:
    explicit TreeScanner(const FileDescriptor& root) : root_(root), cursor_(root, tree_) {}
    /// Scans the tree that is being watched, and finds the files that provably nobody wrote to since
    /// `earlier`, a scan by the same watch that noted who had writers.
    TreeScanner(WriteWatch& watch, const TreeManifest::Contents& earlier)
        : root_(watch.root()),
          cursor_(watch.root(), tree_),
          earlier_(&earlier),
          watch_(&watch) {}

    /// @throws SystemCallError naming the item that cannot be read
    [[nodiscard]] TreeManifest::Contents scan();

private:
    /// What is noted of an item until it can be put into the tree.
    struct Finding {
        bool isGone = false;
        bool hasOtherNames = false;
        std::string linkTarget;
        ItemAttributes attributes;
    };

    void noteRoot();
    /// For what the whole volume holds, within reason, so that what is found is not moved again and again.
    void makeRoom();
    void readFolder(std::uint32_t folder);
    /// What the folder was in the earlier scan, when the same names were in it.
    [[nodiscard]] std::uint32_t unchangedFolder(int descriptor, std::uint32_t folder) const;
    void pairChildrenWithEarlier(std::uint32_t folder);
    void addItem(int folder, std::uint32_t parent, TextRange name, unsigned char kind);
    void findUnwritten();
    void lookAtItems();
    void lookAt(FolderCursor& cursor, std::uint32_t number);
    void forgetWhatWasOpened();
    void putTogether();

    const FileDescriptor& root_;
    TreeManifest::Contents tree_;
    FolderCursor cursor_;
    std::vector<Finding> findings_;
    /// With the items of the earlier scan.
    TreePairing pairing_;
    std::vector<std::uint32_t> foldersToRead_;
    std::vector<std::uint32_t> itemsToLookAt_;
    const TreeManifest::Contents* earlier_ = nullptr;
    WriteWatch* watch_ = nullptr;
    dev_t volume_ = 0;
};

/// Takes items out of the tree, and what lies in them. Where the first name of a file goes, the next one
/// takes its place.
void removeItems(TreeManifest::Contents& tree, const std::vector<bool>& gone);

} // namespace ramdisk
