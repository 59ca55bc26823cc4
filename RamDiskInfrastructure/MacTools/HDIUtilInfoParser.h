#pragma once

#include "RamDiskInfrastructure/MacTools/AttachedRamImage.h"
#include "RamDiskInfrastructure/MacTools/PropertyList.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ramdisk {

/// Reads what `hdiutil info -plist` prints. Does no I/O.
class HDIUtilInfoParser {
public:
    struct Entity {
        /// Such as /dev/disk5s1.
        std::string devEntry;
        /// Absent while nothing is mounted from it, also where the tool says so with an empty text.
        std::optional<std::string> mountPoint;
        /// Whether it is the disk of an APFS container, which lies on another disk of the image.
        bool isContainer = false;
    };
    struct Image {
        std::optional<std::string> imagePath;
        std::optional<std::uint64_t> blockCount;
        std::optional<std::uint64_t> blockSize;
        std::vector<Entity> systemEntities;
        std::optional<std::int32_t> helperProcessID;

        /// Where the first mounted volume of the image is.
        [[nodiscard]] std::optional<std::filesystem::path> mountPoint() const;

        /// The image's own whole disk: the first one that is no container, which may be listed before it.
        /// Where the tool tells of no kinds, or lists no whole disk, the first that may be it.
        [[nodiscard]] std::optional<DeviceIdentifier> device() const;

        /// Whether `wanted` is one of the image's devices.
        [[nodiscard]] bool has(const DeviceIdentifier& wanted) const;
    };
    struct Info {
        std::vector<Image> images;
    };

    /// The list of attached images. A missing key is no error, and unknown keys are skipped.
    /// @throws PropertyListError when `data` is no property list or a known key holds another type.
    [[nodiscard]] static Info info(std::string_view data);

    /// The images of `info` that are in memory and have a device, in the tool's order.
    /// @throws PropertyListError as `info`, and when a size is impossible for a disk.
    [[nodiscard]] static std::vector<AttachedRamImage> ramImages(std::string_view data);
};

} // namespace ramdisk
