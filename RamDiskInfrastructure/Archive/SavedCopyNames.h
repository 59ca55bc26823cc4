#pragma once

#include "RamDiskCore/Values/SavedContents.h"

#include <chrono>
#include <compare>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

namespace ramdisk {

/// The names of everything that lies beside a disk's latest saved image.
struct SavedCopyNames {
    /// What the name of an earlier copy contains. The order is that in which the copies were saved.
    struct Earlier {
        std::int64_t secondsSince1970 = 0;
        /// Tells copies of the same second apart. The first has 1, which its name leaves out.
        std::uint32_t serial = 1;

        /// The name of the first copy that was saved in the second of `time`.
        [[nodiscard]] static Earlier savedAt(std::chrono::system_clock::time_point time);
        [[nodiscard]] std::chrono::system_clock::time_point time() const;
        /// The name of the copy that follows this one at once.
        [[nodiscard]] Earlier next() const;

        friend auto operator<=>(const Earlier&, const Earlier&) = default;
    };

    SavedCopyFiles files;

    /// A new name for an image that a save is filling.
    [[nodiscard]] std::filesystem::path partial() const;
    [[nodiscard]] std::filesystem::path earlier(const Earlier& name) const;
    /// A further name of an image that turned out to be damaged at this time.
    [[nodiscard]] std::filesystem::path damaged(const Earlier& foundAt) const;
    [[nodiscard]] bool isDamaged(const std::filesystem::path& file) const;
    /// A retired image, which the next save may start from.
    [[nodiscard]] std::filesystem::path spare() const;
    /// The name of a complete image that is about to take the latest's place. Only a complete image gets this
    /// name, since it counts as the latest where there is none.
    [[nodiscard]] std::filesystem::path incoming() const;
    /// The text file that says which disk the image belongs to.
    [[nodiscard]] std::filesystem::path bound() const;

    [[nodiscard]] bool isPartial(const std::filesystem::path& file) const;
    [[nodiscard]] bool isEarlier(const std::filesystem::path& file) const;
    /// Absent when the file's name is not that of an earlier copy of this disk. Its folder does not matter.
    [[nodiscard]] std::optional<Earlier> earlierNamed(const std::filesystem::path& file) const;

private:
    [[nodiscard]] std::string stem() const;
};

} // namespace ramdisk
