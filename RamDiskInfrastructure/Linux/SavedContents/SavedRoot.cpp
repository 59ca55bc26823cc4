#include "RamDiskInfrastructure/Linux/SavedContents/SavedRoot.h"

#include "RamDiskInfrastructure/Linux/Mounting/VolumeMarkLinux.h"
#include "RamDiskInfrastructure/Trees/TreeContents.h"

#include <algorithm>

namespace ramdisk {

namespace {

auto findMark(const ItemAttributes& attributes) {
    const auto name = volumeMarkAttribute();
    return std::find_if(attributes.begin(), attributes.end(),
                        [&](const auto& attribute) { return attribute.name == name; });
}

/// Other items may share the root's set.
void setRootAttributes(TreeManifest::Contents& contents, ItemAttributes attributes) {
    contents.items.front().attributes = static_cast<std::uint32_t>(contents.attributeSets.size());
    contents.attributeSets.push_back(std::move(attributes));
}

} // namespace

void forgetMark(TreeManifest& manifest) {
    auto& contents = manifest.contents();
    auto attributes = contents.attributes(0);
    if (const auto mark = findMark(attributes); mark != attributes.end()) {
        attributes.erase(mark);
        setRootAttributes(contents, std::move(attributes));
    }
}

void keepDisksOwn(TreeManifest& saved, const TreeManifest& disk, VolumeAccess access) {
    forgetMark(saved);
    auto& contents = saved.contents();
    const auto& present = disk.contents().attributes(0);
    if (const auto mark = findMark(present); mark != present.end()) {
        auto attributes = contents.attributes(0);
        const auto place = std::find_if(attributes.begin(), attributes.end(),
                                        [&](const auto& attribute) { return attribute.name > mark->name; });
        attributes.insert(place, *mark);
        setRootAttributes(contents, std::move(attributes));
    }
    if (access == VolumeAccess::onlyMe) {
        auto& root = contents.items.front();
        root.mode = static_cast<std::uint16_t>(root.mode & ~077U);
    }
}

} // namespace ramdisk
