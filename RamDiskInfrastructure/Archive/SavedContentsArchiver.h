#pragma once

#include "RamDiskInfrastructure/Archive/SavedCopyFolder.h"
#include "RamDiskInfrastructure/Archive/SavedImageTool.h"

#include <memory>
#include <string_view>

namespace ramdisk {

/// Saving and restoring as it is done on every platform: when a copy counts as good, under which names copies
/// lie, and how an earlier one makes room for the next.
///
/// A new image is made as ".UUID.partial-UUID.sparseimage" and takes the latest's name in one step, when it
/// holds what the disk held both before and after it was filled. Just before, the latest gets a second name,
/// "UUID.earlier-SECONDS.sparseimage", so that at no moment there is less than there was. Copies beyond those
/// to keep are retired afterwards. A process killed between any two of these steps leaves a partial image or
/// a second name, which the next operation removes.
class SavedContentsArchiver : public ContentArchiving {
public:
    /// Told before each step of a save or a rotation; may throw to make that step fail.
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
