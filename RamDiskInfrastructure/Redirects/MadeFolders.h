#pragma once

#include "RamDiskCore/Values/UUID.h"
#include "RamDiskInfrastructure/Redirects/HomeTree.h"
#include "RamDiskInfrastructure/Redirects/RedirectStep.h"

#include <filesystem>
#include <string>

namespace ramdisk {

/// The folders above a redirected one that had to be made for it, such as a ~/.cache that nobody had yet.
///
/// Each holds a marker file named after the redirect, so that they can be told from folders of the user's and
/// removed again, once nothing else is in them. They are made, and removed, under a hidden name and change
/// names in one step: a crash leaves nothing that could be taken for a folder of the user's.
class MadeFolders {
public:
    MadeFolders(std::filesystem::path home, const UUID& redirect, StepObserver observer);

    /// Makes what is missing of the way.
    /// @throws SystemCallError
    void make(const OpenedFolder& existing) const;

    /// Removes what `make` made on the way to `relative`, as far as nothing else is in it.
    /// @throws SystemCallError
    void remove(const std::filesystem::path& relative) const;

private:
    void removeUnfinished(const OpenedFolder& parent, const std::filesystem::path& below,
                          const std::string& finishedName) const;
    void removeFinished(const OpenedFolder& parent, const std::string& name) const;

    std::filesystem::path home_;
    std::string marker_;
    std::string hidden_;
    StepObserver observer_;
};

} // namespace ramdisk
