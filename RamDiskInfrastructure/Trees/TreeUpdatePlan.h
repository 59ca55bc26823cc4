#pragma once

#include "RamDiskInfrastructure/Trees/TreeComparison.h"
#include "RamDiskInfrastructure/Trees/TreeUpdate.h"

#include <cstdint>
#include <vector>

namespace ramdisk {

/// What to do for an item of the source.
enum class UpdateStep : std::uint8_t { nothing, metadata, contents, create, link };

/// Everything that has to be done to make one tree the same as another. It is found out before anything is
/// changed.
struct TreeUpdatePlan {
    /// @throws SystemCallError when a folder that must stay is where something else must go.
    TreeUpdatePlan(const TreeManifest::Contents& source, const TreeManifest::Contents& target, Extras extras);

    /// The items of the target that correspond to those of the source.
    TreePairing pairing;
    /// For every item of the source.
    std::vector<UpdateStep> steps;
    /// For every file of the source, the item that has its contents under its first name, to which the file
    /// is linked.
    std::vector<std::uint32_t> linkedTo;
    /// Items of the target to remove. Those in a folder come before the folder.
    std::vector<std::uint32_t> removals;
    /// The folders of the source whose counterparts gain or lose names.
    std::vector<bool> touched;

private:
    void separateKinds(const TreeManifest::Contents& source, const TreeManifest::Contents& target,
                       Extras extras);
    void chooseOriginals(const TreeManifest::Contents& source, const TreeManifest::Contents& target,
                         Extras extras);
    void chooseSteps(const TreeManifest::Contents& source, const TreeManifest::Contents& target);
    void collectRemovals(const TreeManifest::Contents& target, Extras extras);

    std::vector<bool> replaced_;
    std::vector<std::uint32_t> claimedBy_;
};

} // namespace ramdisk
