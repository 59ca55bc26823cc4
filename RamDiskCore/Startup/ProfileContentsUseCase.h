#pragma once

#include "RamDiskCore/Disks/ListRamDisksUseCase.h"
#include "RamDiskCore/Ports/ContentArchiving.h"
#include "RamDiskCore/Ports/ContentStorageLocating.h"
#include "RamDiskCore/Ports/PassphraseGenerating.h"
#include "RamDiskCore/Ports/ProfileRepository.h"
#include "RamDiskCore/Ports/SecretStoring.h"
#include "RamDiskCore/Startup/KeptDisk.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace ramdisk {

/// What a save does with a disk on which the saved files were not put back.
enum class Unrestored {
    refused,
    /// What is on the disk becomes the saved files, and the former latest becomes an earlier copy.
    taken,
};

/// Saves the files of startup disks and puts them back.
///
/// The most important rule: a saved copy is only ever followed by a newer state of the same files. If the
/// files were not put back on a disk, or only some of them, that disk is never saved. Two notes beside the
/// copies make this hold across processes and crashes: the disk that the copies belong to, and the disk that
/// is being filled with them. Every operation on a profile's copies holds the profile's lock.
class ProfileContentsUseCase {
public:
    struct Ports {
        std::shared_ptr<ContentArchiving> archiver;
        std::shared_ptr<ContentStorageLocating> storage;
        std::shared_ptr<SecretStoring> secrets;
        std::shared_ptr<PassphraseGenerating> passphrases;
        std::shared_ptr<ListRamDisksUseCase> list;
        std::shared_ptr<ProfileRepository> profiles;
    };

    explicit ProfileContentsUseCase(Ports ports);

    /// Runs `body` while no other process works on the profile's copies, and returns when it has ended.
    /// @throws what the body throws.
    void whileLocked(const RamDiskProfile& profile, const std::function<void()>& body) const;

    /// Whether the profile's saved copies hold this disk's files.
    [[nodiscard]] bool isBound(const KeptDisk& kept) const;

    /// Whether the notes beside the copies say that this disk keeps the profile's files.
    [[nodiscard]] bool isNoted(const KeptDisk& kept) const;

    /// Whether those notes say so for a profile that is not among `profiles`: its record is lost.
    [[nodiscard]] bool isOrphan(const RamDisk& disk, const std::vector<RamDiskProfile>& profiles) const;
    /// The folder of saved files, other than the one in use, that keeps the files of this disk.
    [[nodiscard]] std::optional<std::filesystem::path> keptElsewhere(const RamDisk& disk) const;

    /// Notes that the disk keeps files of which there is no copy yet. Does nothing once there is one.
    void noteUnsaved(const KeptDisk& kept);

    /// What became of the files of a disk that goes.
    enum class LeftFiles { saved, givenUp };

    /// Notes that the disk goes because somebody wants it to, with its files saved or given up. The caller
    /// holds the profile's lock from before the disk is gone.
    void noteLeft(const KeptDisk& kept, LeftFiles files);

    /// Whether a disk that is gone was not left by `noteLeft` and still is to keep its files. Waits for an
    /// eject that is under way.
    [[nodiscard]] bool wasLost(const KeptDisk& kept) const;

    [[nodiscard]] RestoreState state(const KeptDisk& kept) const;

    /// Repairs what a save or a restore left when its process died. The caller holds the profile's lock.
    void tidy(const RamDiskProfile& profile);

    /// Notes that a disk is about to be made and filled with the profile's files. If this process dies before
    /// it begins to fill the disk, the note shows that the disk still has to be filled. The caller holds the
    /// profile's lock.
    /// @param replacement the file name of the copy that replaces everything on the disk, where it is not
    /// just
    ///        filled with the latest.
    void announceDisk(const RamDiskProfile& profile, const std::optional<std::string>& replacement = {});
    /// The file name of the copy that an interrupted `load` was putting onto the disk.
    [[nodiscard]] std::optional<std::string> interruptedLoad(const KeptDisk& kept) const;
    /// Removes this note: no disk was made after all.
    void withdrawDisk(const RamDiskProfile& profile);

    /// Whether filling the disk was interrupted after it began or just before.
    [[nodiscard]] bool isPartlyFilled(const KeptDisk& kept) const;

    /// Refuses a disk whose files must not become the latest copy.
    /// @throws RamDiskError `beingFilled`, `partlyFilled`, `savedContentsNotRestored`
    void requireRestored(const KeptDisk& kept) const;

    /// The same for a caller that holds the profile's lock.
    /// @throws RamDiskError `partlyFilled`, `savedContentsNotRestored`
    void requireBound(const KeptDisk& kept) const;

    /// Saves the files on the disk. Refused at once, without waiting, while another process fills the disk.
    /// @throws RamDiskError as `requireRestored`, `savedContentsKeyMissing`, `contentsTransferFailed` when
    /// the
    ///         startup disk was removed meanwhile, and as `ContentArchiving::save`; std::exception of the
    ///         key's store. The copies are then as they were.
    SaveOutcome save(const KeptDisk& kept, Verification verification, const ProgressObserver& observer,
                     Unrestored unrestored = Unrestored::refused);

    /// Puts the latest copy onto a new disk, or goes on with a disk that was partly filled, with the copy
    /// that was being put on it. The caller holds the profile's lock.
    /// @returns false when no files were ever saved.
    /// @throws RamDiskError `savedContentsKeyMissing`, `contentsTransferFailed` when the copies are gone, and
    ///         as `ContentArchiving::restore`; std::exception of the key's store. `isPartlyFilled` tells
    ///         whether some of it was copied and the rest is still to be. Some files being damaged is no such
    ///         case: the disk then counts as one on which the saved files were not put back.
    bool restore(const KeptDisk& kept, const ProgressObserver& observer);

    /// Replaces everything on the disk by a copy; 1 is the latest. From then on this disk may be saved.
    /// @throws RamDiskError `contentsTransferFailed` when there is no such copy, and as `restore`.
    RestoredVolume load(const KeptDisk& kept, std::size_t number, const ProgressObserver& observer);

    /// The copies of a profile, the latest first.
    [[nodiscard]] std::vector<SavedCopy> copies(const RamDiskProfile& profile) const;

private:
    enum class KeyUse { onlyExisting, mayBeNew };

    [[nodiscard]] SavedCopyFiles files(const RamDiskProfile& profile) const;
    [[nodiscard]] VolumeProtection protection(const RamDiskProfile& profile, KeyUse use) const;
    void requireListed(const KeptDisk& kept) const;
    void requireNotFilling(const KeptDisk& kept) const;
    /// Whether the latest of the profile's disks was ejected with its files saved.
    [[nodiscard]] bool wasLeftSaved(const KeptDisk& kept) const;
    /// Whether files were saved once. If no copy is there, they are lost.
    [[nodiscard]] bool hadCopies(const RamDiskProfile& profile) const;
    /// The record as it is now.
    [[nodiscard]] RamDiskProfile currentProfile(const KeptDisk& kept) const;
    void refuseUnrestored(const KeptDisk& kept, Unrestored unrestored) const;
    RestoredVolume fill(const KeptDisk& kept, const std::filesystem::path& image, RestoreMode mode,
                        const ProgressObserver& observer);

    Ports ports_;
};

} // namespace ramdisk
