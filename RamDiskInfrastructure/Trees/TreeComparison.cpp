#include "RamDiskInfrastructure/Trees/TreeComparison.h"

#include <algorithm>
#include <utility>

namespace ramdisk {

namespace {

constexpr const char* modificationTimesDiffer = "modification times differ";

const char* differenceOf(const TreeManifest::Contents& source, std::uint32_t left,
                         const TreeManifest::Contents& target, std::uint32_t right,
                         const TreePairing& pairing) {
    const auto& one = source.items[left];
    const auto& other = target.items[right];
    if (one.type != other.type) {
        return "kinds differ";
    }
    if (source.linkTarget(left) != target.linkTarget(right)) {
        return "link targets differ";
    }
    if (one.device != other.device) {
        return "device numbers differ";
    }
    if (pairing.ofSource[one.original] != other.original) {
        return "hard links differ";
    }
    if (one.size != other.size) {
        return "sizes differ";
    }
    if (!isSameFile(source, one.original, target, other.original)) {
        return "contents differ";
    }
    if (one.mode != other.mode) {
        return "modes differ";
    }
    if (one.user != other.user || one.group != other.group) {
        return "owners differ";
    }
    if (one.flags != other.flags) {
        return "flags differ";
    }
    if (source.attributes(left) != target.attributes(right)) {
        return "extended attributes differ";
    }
    return isSameTime(one.modified, other.modified) ? nullptr : modificationTimesDiffer;
}

} // namespace

bool isSameTime(const timespec& left, const timespec& right) {
    return left.tv_sec == right.tv_sec && left.tv_nsec == right.tv_nsec;
}

void pairChildren(const TreeManifest::Contents& source, std::uint32_t sourceFolder,
                  const TreeManifest::Contents& target, std::uint32_t targetFolder, TreePairing& pairing) {
    auto left = source.items[sourceFolder].firstChild;
    auto right = target.items[targetFolder].firstChild;
    const auto leftEnd = left + source.items[sourceFolder].childCount;
    const auto rightEnd = right + target.items[targetFolder].childCount;
    while (left < leftEnd && right < rightEnd) {
        const auto order = source.name(left).compare(target.name(right));
        if (order == 0) {
            pairing.ofSource[left] = right;
            pairing.ofTarget[right] = left;
        }
        left += order <= 0 ? 1 : 0;
        right += order >= 0 ? 1 : 0;
    }
}

TreePairing pairItems(const TreeManifest::Contents& source, const TreeManifest::Contents& target) {
    TreePairing pairing{std::vector(source.items.size(), noItem), std::vector(target.items.size(), noItem)};
    pairing.ofSource[0] = 0;
    pairing.ofTarget[0] = 0;
    for (std::uint32_t item = 0; item < source.items.size(); ++item) {
        const auto other = pairing.ofSource[item];
        if (other != noItem) {
            pairChildren(source, item, target, other, pairing);
        }
    }
    return pairing;
}

bool isSameMetadata(const TreeManifest::Contents& source, std::uint32_t sourceItem,
                    const TreeManifest::Contents& target, std::uint32_t targetItem) {
    const auto& one = source.items[sourceItem];
    const auto& other = target.items[targetItem];
    return one.mode == other.mode && one.flags == other.flags && one.user == other.user
           && one.group == other.group && isSameTime(one.modified, other.modified)
           && source.attributes(sourceItem) == target.attributes(targetItem);
}

bool isSameFile(const TreeManifest::Contents& source, std::uint32_t sourceItem,
                const TreeManifest::Contents& target, std::uint32_t targetItem) {
    const auto& one = source.items[sourceItem];
    const auto& other = target.items[targetItem];
    return one.size == other.size && one.blockCount == other.blockCount
           && std::equal(source.blocksOf(sourceItem), source.blocksOf(sourceItem) + one.blockCount,
                         target.blocksOf(targetItem));
}

std::optional<std::string> firstDifference(const TreeManifest::Contents& source,
                                           const TreeManifest::Contents& target) {
    const auto pairing = pairItems(source, target);
    // The date of a folder mostly tells of something in it, which is worth more to know.
    std::optional<std::string> folderDate;
    for (std::uint32_t item = 0; item < source.items.size(); ++item) {
        const auto other = pairing.ofSource[item];
        if (other == noItem) {
            return source.path(item) + ": is missing";
        }
        if (const char* difference = differenceOf(source, item, target, other, pairing)) {
            auto text = source.path(item) + ": " + difference;
            if (source.items[item].type != ItemType::folder || difference != modificationTimesDiffer) {
                return text;
            }
            folderDate = folderDate ? folderDate : std::move(text);
        }
    }
    const auto extra = std::find(pairing.ofTarget.begin(), pairing.ofTarget.end(), noItem);
    if (extra != pairing.ofTarget.end()) {
        return target.path(static_cast<std::uint32_t>(extra - pairing.ofTarget.begin()))
               + ": is not expected";
    }
    return folderDate;
}

} // namespace ramdisk
