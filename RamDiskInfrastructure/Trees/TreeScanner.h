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
/// attributes of those that have contents, but for the small files of a watched tree. Sockets are left out,
/// other mounted volumes kept as empty folders.
///
/// First the names and kinds of what is in the folders are taken from the folders alone, those of one depth
/// after those of another. With the items numbered, several threads look at them, each noting what it sees in
/// its place.
class TreeScanner {
public:
    explicit TreeScanner(const FileDescriptor& root) : root_(root) {}
    /// Scans the tree that is being watched for the first time.
    explicit TreeScanner(WriteWatch& watch) : root_(watch.root()), watch_(&watch) {}
    /// Scans the tree that is being watched once more, and finds the files that provably nobody wrote to
    /// since `earlier`, a scan by the same watch that noted who had writers.
    TreeScanner(WriteWatch& watch, const TreeManifest::Contents& earlier)
        : root_(watch.root()),
          earlier_(&earlier),
          watch_(&watch) {}

    /// @throws SystemCallError naming the item that cannot be read
    [[nodiscard]] TreeManifest::Contents scan(ProgressMeter& meter);

private:
    /// What is noted of an item until it can be put into the tree.
    struct Finding {
        bool isListedAsFile = false;
        bool isGone = false;
        bool hasOtherNames = false;
        /// Of a folder in which the same names lead to the same items as at the earlier scan.
        bool isUnchanged = false;
        /// Who read it, when that was done already.
        std::optional<unsigned> reader;
        /// The file of the earlier scan whose contents and attributes it has still.
        std::uint32_t unwritten = noItem;
        std::string linkTarget;
        FileReading reading;
    };
    /// What was found in a folder.
    struct FolderFinding;

    /// Whether small files are read when they are looked at: where that may spare a second look at them.
    [[nodiscard]] bool readsSmallFiles() const noexcept { return watch_ != nullptr && earlier_ == nullptr; }
    void noteRoot();
    /// For what the whole volume holds, within reason, so that what is found is not moved again and again.
    void makeRoom(ProgressMeter& meter);
    void walk();
    [[nodiscard]] FolderFinding readFolder(FolderCursor& cursor, std::uint32_t folder);
    /// What the folder was in the earlier scan, when the same names were in it.
    [[nodiscard]] std::uint32_t unchangedFolder(const struct stat& status, std::uint32_t folder) const;
    void addItems(std::uint32_t folder, const FolderFinding& found);
    void addItem(std::uint32_t parent, std::string_view name, unsigned char kind);
    /// Finds the files that may be unwritten; those that need not even be looked at are spared.
    void findUnwritten();
    void lookAtItems(ProgressMeter& meter);
    void lookAt(std::uint32_t number, unsigned worker);
    /// Opens what is listed as a file, and reads it when it is a small one with one name. False when it is
    /// none, or cannot be opened.
    [[nodiscard]] bool readSmallFile(int folder, std::uint32_t number, unsigned worker);
    /// Takes no file for unwritten that others touched, and looks at those that were spared.
    void lookAtWhatWasTouched(ProgressMeter& meter);
    void putTogether(ProgressMeter& meter);
    /// Adds what the earlier scan noted of an unwritten file.
    void takeOver(std::uint32_t number);
    /// One for each worker, to be used again.
    void makeCursors(const ParallelJobs& jobs);

    const FileDescriptor& root_;
    TreeManifest::Contents tree_;
    std::deque<FolderCursor> cursors_;
    /// Of a watched tree that is scanned for the first time, one for each worker.
    std::deque<FileReader> readers_;
    std::vector<Finding> findings_;
    /// With the items of the earlier scan.
    TreePairing pairing_;
    /// Of one depth.
    std::vector<std::uint32_t> foldersToRead_;
    std::vector<std::uint32_t> itemsToLookAt_;
    /// Whose metadata was taken from the earlier scan.
    std::vector<std::uint32_t> itemsSpared_;
    const TreeManifest::Contents* earlier_ = nullptr;
    WriteWatch* watch_ = nullptr;
    dev_t volume_ = 0;
};

} // namespace ramdisk
