#pragma once

#include "RamDiskInfrastructure/Trees/TreeManifest.h"

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include <sys/types.h>
#include <time.h>

namespace ramdisk {

enum class ItemType : std::uint8_t { folder, file, link, fifo, characterDevice, blockDevice };

/// Flags of a file or folder that the kernel minds, and that copies keep. Each is one bit.
using ItemFlags = std::uint8_t;
inline constexpr ItemFlags immutableFlag = 1;
inline constexpr ItemFlags appendOnlyFlag = 2;
inline constexpr ItemFlags noDumpFlag = 4;
inline constexpr ItemFlags allItemFlags = immutableFlag | appendOnlyFlag | noDumpFlag;

/// An extended attribute; ACLs are among them.
struct ItemAttribute {
    std::string name;
    std::string value;

    friend bool operator==(const ItemAttribute&, const ItemAttribute&) = default;
};
/// Sorted by name.
using ItemAttributes = std::vector<ItemAttribute>;

/// Stands for attributes that the kernel does not list, since their names take more than 64 KiB.
[[nodiscard]] inline ItemAttributes unlistedAttributes() {
    return {{}};
}

/// A piece of `TreeManifest::Contents::text`.
struct TextRange {
    std::uint64_t start = 0;
    std::uint32_t length = 0;
};

/// The hash of one block of a file. Blocks of zeros and holes are not listed.
struct BlockHash {
    static constexpr std::uint64_t blockSize = 64 * 1024;

    std::uint64_t block = 0;
    std::uint64_t low = 0;
    std::uint64_t high = 0;

    friend bool operator==(const BlockHash&, const BlockHash&) = default;
};

/// Means that another tree does not have the item.
inline constexpr std::uint32_t noItem = std::numeric_limits<std::uint32_t>::max();

/// One name in a tree: what lies there, with all metadata but what only the running kernel knows. Names,
/// targets, attributes and hashes lie in the tree's own lists.
struct TreeItem {
    ItemType type = ItemType::folder;
    /// The permission bits, setuid, setgid and the sticky bit.
    std::uint16_t mode = 0;
    ItemFlags flags = 0;
    std::uint32_t parent = 0;
    /// The items of a folder are stored one after another, sorted by the bytes of their names.
    std::uint32_t firstChild = 0;
    std::uint32_t childCount = 0;
    /// The first item that is another name of the same inode, or this item itself if it is the first or only
    /// one. The first item has the blocks.
    std::uint32_t original = 0;
    /// Where in `attributeSets` its attributes are; the first set is empty.
    std::uint32_t attributes = 0;
    std::uint32_t user = 0;
    std::uint32_t group = 0;
    TextRange name;
    TextRange linkTarget;
    timespec modified{};
    timespec accessed{};
    /// Of a file, in bytes; else 0.
    std::uint64_t size = 0;
    /// The number of a device; else 0.
    std::uint64_t device = 0;
    std::uint64_t firstBlock = 0;
    std::uint64_t blockCount = 0;
    /// The next fields belong to a scan and are not stored in files. This is the number of the inode, or 0
    /// when the contents may be those of another inode.
    ino_t inode = 0;
    /// When anything of the item was last changed.
    timespec changed{};
    /// Whether the contents, or a part of them, were noted.
    bool areContentsNoted = false;
    /// Whether nobody had the file open for writing when the reading of its contents began.
    bool hadNoWriter = false;
};

/// Items have numbers; 0 is the root. A folder has a lower number than the items in it.
struct TreeManifest::Contents {
    std::vector<TreeItem> items;
    /// Names and link targets, one after another.
    std::string text;
    std::vector<ItemAttributes> attributeSets{ItemAttributes{}};
    std::vector<BlockHash> blocks;

    [[nodiscard]] std::string_view name(std::uint32_t item) const { return textOf(items[item].name); }
    [[nodiscard]] std::string_view linkTarget(std::uint32_t item) const {
        return textOf(items[item].linkTarget);
    }
    [[nodiscard]] const ItemAttributes& attributes(std::uint32_t item) const {
        return attributeSets[items[item].attributes];
    }
    [[nodiscard]] const BlockHash* blocksOf(std::uint32_t item) const {
        return blocks.data() + items[item].firstBlock;
    }
    /// The path below the root; "." for the root itself.
    [[nodiscard]] std::string path(std::uint32_t item) const;
    /// How many bytes of the item's file lie in blocks that are not all zero.
    [[nodiscard]] std::uint64_t dataSize(std::uint32_t item) const;

    [[nodiscard]] std::string_view textOf(TextRange range) const {
        return std::string_view(text).substr(range.start, range.length);
    }
    TextRange addText(std::string_view added);
    void setAttributes(std::uint32_t item, ItemAttributes&& attributes);
    /// Takes items out, and what lies in them. Where the first name of a file goes, the next one takes its
    /// place.
    void remove(const std::vector<bool>& gone);
    /// Whether the item is the first name of a file with contents. Its other names get the same contents.
    [[nodiscard]] bool hasOwnContents(std::uint32_t item) const {
        return items[item].type == ItemType::file && items[item].original == item && items[item].size != 0;
    }
};

} // namespace ramdisk
