#pragma once

#include "RamDiskInfrastructure/Archive/SavedCopyFolder.h"
#include "RamDiskInfrastructure/Archive/SavedImageTool.h"

#include <memory>
#include <string_view>

namespace ramdisk {

/// The part of saving and restoring that is the same on every platform: when a copy counts as good, how
/// copies are named, and how the latest one makes room for the next.
///
/// A new image is made as ".UUID.partial-UUID.sparseimage". If it holds what the disk held both before and
/// after it was filled, it takes the latest's name in one step. Just before that, the latest gets a second
/// name, "UUID.earlier-SECONDS.sparseimage", so that there are never fewer copies than before. Afterwards the
/// copies beyond those to keep are retired. A process that is killed between any two of these steps leaves a
/// partial image or a second name, which the next operation removes.
class SavedContentsArchiver : public ContentArchiving {
public:
    /// Called before each step of a save or a rotation. May throw to make that step fail.
    using StepObserver = SavedCopyFolder::StepObserver;

    explicit SavedContentsArchiver(std::shared_ptr<SavedImageTool> tool, StepObserver steps = {},
                                   HardLinks hardLinks = HardLinks::whereSupported);

    void requireSupport(const RamDisk& disk) const override;
    SaveOutcome save(const SaveRequest& request, const ProgressObserver& observer) override;
    RestoredVolume restore(const RestoreRequest& request, const ProgressObserver& observer) override;
    void tidy(const SavedCopyFiles& files) override;
    [[nodiscard]] std::vector<SavedCopy> copies(const SavedCopyFiles& files) override;
    [[nodiscard]] SavedVolume describe(const std::filesystem::path& image,
                                       const VolumeProtection& protection) override;
    void remove(const SavedCopyFiles& files) override;

private:
    SaveOutcome save(const SaveRequest& request, SaveSource& source, const SavedCopyFolder& folder,
                     const ProgressObserver& observer);
    void fill(const std::filesystem::path& partial, const SaveRequest& request, SaveSource& source,
              const ProgressObserver& observer);
    [[nodiscard]] SavedCopyFolder folderOf(const SavedCopyFiles& files) const;
    void step(std::string_view name) const;
    static void requirePresent(const SaveSource& source);

    std::shared_ptr<SavedImageTool> tool_;
    StepObserver steps_;
    HardLinks hardLinks_;
};

} // namespace ramdisk
