#include "RamDiskInfrastructure/Linux/SavedContents/UnsavableFiles.h"

#include "RamDiskInfrastructure/Trees/TreeContents.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <set>

namespace ramdisk {

namespace {

constexpr std::uint64_t imageBlockBytes = 4096;
/// What ext4 gives a file: blocks have numbers of 32 bits.
constexpr std::uint64_t largestFile = ((std::uint64_t{1} << 32U) - 1) * imageBlockBytes;
constexpr std::uint32_t mostNamesOfAFile = 65000;

} // namespace

UnsavableFiles UnsavableFiles::takeFrom(TreeManifest& manifest) {
    auto& tree = manifest.contents();
    const auto count = static_cast<std::uint32_t>(tree.items.size());
    UnsavableFiles found;
    std::vector<bool> gone(count);
    std::vector<std::uint32_t> names(count);
    for (std::uint32_t item = 0; item < count; ++item) {
        const auto original = tree.items[item].original;
        const bool isTooLarge = tree.items[original].size > largestFile;
        if (tree.items[item].type == ItemType::folder
            || (!isTooLarge && ++names[original] <= mostNamesOfAFile)) {
            continue;
        }
        gone[item] = true;
        found.paths_.push_back(tree.path(item));
    }
    if (found.paths_.empty()) {
        return found;
    }
    constexpr std::size_t mostTold = 5;
    for (std::size_t number = 0; number < std::min(mostTold, found.paths_.size()); ++number) {
        found.names_ += fmt::format("{}“{}”", number == 0 ? "" : ", ", found.paths_[number]);
    }
    if (found.paths_.size() > mostTold) {
        found.names_ += fmt::format(" and {} more", found.paths_.size() - mostTold);
    }
    tree.remove(gone);
    return found;
}

std::optional<std::string> UnsavableFiles::text() const {
    if (paths_.empty()) {
        return std::nullopt;
    }
    return fmt::format("a saved copy cannot hold {}: a file has 16 TiB and 65,000 names at the most. All "
                       "other files are saved.",
                       names_);
}

std::optional<std::string> UnsavableFiles::firstIn(const TreeManifest& other) const {
    if (paths_.empty()) {
        return std::nullopt;
    }
    const std::set<std::string> paths(paths_.begin(), paths_.end());
    const auto& tree = other.contents();
    for (std::uint32_t item = 0; item < tree.items.size(); ++item) {
        if (auto path = tree.path(item); paths.contains(path)) {
            return path;
        }
    }
    return std::nullopt;
}

} // namespace ramdisk
