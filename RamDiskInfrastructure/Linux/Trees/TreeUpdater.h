#pragma once

#include "RamDiskInfrastructure/Linux/Trees/FolderCursor.h"
#include "RamDiskInfrastructure/Linux/Trees/ParallelJobs.h"
#include "RamDiskInfrastructure/Linux/Trees/TreeUpdatePlan.h"

namespace ramdisk {

class FileWriter;

/// Carries out the plan of one update, step by step.
class TreeUpdater {
public:
    TreeUpdater(const TreeUpdate& update, const ProgressObserver& observer);

    void perform();

private:
    using Contents = TreeManifest::Contents;

    /// What one thread works with.
    struct Places {
        FolderCursor source;
        FolderCursor target;
    };

    void openSealedFolders();
    void removeItems();
    void makeFolders();
    void writeItems();
    void writeItem(std::uint32_t item, Places& places, FileWriter& writer);
    void writeFile(std::uint32_t item, Places& places, FileWriter& writer);
    void makeSpecial(std::uint32_t item, Places& places);
    void makeLinks();
    void finishFolders();

    [[nodiscard]] int targetFolder(FolderCursor& cursor, std::uint32_t folder) const;
    [[nodiscard]] FileDescriptor openTarget(int folder, std::uint32_t item, int flags) const;

    const TreeUpdate& update_;
    const Contents& source_;
    const Contents& target_;
    TreeUpdatePlan plan_;
    ProgressMeter meter_;
    /// Items of the source that are gone by now. A byte each: several threads write to it.
    std::vector<char> gone_;
};

} // namespace ramdisk
