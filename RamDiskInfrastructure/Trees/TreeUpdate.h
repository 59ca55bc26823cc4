#pragma once

#include "RamDiskInfrastructure/Trees/TreeManifest.h"

#include <cstdint>
#include <vector>

namespace ramdisk {

/// What happens to items of the target that the source does not have.
enum class Extras { keep, remove };

/// Whether the root folder of the target gets the metadata of the source's root.
enum class RootMetadata { apply, leave };

/// What happens if the process may not give an item its owner.
enum class Owners {
    /// The update fails.
    all,
    /// The item stays the caller's own, and is neither setuid nor setgid.
    whereAllowed
};

/// What happens to attributes for which the file system of the target has no room in one item.
enum class AttributeRoom {
    /// The update fails.
    all,
    /// What does not fit is left out: whoever reads the target goes by its manifest.
    whereThereIsRoom
};

/// Whether items get the flags of the source, such as “immutable”. An item keeps none that would be in the
/// way of the update.
enum class Flags { leave, apply };

/// Whether large files go through the page cache.
enum class PageCache {
    use,
    /// Bypasses it. What is copied will not be read again soon, and finding room for it in memory takes
    /// longer than copying it.
    bypass
};

/// Whether the target keeps its files in memory and gives huge pages to mappings that ask for them.
enum class HugePages {
    none,
    /// What is read past the page cache into a large new file goes straight into huge pages, without a copy.
    onRequest
};

/// Makes one tree the same as another, and writes only what differs: contents, modes, owners, times, hard
/// links, symbolic links, extended attributes, ACLs, holes, FIFOs and the root's own metadata. No link leads
/// out of either tree, even if somebody changes the trees meanwhile.
struct TreeUpdate {
    /// The open root folder of the tree to copy, and what it holds.
    const FileDescriptor& source;
    const TreeManifest& sourceManifest;
    /// The open root folder of the tree to change, and what it holds now; an empty manifest for an empty
    /// folder.
    const FileDescriptor& target;
    const TreeManifest& targetManifest;
    Extras extras = Extras::remove;
    RootMetadata rootMetadata = RootMetadata::apply;
    Owners owners = Owners::all;
    PageCache pageCache = PageCache::use;
    HugePages hugePages = HugePages::none;
    Flags flags = Flags::leave;
    AttributeRoom attributeRoom = AttributeRoom::all;
    /// Gets the files of the source whose contents were not what its manifest lists when they were copied, if
    /// anybody wants to know.
    std::vector<std::uint32_t>* differing = nullptr;

    /// Changes the target. An item of the source that vanished since its manifest was made is left out.
    /// @throws RamDiskError `namesMerged` when the target took two names for one; SystemCallError naming the
    ///         item; the target is then half changed.
    void perform(const ProgressObserver& observer) const;
};

} // namespace ramdisk
