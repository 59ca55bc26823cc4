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
    /// What the name of an earlier copy tells. The order is that in which the copies were saved.
    struct Earlier {
        std::int64_t secondsSince1970 = 0;
        /// Tells copies of one second apart; the first has 1, which its name leaves out.
        std::uint32_t serial = 1;

        /// The name of the first copy of the second of `time`.
        [[nodiscard]] static Earlier savedAt(std::chrono::system_clock::time_point time);
        [[nodiscard]] std::chrono::system_clock::time_point time() const;

        friend auto operator<=>(const Earlier&, const Earlier&) = default;
    };

    SavedCopyFiles files;

    /// A fresh name for an image in the making.
    [[nodiscard]] std::filesystem::path partial() const;
    [[nodiscard]] std::filesystem::path earlier(const Earlier& name) const;
    /// An image whose contents are given up and which the next save may start from.
    [[nodiscard]] std::filesystem::path spare() const;
    /// Where an image waits that is to take the latest's place. It gets this name only when it is whole:
    /// where there is no latest, it is taken for it.
    [[nodiscard]] std::filesystem::path incoming() const;
    /// The text file that tells which disk the image belongs to.
    [[nodiscard]] std::filesystem::path bound() const;

    [[nodiscard]] bool isPartial(const std::filesystem::path& file) const;
    [[nodiscard]] bool isEarlier(const std::filesystem::path& file) const;
    /// Absent when the file has not the name of an earlier copy of this disk; its folder does not matter.
    [[nodiscard]] std::optional<Earlier> earlierNamed(const std::filesystem::path& file) const;

private:
    [[nodiscard]] std::string stem() const;
};

} // namespace ramdisk
