#pragma once

#include "RamDiskInfrastructure/Trees/TreeContents.h"

#include <vector>

#include <fcntl.h>

namespace ramdisk {

/// Opens the item `name` of an open folder. Follows no link and enters no mounted volume. Returns no
/// descriptor, and sets errno, when it cannot be opened.
[[nodiscard]] FileDescriptor openItem(int folder, const char* name, int flags, mode_t mode = 0);

/// The same for reading. Leaves the time of last access alone if the kernel allows that, and never waits for
/// the other end of a FIFO.
[[nodiscard]] FileDescriptor openForReading(int folder, const char* name, int moreFlags = 0);

/// Whether the errno says that an item does not exist any more, or is another kind of item by now.
[[nodiscard]] bool isGone(int error);

/// Opens the folders of a tree one at a time, stepping from one to the next. Paths may be of any length:
/// names are opened one by one, and only a limited number of folders is kept open.
class FolderCursor {
public:
    /// `tree` names the folders; they are looked for below `root`. Both must outlive the cursor.
    FolderCursor(const FileDescriptor& root, const TreeManifest::Contents& tree);

    /// The descriptor of the folder, valid until the next call; -1 with errno set when it cannot be opened.
    [[nodiscard]] int open(std::uint32_t folder);

private:
    struct Level {
        std::uint32_t folder;
        FileDescriptor descriptor;
    };

    /// Makes `levels_` the way from the root to `folder`, keeping the part that is right already.
    void lead(std::uint32_t folder);

    const FileDescriptor& root_;
    const TreeManifest::Contents& tree_;
    std::vector<Level> levels_;
    std::vector<std::uint32_t> way_;
};

} // namespace ramdisk
