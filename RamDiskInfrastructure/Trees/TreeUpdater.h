#pragma once

#include "RamDiskInfrastructure/Trees/FileWriter.h"
#include "RamDiskInfrastructure/Trees/FolderCursor.h"
#include "RamDiskInfrastructure/Trees/ParallelJobs.h"
#include "RamDiskInfrastructure/Trees/TreeUpdatePlan.h"

namespace ramdisk {

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

    /// Takes the flags from all items of the target that the update may change.
    void liftFlags();
    void openSealedFolders();
    void removeItems();
    void makeFolders();
    void writeItems();
    void removeUnfinished() noexcept;
    /// One item, or a part of a large file.
    struct Job {
        std::uint32_t item;
        FileWriter::Part part;
        bool isGone = false;
        bool isAsListed = true;
    };

    /// Everything that `writeItems` has to do, in order. Large files are divided into parts.
    [[nodiscard]] std::vector<Job> jobs() const;
    /// Whether the item's contents are written in parts, between `prepareLargeFile` and `finishLargeFile`.
    [[nodiscard]] bool isLarge(std::uint32_t item) const;
    void prepareLargeFile(std::uint32_t item, Places& places);
    void finishLargeFile(std::uint32_t item, Places& places);
    void writePart(Job& job, Places& places, FileWriter& writer);
    /// These two return whether the contents were as they are listed.
    [[nodiscard]] bool writeItem(std::uint32_t item, Places& places, FileWriter& writer);
    [[nodiscard]] bool writeFile(std::uint32_t item, Places& places, FileWriter& writer);
    void makeSpecial(std::uint32_t item, Places& places);
    void tellDiffering(const std::vector<Job>& jobs) const;
    void makeLinks();
    void finishFolders();
    void setFlags();

    /// Gives an open item of the target its metadata.
    void apply(int target, std::uint32_t item) const;
    /// No descriptor when the file is gone.
    [[nodiscard]] FileDescriptor openSource(std::uint32_t item, Places& places) const;
    [[nodiscard]] FileDescriptor makeFile(std::uint32_t item, Places& places);
    void leaveOut(std::uint32_t item, Places& places);
    [[nodiscard]] int targetFolder(FolderCursor& cursor, std::uint32_t folder) const;
    [[nodiscard]] FileDescriptor openTarget(int folder, std::uint32_t item, int flags) const;

    const TreeUpdate& update_;
    const Contents& source_;
    const Contents& target_;
    TreeUpdatePlan plan_;
    ProgressMeter meter_;
    Renewals renewals_;
    /// Items of the source that are gone by now. A byte each: several threads write to it.
    std::vector<char> gone_;
    /// Files that this update made and has not filled yet, in the same way.
    std::vector<char> unfinished_;
};

} // namespace ramdisk
