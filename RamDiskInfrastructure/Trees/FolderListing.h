#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace ramdisk {

/// What lies in one folder, as far as reading the folder shows it.
struct FolderListing {
    struct Entry {
        std::uint32_t nameStart;
        std::uint32_t nameLength;
        /// The type that `readdir` returns. On some file systems it is unknown for items that are not
        /// folders.
        unsigned char kind;
    };

    /// Reads a folder that was opened just now.
    /// @throws SystemCallError
    [[nodiscard]] static FolderListing of(int folder);

    [[nodiscard]] std::string_view name(const Entry& entry) const {
        return std::string_view(names).substr(entry.nameStart, entry.nameLength);
    }

    /// Sorted by the bytes of the names, each name once.
    std::vector<Entry> entries;
    /// All names, one after another.
    std::string names;
};

} // namespace ramdisk
