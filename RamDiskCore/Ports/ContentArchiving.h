#pragma once

#include "RamDiskCore/Ports/Port.h"
#include "RamDiskCore/Ports/TransferProgress.h"
#include "RamDiskCore/Values/RamDisk.h"
#include "RamDiskCore/Values/RamDiskError.h"
#include "RamDiskCore/Values/SavedContents.h"
#include "RamDiskCore/Values/VolumeProtection.h"

#include <cstdint>
#include <filesystem>
#include <vector>

namespace ramdisk {

/// Whether a copy is read back and compared before it counts.
enum class Verification { no, yes };

/// The result of a save that did not fail.
enum class SaveOutcome {
    saved,
    /// The latest copy holds exactly what is on the disk, and was left as it is.
    nothingChanged,
};

/// What a restore does with what is on the disk.
enum class RestoreMode {
    /// It stays, except for what the copy holds under the same name.
    fill,
    /// Everything on the disk is replaced by the copy.
    replace,
};

/// A save that is to be made.
struct SaveRequest {
    /// The disk to save, mounted.
    RamDisk disk;
    SavedCopyFiles files;
    /// How many copies are kept besides the latest.
    std::uint32_t previousCopies = 0;
    /// What guards the image.
    VolumeProtection protection{};
    Verification verification = Verification::no;
};

/// A copy that is to be put onto a disk.
struct RestoreRequest {
    /// The latest copy or an earlier one.
    std::filesystem::path image;
    SavedCopyFiles files;
    /// The disk to fill, mounted.
    RamDisk disk;
    VolumeProtection protection{};
    RestoreMode mode = RestoreMode::fill;
};

/// A restore found files in the copy that are not what was saved, and no other copy has them. All other files
/// are on the disk.
class SomeFilesDamaged : public RamDiskError {
public:
    using RamDiskError::RamDiskError;
};

/// A save kept all files but some that no image can hold. They are on the disk alone.
class SomeFilesNotSaved : public RamDiskError {
public:
    using RamDiskError::RamDiskError;
};

/// A restore ended because the disk is full, although it is as large as the one that was saved: two file
/// systems need not take the same room for the same files. A disk with `hasRestoreRoom` can hold them.
class CopyNeedsRoom : public RamDiskError {
public:
    using RamDiskError::RamDiskError;
};

/// Saves the files of disks into images and puts them back.
///
/// An image is never changed in place. A save that fails, or whose process dies at any point, leaves the
/// latest copy and the earlier ones as they were. What else it left is removed by the next operation on the
/// same files. The caller keeps two operations, also of two processes, from working on the same files at a
/// time. Operations on different files are independent.
class ContentArchiving : public Port {
public:
    /// Refuses a disk whose files cannot be saved on this machine, before anybody relies on it.
    /// @throws RamDiskError `contentsTransferFailed` with the reason, `diskEjected`
    virtual void requireSupport(const RamDisk& disk) const = 0;

    /// Makes the files on the disk the latest copy. When it returns, the copy is on the system disk and
    /// survives a power cut; the former latest is kept as an earlier copy as long as `previousCopies` says.
    /// @throws SomeFilesNotSaved with the names of what the copy, which is the latest from now on, could not
    ///         take. A copy without them never follows one that has them.
    /// @throws RamDiskError `filesKeptChanging`, `diskEjected`, `incorrectPassphrase`,
    ///         `contentsTransferFailed`, all with the copies as they were.
    virtual SaveOutcome save(const SaveRequest& request, const ProgressObserver& observer) = 0;

    /// Puts the files of a copy onto the disk. The observer is told before the disk is changed for the first
    /// time: a restore that fails without having told it left the disk as it was. An earlier copy takes the
    /// place of the latest afterwards, and the latest becomes an earlier one.
    /// @throws CopyNeedsRoom; SomeFilesDamaged, and then no copy takes another's place.
    /// @throws RamDiskError `imageEjected`, `imageUnreadable`, `imageOpenAlready`, `imageStateUnknown`,
    ///         `incorrectPassphrase`, `namesMerged`, `contentsTransferFailed`. The image is as it was; on the
    ///         disk is what was copied so far.
    virtual RestoredVolume restore(const RestoreRequest& request, const ProgressObserver& observer) = 0;

    /// Repairs what an operation left whose process died. Every other operation that changes something does
    /// so too.
    /// @throws std::exception when the folder cannot be read.
    virtual void tidy(const SavedCopyFiles& files) = 0;

    /// The copies, the latest first, then from the newest to the oldest. Empty when nothing was saved.
    /// @throws std::exception when the folder cannot be read.
    [[nodiscard]] virtual std::vector<SavedCopy> copies(const SavedCopyFiles& files) = 0;

    /// What the volume in an image holds.
    /// @throws RamDiskError as `restore`.
    [[nodiscard]] virtual SavedVolume describe(const std::filesystem::path& image,
                                               const VolumeProtection& protection) = 0;

    /// Deletes the latest copy, the earlier ones and everything else that was made beside them.
    /// @throws std::exception when some of it stays.
    virtual void remove(const SavedCopyFiles& files) = 0;
};

} // namespace ramdisk
