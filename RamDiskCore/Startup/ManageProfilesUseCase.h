#pragma once

#include "RamDiskCore/Ports/ContentArchiving.h"
#include "RamDiskCore/Ports/ContentStorageLocating.h"
#include "RamDiskCore/Ports/ProfileRepository.h"
#include "RamDiskCore/Ports/SecretStoring.h"
#include "RamDiskCore/Values/RamDisk.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

namespace ramdisk {

/// Keeps the list of startup disks. Removing a profile also removes its saved contents and their key.
class ManageProfilesUseCase {
public:
    ManageProfilesUseCase(std::shared_ptr<ProfileRepository> repository,
                          std::shared_ptr<ContentStorageLocating> storage,
                          std::shared_ptr<SecretStoring> secrets, std::shared_ptr<ContentArchiving> archiver);

    [[nodiscard]] std::vector<RamDiskProfile> list() const;

    /// How many stored entries this version does not understand; they are kept as they are.
    [[nodiscard]] std::size_t notUnderstood() const { return repository_->notUnderstood(); }
    /// False when the list is there but cannot be read; it then counts as empty.
    [[nodiscard]] bool isReadable() const;
    /// @throws std::exception that names such a list and says what helps. Everything below throws it too.
    void requireReadable() const;

    /// The startup disk of this name, whether it is mounted or not.
    [[nodiscard]] std::optional<RamDiskProfile> named(std::string_view name) const;

    /// Stores the profile in place of the one with the same identifier, or as a new one.
    /// @throws RamDiskError `invalidSpecification` when another startup disk has the name; std::exception
    ///         when the list could not be stored. In both cases nothing has changed.
    void store(const RamDiskProfile& profile);

    /// The same for the profile of a disk that exists. If it keeps its files, this is noted beside the saved
    /// copies too, so that it stays known when the list is damaged.
    /// @throws also as `requireKeyStore`, when the disk did not keep files before.
    void store(const RamDiskProfile& profile, const RamDisk& disk);

    /// Refuses encrypted disks that are to keep files where no key can be kept.
    /// @throws std::exception of the key's store.
    void requireKeyStore() const;

    /// Gives the new profile of a disk what the notes beside the saved copies know of it: if its record was
    /// lost, it has its identifier again, keeps its files, and none of its copies is given up.
    /// @throws RamDiskError `contentsTransferFailed` when its record is one that is not understood.
    void takeUpCopies(RamDiskProfile& profile, const RamDisk& disk) const;

    /// The startup disks that have saved copies and no record any more. Empty while the list cannot tell.
    [[nodiscard]] std::vector<UUID> lostCopies() const;

    /// A record for such copies, with the name and the size of the disk that was saved, and everything else
    /// as `defaults` says. It is not stored. No disk that stands may keep these files.
    /// @throws std::runtime_error when there are no such copies or such a disk stands; RamDiskError
    ///         `savedContentsKeyMissing`, and as `ContentArchiving::describe`; std::exception of the key's
    ///         store.
    [[nodiscard]] RamDiskProfile profileForLostCopies(const UUID& owner, RamDiskProfile defaults,
                                                      const std::vector<RamDisk>& standing) const;

    /// Whether any copy of the profile's files is stored, also a damaged one.
    [[nodiscard]] bool hasCopies(const RamDiskProfile& profile) const;

    /// Deletes the saved contents, the profile and the key, in this order. So a crash in between leaves a
    /// profile without saved contents, but never saved contents without a profile. Waits for a save that is
    /// running.
    /// @throws std::exception; what is left is then still listed.
    void remove(const RamDiskProfile& profile);

private:
    std::shared_ptr<ProfileRepository> repository_;
    std::shared_ptr<ContentStorageLocating> storage_;
    std::shared_ptr<SecretStoring> secrets_;
    std::shared_ptr<ContentArchiving> archiver_;
};

} // namespace ramdisk
