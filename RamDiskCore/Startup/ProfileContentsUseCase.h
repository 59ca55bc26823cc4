#pragma once

#include "RamDiskCore/Disks/ListRamDisksUseCase.h"
#include "RamDiskCore/Ports/ContentArchiving.h"
#include "RamDiskCore/Ports/ContentStorageLocating.h"
#include "RamDiskCore/Ports/PassphraseGenerating.h"
#include "RamDiskCore/Ports/SecretStoring.h"
#include "RamDiskCore/Startup/KeptDisk.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <vector>

namespace ramdisk {

/// Saves the files of startup disks and puts them back.
///
/// The rule above all: a saved copy is only ever followed by a newer state of the same files. A disk onto
/// which they were not put back, or not all of them, is never saved. Which disk that is, is noted beside the
/// copies, so that it holds across processes and crashes: the disk they belong to, and the disk that is being
/// filled with them. Every operation on a profile's copies holds the profile's lock.
class ProfileContentsUseCase {
public:
    struct Ports {
        std::shared_ptr<ContentArchiving> archiver;
        std::shared_ptr<ContentStorageLocating> storage;
        std::shared_ptr<SecretStoring> secrets;
        std::shared_ptr<PassphraseGenerating> passphrases;
        std::shared_ptr<ListRamDisksUseCase> list;
    };

    explicit ProfileContentsUseCase(Ports ports);

    /// Runs `body` while no other process works on the profile's copies, and waits for its end.
    /// @throws what the body throws.
    void whileLocked(const RamDiskProfile& profile, const std::function<void()>& body) const;

    /// Whether the profile's saved copies are this disk's files.
    [[nodiscard]] bool isBound(const KeptDisk& kept) const;

    [[nodiscard]] RestoreState state(const KeptDisk& kept) const;

    /// Puts right what a save or a restore left that died. The caller holds the profile's lock.
    void tidy(const RamDiskProfile& profile);

    /// Notes that a disk is about to be made that is to be filled with the profile's files, so that it is
    /// known as such should this process die before it begins to fill it. The caller holds the profile's
    /// lock.
    void announceDisk(const RamDiskProfile& profile);
    /// No disk was made after all.
    void withdrawDisk(const RamDiskProfile& profile);

    /// Whether filling the disk began, or was about to, and broke off.
    [[nodiscard]] bool isPartlyFilled(const KeptDisk& kept) const;

    /// Refuses a disk whose files must not become the latest copy.
    /// @throws RamDiskError `beingFilled`, `partlyFilled`, `savedContentsNotRestored`
    void requireRestored(const KeptDisk& kept) const;

    /// The same for who holds the profile's lock himself.
    /// @throws RamDiskError `partlyFilled`, `savedContentsNotRestored`
    void requireBound(const KeptDisk& kept) const;

    /// Saves the files on the disk. Refused at once, without waiting, while another process fills the disk.
    /// @throws RamDiskError as `requireRestored`, `savedContentsKeyMissing`, and as `ContentArchiving::save`;
    ///         std::exception of the key's store. The copies are then as they were.
    SaveOutcome save(const KeptDisk& kept, Verification verification, const ProgressObserver& observer);

    /// Puts the latest copy onto a disk that was just made, or onto which that began before. The caller holds
    /// the profile's lock.
    /// @returns false when there is no copy.
    /// @throws RamDiskError `savedContentsKeyMissing`, and as `ContentArchiving::restore`; std::exception of
    ///         the key's store. `isPartlyFilled` tells whether anything was copied.
    bool restore(const KeptDisk& kept, const ProgressObserver& observer);

    /// Replaces everything on the disk by a copy, 1 being the latest. From then on the disk is what is saved.
    /// @throws RamDiskError `contentsTransferFailed` when there is no such copy, and as `restore`.
    RestoredVolume load(const KeptDisk& kept, std::size_t number, const ProgressObserver& observer);

    /// The copies of a profile, the latest first.
    [[nodiscard]] std::vector<SavedCopy> copies(const RamDiskProfile& profile) const;

private:
    enum class KeyUse { onlyExisting, mayBeNew };

    [[nodiscard]] SavedCopyFiles files(const RamDiskProfile& profile) const;
    [[nodiscard]] VolumeProtection protection(const RamDiskProfile& profile, KeyUse use) const;
    void requireListed(const RamDisk& disk) const;
    RestoredVolume fill(const KeptDisk& kept, const std::filesystem::path& image, RestoreMode mode,
                        const ProgressObserver& observer);

    Ports ports_;
};

} // namespace ramdisk
