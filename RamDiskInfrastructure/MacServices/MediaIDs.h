#pragma once

#include "RamDiskInfrastructure/MacTools/MediaIdentifying.h"

#include <cstdint>
#include <map>
#include <mutex>

namespace ramdisk {

/// The I/O registry's identifiers of disks, remembered while the disk stays registered. One lock guards the
/// whole look-up.
class MediaIDs final : public MediaIdentifying {
public:
    MediaIDs() = default;
    ~MediaIDs() override;

    [[nodiscard]] std::optional<std::uint64_t> identifier(const std::string& bsdName) override;

private:
    /// A registry identifier and the registry object that it belongs to, which this cache retains.
    struct Entry {
        std::uint64_t identifier = 0;
        std::uint32_t object = 0;
    };

    std::mutex mutex_;
    std::map<std::string, Entry> entries_;
};

/// The cache that a process shares.
[[nodiscard]] MediaIDs& sharedMediaIDs();

} // namespace ramdisk
