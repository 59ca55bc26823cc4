#pragma once

#include "RamDiskInfrastructure/Trees/TreeComparison.h"
#include "RamDiskInfrastructure/Trees/TreeUpdate.h"

#include <cstdint>
#include <vector>

namespace ramdisk {

/// What is to be done for an item of the source.
enum class UpdateStep : std::uint8_t { nothing, metadata, contents, create, link };

/// Everything that makes one tree the same as another, found out before anything is touched.
struct TreeUpdatePlan {
    /// @throws SystemCallError when a folder that is to stay lies where something else must go.
    TreeUpdatePlan(const TreeManifest::Contents& source, const TreeManifest::Contents& target, Extras extras);

    /// Which items of the target take the place of which of the source.
    TreePairing pairing;
    /// For every item of the source.
    std::vector<UpdateStep> steps;
    /// For every file of the source the item that has its contents, by its first name: where it links to.
    std::vector<std::uint32_t> linkedTo;
    /// Items of the target to remove, those in a folder before the folder.
    std::vector<std::uint32_t> removals;
    /// The folders of the source in whose counterparts names come or go.
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
