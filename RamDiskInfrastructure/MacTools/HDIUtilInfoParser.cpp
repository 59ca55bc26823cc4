#include "RamDiskInfrastructure/MacTools/HDIUtilInfoParser.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <utility>

namespace ramdisk {

namespace {

constexpr std::string_view memoryScheme = "ram://";
constexpr std::uint64_t defaultBlockSize = 512;
constexpr std::string_view containerKind = "EF57347C-0000-11AA-AA11-00306543ECAC";

template <typename Read>
auto readIfPresent(const PropertyListNode& node, const char* key, Read read)
    -> std::optional<decltype(read(node))> {
    const auto value = node.find(key);
    if (!value) {
        return std::nullopt;
    }
    return read(*value);
}

std::string readString(const PropertyListNode& node) {
    return node.string();
}
std::uint64_t readUnsigned(const PropertyListNode& node) {
    return node.unsignedInteger();
}
std::int32_t readProcessID(const PropertyListNode& node) {
    return node.signedInteger32();
}

template <typename Read>
auto readArray(const PropertyListNode& node, Read read) {
    std::vector<decltype(read(node))> elements;
    for (std::size_t index = 0; index < node.size(); ++index) {
        elements.push_back(read(node.at(index)));
    }
    return elements;
}

HDIUtilInfoParser::Entity readEntity(const PropertyListNode& node) {
    const auto device = readIfPresent(node, "dev-entry", readString);
    if (!device) {
        throw PropertyListError("The property list cannot be read: an entity has no “dev-entry”.");
    }
    auto mountPoint = readIfPresent(node, "mount-point", readString);
    if (mountPoint && mountPoint->empty()) {
        mountPoint.reset();
    }
    return {*device, std::move(mountPoint),
            readIfPresent(node, "content-hint", readString) == std::optional<std::string>(containerKind)};
}

std::vector<HDIUtilInfoParser::Entity> readEntities(const PropertyListNode& node) {
    return readArray(node, readEntity);
}

HDIUtilInfoParser::Image readImage(const PropertyListNode& node) {
    return {readIfPresent(node, "image-path", readString), readIfPresent(node, "blockcount", readUnsigned),
            readIfPresent(node, "blocksize", readUnsigned),
            readIfPresent(node, "system-entities", readEntities)
                .value_or(std::vector<HDIUtilInfoParser::Entity>()),
            readIfPresent(node, "hdid-pid", readProcessID)};
}

std::vector<HDIUtilInfoParser::Image> readImages(const PropertyListNode& node) {
    return readArray(node, readImage);
}

/// The number of sectors in a path such as ram://2048; zero when there is none.
std::uint64_t sectorsInPath(std::string_view path) {
    path.remove_prefix(memoryScheme.size());
    if (!path.empty() && path.front() == '+') {
        path.remove_prefix(1);
    }
    std::uint64_t count = 0;
    const auto [end, error] = std::from_chars(path.data(), path.data() + path.size(), count);
    return error == std::errc() && end == path.data() + path.size() ? count : 0;
}

ByteCount capacity(const HDIUtilInfoParser::Image& image) {
    const auto count = image.blockCount ? *image.blockCount : sectorsInPath(*image.imagePath);
    const auto size = image.blockSize.value_or(defaultBlockSize);
    constexpr auto largest = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    if (size != 0 && count > largest / size) {
        throw PropertyListError("The property list cannot be read: an image is larger than any disk can be.");
    }
    return ByteCount{count * size};
}

bool livesInMemory(const HDIUtilInfoParser::Image& image) {
    return image.imagePath && image.imagePath->compare(0, memoryScheme.size(), memoryScheme) == 0;
}

std::optional<AttachedRamImage> ramImage(const HDIUtilInfoParser::Image& image) {
    if (!livesInMemory(image)) {
        return std::nullopt;
    }
    const auto device = image.device();
    std::optional<std::filesystem::path> mountPoint;
    std::optional<std::string> volumeDevicePath;
    std::vector<std::string> devicePaths;
    for (const auto& entity : image.systemEntities) {
        devicePaths.push_back(entity.devEntry);
        if (!mountPoint && entity.mountPoint) {
            mountPoint = *entity.mountPoint;
            volumeDevicePath = entity.devEntry;
        }
    }
    if (!device) {
        return std::nullopt;
    }
    return AttachedRamImage{*device,     capacity(image), std::move(mountPoint), image.helperProcessID,
                            devicePaths, volumeDevicePath};
}

} // namespace

std::optional<std::filesystem::path> HDIUtilInfoParser::Image::mountPoint() const {
    for (const auto& entity : systemEntities) {
        if (entity.mountPoint) {
            return *entity.mountPoint;
        }
    }
    return std::nullopt;
}

std::optional<DeviceIdentifier> HDIUtilInfoParser::Image::device() const {
    std::optional<DeviceIdentifier> first;
    std::optional<DeviceIdentifier> firstWhole;
    for (const auto& entity : systemEntities) {
        const auto device = deviceAtPath(entity.devEntry);
        if (!device) {
            continue;
        }
        if (isWholeDisk(*device)) {
            if (!entity.isContainer) {
                return device;
            }
            firstWhole = firstWhole ? firstWhole : device;
        }
        first = first ? first : device;
    }
    return firstWhole ? firstWhole : first;
}

bool HDIUtilInfoParser::Image::has(const DeviceIdentifier& wanted) const {
    return std::any_of(systemEntities.begin(), systemEntities.end(),
                       [&wanted](const Entity& entity) { return deviceAtPath(entity.devEntry) == wanted; });
}

HDIUtilInfoParser::Info HDIUtilInfoParser::info(std::string_view data) {
    const auto list = PropertyList::parse(data);
    return {readIfPresent(list.root(), "images", readImages).value_or(std::vector<Image>())};
}

std::vector<AttachedRamImage> HDIUtilInfoParser::ramImages(std::string_view data) {
    std::vector<AttachedRamImage> result;
    for (const auto& image : info(data).images) {
        if (auto found = ramImage(image)) {
            result.push_back(std::move(*found));
        }
    }
    return result;
}

} // namespace ramdisk
