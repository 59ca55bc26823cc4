#include "RamDiskInfrastructure/Linux/SavedContents/UnsavableFiles.h"

#include "RamDiskInfrastructure/Trees/TreeContents.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <vector>

namespace ramdisk {

namespace {

constexpr std::uint64_t imageBlockBytes = 4096;
/// What ext4 gives a file: blocks have numbers of 32 bits.
constexpr std::uint64_t largestFile = ((std::uint64_t{1} << 32U) - 1) * imageBlockBytes;
constexpr std::uint32_t mostNamesOfAFile = 65000;

/// The first of them, and how many more there are.
std::string enumerate(const std::set<std::string>& paths) {
    constexpr std::size_t mostTold = 5;
    std::string text;
    std::size_t told = 0;
    for (const auto& path : paths) {
        if (told == mostTold) {
            return text + fmt::format(" and {} more", paths.size() - mostTold);
        }
        text += fmt::format("{}“{}”", told++ == 0 ? "" : ", ", path);
    }
    return text;
}

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
        if (tree.items[item].type != ItemType::folder
            && (isTooLarge || ++names[original] > mostNamesOfAFile)) {
            gone[item] = true;
            found.paths_.insert(tree.path(item));
        } else if (tree.attributes(item) == unlistedAttributes()) {
            found.unlisted_.insert(tree.path(item));
        }
    }
    std::replace(tree.attributeSets.begin(), tree.attributeSets.end(), unlistedAttributes(),
                 ItemAttributes());
    if (!found.paths_.empty()) {
        tree.remove(gone);
    }
    return found;
}

void UnsavableFiles::add(UnsavableFiles more) {
    paths_.merge(more.paths_);
    unlisted_.merge(more.unlisted_);
}

std::optional<std::string> UnsavableFiles::text() const {
    std::string text;
    if (!paths_.empty()) {
        text = fmt::format("a saved copy cannot hold {}: a file has 16 TiB and 65,000 names at the most. ",
                           enumerate(paths_));
        if (unlisted_.empty()) {
            return text + "All other files are saved.";
        }
    }
    if (unlisted_.empty()) {
        return std::nullopt;
    }
    return fmt::format("{}{} extended attributes of {} are not saved: the system cannot list names of more "
                       "than 64 KiB. Everything else is saved.",
                       text, text.empty() ? "the" : "The", enumerate(unlisted_));
}

std::optional<std::string> UnsavableFiles::firstIn(const TreeManifest& other) const {
    if (paths_.empty() && unlisted_.empty()) {
        return std::nullopt;
    }
    const auto& tree = other.contents();
    for (std::uint32_t item = 0; item < tree.items.size(); ++item) {
        auto path = tree.path(item);
        if (paths_.contains(path) || (unlisted_.contains(path) && !tree.attributes(item).empty())) {
            return path;
        }
    }
    return std::nullopt;
}

} // namespace ramdisk
