#pragma once

#include "RamDiskInfrastructure/Trees/FileReader.h"
#include "RamDiskInfrastructure/Trees/FolderCursor.h"
#include "RamDiskInfrastructure/Trees/TreeComparison.h"
#include "RamDiskInfrastructure/Trees/WriteWatch.h"

#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <sys/stat.h>
#include <sys/types.h>

namespace ramdisk {

/// Finds every item of a tree and notes its metadata. The contents of files are not read yet, nor the
/// attributes of files with contents. The exception are the small files of a watched tree. Sockets are left
/// out, and other mounted volumes are kept as empty folders.
///
/// First only the folders are read, one depth after another. They show names and kinds. Then the items have
/// their numbers, and several threads look at them. Each notes what it sees in its own place.
class TreeScanner {
public:
    explicit TreeScanner(const FileDescriptor& root) : root_(root) {}
    /// Scans a watched tree for the first time.
    explicit TreeScanner(WriteWatch& watch) : root_(watch.root()), watch_(&watch) {}
    /// Scans a watched tree again, and finds the files that provably nobody wrote to since `earlier`.
    /// `earlier` is a scan with the same watch that noted which files had writers.
    TreeScanner(WriteWatch& watch, const TreeManifest::Contents& earlier)
        : root_(watch.root()),
          earlier_(&earlier),
          watch_(&watch) {}

    /// @throws SystemCallError with the item that cannot be read
    [[nodiscard]] TreeManifest::Contents scan(ProgressMeter& meter);

private:
    /// What is noted about an item until it is put into the tree.
    struct Finding {
        bool isListedAsFile = false;
        bool isGone = false;
        bool hasOtherNames = false;
        /// For a folder: the same names lead to the same items as in the earlier scan.
        bool isUnchanged = false;
        /// The reader that has read it, if one has.
        std::optional<unsigned> reader;
        /// The file of the earlier scan with the same contents and attributes.
        std::uint32_t unwritten = noItem;
        std::string linkTarget;
        FileReading reading;
    };
    /// What was found in a folder.
    struct FolderFinding;

    /// Whether small files are read when they are looked at, where that may avoid opening them twice.
    [[nodiscard]] bool readsSmallFiles() const noexcept { return watch_ != nullptr && earlier_ == nullptr; }
    void noteRoot();
    /// Reserves memory for as many items as the whole volume holds, within limits, so that the lists need not
    /// be moved again and again.
    void makeRoom(ProgressMeter& meter);
    void walk();
    [[nodiscard]] FolderFinding readFolder(FolderCursor& cursor, std::uint32_t folder);
    /// The folder in the earlier scan, if it had the same names in it.
    [[nodiscard]] std::uint32_t unchangedFolder(const struct stat& status, std::uint32_t folder) const;
    void addItems(std::uint32_t folder, const FolderFinding& found);
    void addItem(std::uint32_t parent, std::string_view name, unsigned char kind);
    /// Finds the files that may be unwritten. Some of them need not be looked at.
    void findUnwritten();
    void lookAtItems(ProgressMeter& meter);
    void lookAt(std::uint32_t number, unsigned worker);
    /// Opens an item that is listed as a file. Reads it if it is small and has one name. False when it is not
    /// a file or cannot be opened.
    [[nodiscard]] bool readSmallFile(int folder, std::uint32_t number, unsigned worker);
    /// Files that others touched do not count as unwritten. Looks at those among them that were skipped.
    void lookAtWhatWasTouched(ProgressMeter& meter);
    void putTogether(ProgressMeter& meter);
    /// Takes over what the earlier scan noted about an unwritten file.
    void takeOver(std::uint32_t number);
    /// Makes a cursor for each worker, which is used again.
    void makeCursors(const ParallelJobs& jobs);

    const FileDescriptor& root_;
    TreeManifest::Contents tree_;
    std::deque<FolderCursor> cursors_;
    /// One for each worker, for the first scan of a watched tree.
    std::deque<FileReader> readers_;
    std::vector<Finding> findings_;
    /// Pairs this scan's items with those of the earlier scan.
    TreePairing pairing_;
    /// The folders of one depth.
    std::vector<std::uint32_t> foldersToRead_;
    std::vector<std::uint32_t> itemsToLookAt_;
    /// The items whose metadata was taken from the earlier scan.
    std::vector<std::uint32_t> itemsSpared_;
    const TreeManifest::Contents* earlier_ = nullptr;
    WriteWatch* watch_ = nullptr;
    dev_t volume_ = 0;
};

} // namespace ramdisk
