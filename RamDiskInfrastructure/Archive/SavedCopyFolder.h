#pragma once

#include "RamDiskCore/Values/SavedContents.h"
#include "RamDiskInfrastructure/Archive/SavedCopyNames.h"
#include "RamDiskInfrastructure/Archive/SavedImageTool.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string_view>
#include <vector>

namespace ramdisk {

/// Whether a file may get a second name, if the file system supports that.
enum class HardLinks { whereSupported, never };

/// The files of one disk's saved copies, and every change of their names.
///
/// At no step of a change are there fewer copies than before. When a process died between two steps, `tidy`
/// restores the state before or after the change. Where the file system has no hard links, there is no latest
/// for a moment. Then the new image waits under the incoming name or, when an earlier copy is brought back,
/// all copies have names of earlier ones.
class SavedCopyFolder {
public:
    /// Called before each step. May throw to make that step fail.
    using StepObserver = std::function<void(std::string_view step)>;

    SavedCopyFolder(const SavedCopyFiles& files, HardLinks hardLinks, const StepObserver& steps);

    /// Completes or undoes what a dead process began. Only for the holder of the disk's lock.
    /// @throws std::exception
    void tidy(SavedImageTool& tool) const;

    /// The latest copy first, then from the newest to the oldest, as they are after a `tidy`. Changes
    /// nothing.
    /// @throws as `requireOwnPlace`; std::exception when the folder cannot be read.
    [[nodiscard]] std::vector<SavedCopy> copies() const;

    /// Refuses to work where something that is no copy lies in the latest's place.
    /// @throws RamDiskError `contentsTransferFailed`
    void requireOwnPlace() const;

    /// Puts a complete image in the latest's place. The former latest, if there is one, becomes an earlier
    /// copy.
    /// @throws std::exception
    void takePlace(const std::filesystem::path& partial) const;

    /// Makes an earlier copy the latest, and the latest an earlier copy.
    /// @throws std::exception
    void bringBack(const std::filesystem::path& earlier) const;

    /// Retires the earlier copies beyond the newest `previousCopies`, the oldest first.
    /// @throws std::exception when the folder cannot be read.
    void prune(std::uint32_t previousCopies, SavedImageTool& tool) const;

    /// @throws std::exception when some of it stays.
    void remove(SavedImageTool& tool) const;

    /// Whether the image is an earlier copy of this folder.
    [[nodiscard]] bool holdsEarlier(const std::filesystem::path& image) const;

    /// The further name of an image that was found to be damaged. Absent for every other image.
    [[nodiscard]] std::optional<std::filesystem::path> damagedName(const std::filesystem::path& image) const;

private:
    struct Earlier {
        std::filesystem::path image;
        SavedCopyNames::Earlier name;
    };

    /// From the newest to the oldest. An earlier name of the latest's own file does not count.
    [[nodiscard]] std::vector<Earlier> earlierCopies() const;
    [[nodiscard]] std::vector<std::filesystem::path> entries() const;
    [[nodiscard]] bool linkTo(const std::filesystem::path& image, const std::filesystem::path& name) const;
    [[nodiscard]] std::filesystem::path freeEarlierName() const;
    void removePartials(SavedImageTool& tool) const;
    void step(std::string_view name) const;

    SavedCopyNames names_;
    HardLinks hardLinks_;
    const StepObserver& steps_;
};

} // namespace ramdisk
