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

void TreeManifest::Contents::remove(const std::vector<bool>& gone) {
    constexpr auto none = ~std::uint32_t{0};
    std::vector<std::uint32_t> number(items.size(), none);
    std::vector<std::uint32_t> originalOf(items.size(), none);
    std::vector<TreeItem> left;
    for (std::uint32_t item = 0; item < items.size(); ++item) {
        const bool isGone = item < gone.size() && gone[item];
        const auto parent = number[items[item].parent];
        if (item != 0 && (isGone || parent == none)) {
            continue;
        }
        number[item] = static_cast<std::uint32_t>(left.size());
        auto& kept = left.emplace_back(items[item]);
        const auto& first = items[kept.original];
        kept.firstBlock = first.firstBlock;
        kept.blockCount = first.blockCount;
        auto& original = originalOf[kept.original];
        if (original == none) {
            original = number[item];
        } else {
            kept.firstBlock = 0;
            kept.blockCount = 0;
        }
        kept.original = original;
        kept.firstChild = 0;
        kept.childCount = 0;
        if (item != 0) {
            kept.parent = parent;
            auto& folder = left[parent];
            if (folder.childCount++ == 0) {
                folder.firstChild = number[item];
            }
        }
    }
    items = std::move(left);
}

} // namespace ramdisk
