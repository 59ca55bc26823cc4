#pragma once

#include "RamDiskInfrastructure/Trees/TreeContents.h"

#include <vector>

#include <fcntl.h>

namespace ramdisk {

/// Opens the item `name` of an open folder and never anything else: no link is followed, no mounted volume
/// entered. No descriptor, with errno set, when it cannot be opened.
[[nodiscard]] FileDescriptor openItem(int folder, const char* name, int flags, mode_t mode = 0);

/// The same for reading, which leaves the time of last access alone where the kernel lets us, and never waits
/// for the other end of a FIFO.
[[nodiscard]] FileDescriptor openForReading(int folder, const char* name, int moreFlags = 0);

/// Whether the errno tells that an item is not there any more, or is another kind of thing by now.
[[nodiscard]] bool isGone(int error);

/// Gives the folders of a tree as descriptors, one at a time, stepping from one to the next. Paths may be of
/// any length: names are opened one by one, and only so many folders are kept open.
class FolderCursor {
public:
    /// `tree` names the folders; they are looked for below `root`. Both must outlive the cursor.
    FolderCursor(const FileDescriptor& root, const TreeManifest::Contents& tree);

    /// The descriptor of the folder, good until the next call; -1 with errno set when it cannot be opened.
    [[nodiscard]] int open(std::uint32_t folder);

private:
    struct Level {
        std::uint32_t folder;
        FileDescriptor descriptor;
    };

    /// Makes `levels_` the way from the root to `folder`, as far as it is not that already.
    void lead(std::uint32_t folder);

    const FileDescriptor& root_;
    const TreeManifest::Contents& tree_;
    std::vector<Level> levels_;
    std::vector<std::uint32_t> way_;
};

} // namespace ramdisk
