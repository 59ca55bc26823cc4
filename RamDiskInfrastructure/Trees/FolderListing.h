#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace ramdisk {

/// What lies in one folder, as far as the folder itself tells.
struct FolderListing {
    struct Entry {
        std::uint32_t nameStart;
        std::uint32_t nameLength;
        /// What `readdir` calls the type. Of what is no folder it is unknown on some file systems.
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
    /// One after another.
    std::string names;
};

} // namespace ramdisk
