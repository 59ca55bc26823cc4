#pragma once

#include "RamDiskCore/Values/UUID.h"
#include "RamDiskInfrastructure/Redirects/HomeTree.h"
#include "RamDiskInfrastructure/Redirects/RedirectStep.h"

#include <filesystem>
#include <string>

namespace ramdisk {

/// The folders above a redirected one that had to be made for it, such as a ~/.cache that did not exist.
///
/// Each holds a marker file named after the redirect. The marker tells it from the user's folders, so that it
/// can be removed again when nothing else is in it. It is made and removed under a hidden name, and changes
/// its name in one step. So a crash leaves nothing that looks like a folder of the user's.
class MadeFolders {
public:
    MadeFolders(std::filesystem::path home, const UUID& redirect, StepObserver observer);

    /// Makes the missing folders.
    /// @throws SystemCallError
    void make(const OpenedFolder& existing) const;

    /// Removes what `make` made on the way to `relative`, unless something else is in it.
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
