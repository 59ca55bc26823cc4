#pragma once

#include "RamDiskCore/Values/SavedContents.h"
#include "RamDiskInfrastructure/Archive/SavedCopyNames.h"
#include "RamDiskInfrastructure/Archive/SavedImageTool.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string_view>
#include <vector>

namespace ramdisk {

/// Whether a second name may be given to a file where the file system knows such a thing.
enum class HardLinks { whereSupported, never };

/// The files of one disk's saved copies, and every change of their names.
///
/// No sequence of changes leaves less than there was at any of its steps, and `tidy` brings what a process
/// that died between two of them left behind to the state before or after. Where the file system has no hard
/// links, the latest is without its name for a moment, in which the new one waits under the incoming name or,
/// when an earlier copy is brought back, everything under the names of earlier copies.
class SavedCopyFolder {
public:
    /// Told before each step; may throw to make that step fail.
    using StepObserver = std::function<void(std::string_view step)>;

    SavedCopyFolder(const SavedCopyFiles& files, HardLinks hardLinks, const StepObserver& steps);

    /// Ends or undoes what a dead process began. Only for the holder of the disk's lock.
    /// @throws std::exception
    void tidy(SavedImageTool& tool) const;

    /// The latest copy first, then from the newest to the oldest, as they are after a `tidy`. Changes
    /// nothing.
    /// @throws std::exception when the folder cannot be read.
    [[nodiscard]] std::vector<SavedCopy> copies() const;

    /// Puts a whole image in the latest's place; a former latest becomes an earlier copy.
    /// @throws std::exception
    void takePlace(const std::filesystem::path& partial) const;

    /// Puts an earlier copy in the latest's place, and the latest among the earlier ones.
    /// @throws std::exception
    void bringBack(const std::filesystem::path& earlier) const;

    /// Gives up the earlier copies beyond the newest `previousCopies`, the oldest first.
    /// @throws std::exception when the folder cannot be read.
    void prune(std::uint32_t previousCopies, SavedImageTool& tool) const;

    /// @throws std::exception when some of it stays.
    void remove(SavedImageTool& tool) const;

    /// Whether the image is an earlier copy of this folder.
    [[nodiscard]] bool holdsEarlier(const std::filesystem::path& image) const;

private:
    struct Earlier {
        std::filesystem::path image;
        SavedCopyNames::Earlier name;
    };

    /// From the newest to the oldest, without those that are the latest under a second name.
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
