#include "RamDiskInfrastructure/Trees/TreeUpdatePlan.h"

#include "RamDiskInfrastructure/Commands/SystemCallError.h"

#include <cerrno>

namespace ramdisk {

TreeUpdatePlan::TreeUpdatePlan(const TreeManifest::Contents& source, const TreeManifest::Contents& target,
                               Extras extras)
    : pairing(pairItems(source, target)),
      steps(source.items.size(), UpdateStep::nothing),
      linkedTo(source.items.size(), noItem),
      touched(source.items.size()),
      replaced_(target.items.size()),
      claimedBy_(target.items.size(), noItem) {
    separateKinds(source, target, extras);
    chooseOriginals(source, target, extras);
    chooseSteps(source, target);
    collectRemovals(target, extras);
}

void TreeUpdatePlan::separateKinds(const TreeManifest::Contents& source, const TreeManifest::Contents& target,
                                   Extras extras) {
    for (std::uint32_t item = 1; item < source.items.size(); ++item) {
        const auto other = pairing.ofSource[item];
        if (other == noItem
            || (source.items[item].type == target.items[other].type
                && source.items[item].device == target.items[other].device
                && source.linkTarget(item) == target.linkTarget(other)
                // What cannot be listed cannot be removed one by one.
                && (source.items[item].type == ItemType::folder
                    || target.attributes(other) != unlistedAttributes()))) {
            continue;
        }
        if (extras == Extras::keep && target.items[other].type == ItemType::folder) {
            throw SystemCallError("put a file in the place of the folder", source.path(item), EISDIR);
        }
        replaced_[other] = true;
        pairing.ofSource[item] = noItem;
        pairing.ofTarget[other] = noItem;
    }
}

void TreeUpdatePlan::chooseOriginals(const TreeManifest::Contents& source,
                                     const TreeManifest::Contents& target, Extras extras) {
    // An inode of which a name stays that the source does not know must not be written to.
    std::vector<bool> isForeign(target.items.size());
    if (extras == Extras::keep) {
        for (std::uint32_t item = 0; item < target.items.size(); ++item) {
            if (pairing.ofTarget[item] == noItem && !replaced_[item]) {
                isForeign[target.items[item].original] = true;
            }
        }
    }
    for (std::uint32_t item = 1; item < source.items.size(); ++item) {
        const auto other = pairing.ofSource[item];
        auto& original = linkedTo[source.items[item].original];
        if (other == noItem || original != noItem || source.items[item].type == ItemType::folder) {
            continue;
        }
        const auto inode = target.items[other].original;
        if (claimedBy_[inode] == noItem && !isForeign[inode]) {
            claimedBy_[inode] = item;
            original = item;
        }
    }
    for (std::uint32_t item = 1; item < source.items.size(); ++item) {
        const auto first = source.items[item].original;
        if (linkedTo[first] == noItem) {
            linkedTo[first] = first;
        }
        linkedTo[item] = linkedTo[first];
    }
}

void TreeUpdatePlan::chooseSteps(const TreeManifest::Contents& source, const TreeManifest::Contents& target) {
    for (std::uint32_t item = 0; item < source.items.size(); ++item) {
        const auto other = pairing.ofSource[item];
        const auto first = source.items[item].original;
        if (source.items[item].type == ItemType::folder) {
            if (other == noItem) {
                steps[item] = UpdateStep::create;
            } else if (!isSameMetadata(source, item, target, other)) {
                steps[item] = UpdateStep::metadata;
            }
        } else if (linkedTo[item] != item) {
            if (other == noItem || claimedBy_[target.items[other].original] != linkedTo[item]) {
                steps[item] = UpdateStep::link;
            }
        } else if (other == noItem || claimedBy_[target.items[other].original] != item) {
            steps[item] = UpdateStep::create;
        } else if (!isSameFile(source, first, target, target.items[other].original)) {
            steps[item] = UpdateStep::contents;
        } else if (!isSameMetadata(source, item, target, other)) {
            steps[item] = UpdateStep::metadata;
        }
        if (steps[item] == UpdateStep::create || steps[item] == UpdateStep::link) {
            touched[source.items[item].parent] = true;
            touched[item] = true;
            if (other != noItem) {
                replaced_[other] = true;
            }
        }
    }
}

void TreeUpdatePlan::collectRemovals(const TreeManifest::Contents& target, Extras extras) {
    for (auto item = static_cast<std::uint32_t>(target.items.size()) - 1; item > 0; --item) {
        if (replaced_[item] || (extras == Extras::remove && pairing.ofTarget[item] == noItem)) {
            removals.push_back(item);
            const auto parent = pairing.ofTarget[target.items[item].parent];
            if (parent != noItem) {
                touched[parent] = true;
            }
        }
    }
}

} // namespace ramdisk
