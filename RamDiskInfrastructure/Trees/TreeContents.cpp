#include "RamDiskInfrastructure/Trees/TreeContents.h"

#include <algorithm>

namespace ramdisk {

std::string TreeManifest::Contents::path(std::uint32_t item) const {
    if (item == 0) {
        return ".";
    }
    std::vector<std::string_view> names;
    for (; item != 0; item = items[item].parent) {
        names.push_back(name(item));
    }
    std::string path(names.back());
    for (auto next = std::next(names.rbegin()); next != names.rend(); ++next) {
        path.append("/").append(*next);
    }
    return path;
}

std::uint64_t TreeManifest::Contents::dataSize(std::uint32_t item) const {
    const auto& file = items[item];
    if (file.blockCount == 0) {
        return 0;
    }
    const auto last = blocksOf(item)[file.blockCount - 1].block;
    const auto rest = file.size - std::min(file.size, last * BlockHash::blockSize);
    return (file.blockCount - 1) * BlockHash::blockSize + std::min(rest, BlockHash::blockSize);
}

TextRange TreeManifest::Contents::addText(std::string_view added) {
    const TextRange range{text.size(), static_cast<std::uint32_t>(added.size())};
    text.append(added);
    return range;
}

void TreeManifest::Contents::setAttributes(std::uint32_t item, ItemAttributes&& attributes) {
    // Neighbours are often alike.
    if (attributes == attributeSets.back()) {
        items[item].attributes = static_cast<std::uint32_t>(attributeSets.size() - 1);
    } else if (!attributes.empty()) {
        items[item].attributes = static_cast<std::uint32_t>(attributeSets.size());
        attributeSets.push_back(std::move(attributes));
    }
}

} // namespace ramdisk
