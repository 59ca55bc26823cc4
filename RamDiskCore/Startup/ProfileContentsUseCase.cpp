#include "RamDiskCore/Startup/ProfileContentsUseCase.h"

#include "RamDiskCore/Values/RamDiskError.h"

#include <algorithm>
#include <string>

namespace ramdisk {

ProfileContentsUseCase::ProfileContentsUseCase(Ports ports) : ports_(std::move(ports)) {}

void ProfileContentsUseCase::whileLocked(const RamDiskProfile& profile,
                                         const std::function<void()>& body) const {
    ports_.storage->withLock(profile.id, body).get();
}

SavedCopyFiles ProfileContentsUseCase::files(const RamDiskProfile& profile) const {
    return {ports_.storage->imageLocation(profile.id)};
}

std::vector<SavedCopy> ProfileContentsUseCase::copies(const RamDiskProfile& profile) const {
    return ports_.archiver->copies(files(profile));
}

bool ProfileContentsUseCase::isBound(const KeptDisk& kept) const {
    const auto bound = ports_.storage->boundInstance(kept.profile.id);
    return bound && bound == kept.disk.instance;
}

bool ProfileContentsUseCase::isNoted(const KeptDisk& kept) const {
    const auto& instance = kept.disk.instance;
    const auto& profile = kept.profile.id;
    const auto filling = ports_.storage->filling(profile);
    return instance
           && (isBound(kept) || ports_.storage->unsavedInstance(profile) == instance
               || (filling && filling->instance == *instance));
}

bool ProfileContentsUseCase::isOrphan(const RamDisk& disk,
                                      const std::vector<RamDiskProfile>& profiles) const {
    const auto owners = disk.instance ? ports_.storage->ownersOf(*disk.instance) : std::vector<UUID>{};
    return std::any_of(owners.begin(), owners.end(), [&profiles](const UUID& owner) {
        return std::none_of(profiles.begin(), profiles.end(),
                            [&owner](const RamDiskProfile& profile) { return profile.id == owner; });
    });
}

std::optional<std::filesystem::path> ProfileContentsUseCase::keptElsewhere(const RamDisk& disk) const {
    return disk.instance ? ports_.storage->keptElsewhere(*disk.instance) : std::nullopt;
}

bool ProfileContentsUseCase::hadCopies(const RamDiskProfile& profile) const {
    // A first save that was killed is no copy that got lost.
    return ports_.storage->boundInstance(profile.id) && !ports_.storage->unsavedInstance(profile.id);
}

void ProfileContentsUseCase::noteUnsaved(const KeptDisk& kept) {
    if (kept.disk.instance && !hadCopies(kept.profile)
        && ports_.storage->unsavedInstance(kept.profile.id) != kept.disk.instance
        && copies(kept.profile).empty()) {
        ports_.storage->setUnsavedInstance(kept.profile.id, kept.disk.instance);
    }
}

void ProfileContentsUseCase::noteLeft(const KeptDisk& kept, LeftFiles files) {
    auto& storage = *ports_.storage;
    const auto& profile = kept.profile.id;
    const auto& instance = kept.disk.instance;
    // Neither is any disk's, so that copies that are gone later are still missed.
    if (files == LeftFiles::givenUp && storage.boundInstance(profile)) {
        storage.bind(profile, UUID::random());
    } else if (isBound(kept)) {
        storage.bind(profile, profile);
    }
    if (instance && storage.unsavedInstance(profile) == instance) {
        storage.setUnsavedInstance(profile, std::nullopt);
    }
    if (const auto filling = storage.filling(profile); filling && filling->instance == instance) {
        storage.setFilling(profile, std::nullopt);
    }
}

bool ProfileContentsUseCase::wasLost(const KeptDisk& kept) const {
    bool isLost = false;
    whileLocked(kept.profile, [&] {
        const auto profiles = ports_.profiles->load();
        const bool isGivenUp = std::any_of(profiles.begin(), profiles.end(), [&](const auto& profile) {
            return profile.id == kept.profile.id && !profile.keepsContents;
        });
        isLost = !isGivenUp && isNoted(kept);
    });
    return isLost;
}

RestoreState ProfileContentsUseCase::state(const KeptDisk& kept) const {
    if (!isPartlyFilled(kept)
        && (isBound(kept) || (!hadCopies(kept.profile) && copies(kept.profile).empty()))) {
        return RestoreState::restored;
    }
    // Whoever made the disk holds the lock from before the disk appears until its files are on it.
    return ports_.storage->isLocked(kept.profile.id) ? RestoreState::restoring : RestoreState::awaiting;
}

bool ProfileContentsUseCase::isPartlyFilled(const KeptDisk& kept) const {
    const auto filling = ports_.storage->filling(kept.profile.id);
    return filling
           && (filling->instance == kept.disk.instance
               || (filling->instance == kept.profile.id && !isBound(kept)));
}

void ProfileContentsUseCase::tidy(const RamDiskProfile& profile) {
    ports_.archiver->tidy(files(profile));
}

void ProfileContentsUseCase::announceDisk(const RamDiskProfile& profile,
                                          const std::optional<std::string>& replacement) {
    if (!copies(profile).empty()) {
        ports_.storage->setFilling(profile.id, Filling{profile.id, replacement});
    }
}

std::optional<std::string> ProfileContentsUseCase::interruptedLoad(const KeptDisk& kept) const {
    const auto filling = ports_.storage->filling(kept.profile.id);
    const bool isOfDisk =
        filling && (filling->instance == kept.disk.instance || filling->instance == kept.profile.id);
    return isOfDisk ? filling->replacement : std::nullopt;
}

void ProfileContentsUseCase::withdrawDisk(const RamDiskProfile& profile) {
    const auto filling = ports_.storage->filling(profile.id);
    if (filling && filling->instance == profile.id) {
        ports_.storage->setFilling(profile.id, std::nullopt);
    }
}

void ProfileContentsUseCase::requireRestored(const KeptDisk& kept) const {
    switch (state(kept)) {
    case RestoreState::restored:
        return;
    case RestoreState::restoring:
        throw RamDiskError(RamDiskError::BeingFilled{kept.disk.name});
    case RestoreState::awaiting:
        requireBound(kept);
    }
}

void ProfileContentsUseCase::requireBound(const KeptDisk& kept) const {
    if (isPartlyFilled(kept)) {
        throw RamDiskError(RamDiskError::PartlyFilled{kept.disk.name});
    }
    if (!isBound(kept) && (hadCopies(kept.profile) || !copies(kept.profile).empty())) {
        throw RamDiskError(RamDiskError::SavedContentsNotRestored{kept.disk.name});
    }
}

void ProfileContentsUseCase::requireNotFilling(const KeptDisk& kept) const {
    const auto now = state(kept);
    if (now != RestoreState::restored) {
        // Of a disk that is gone since it was looked up, the notes tell nothing any more.
        requireListed(kept);
    }
    if (now == RestoreState::restoring) {
        throw RamDiskError(RamDiskError::BeingFilled{kept.disk.name});
    }
}

bool ProfileContentsUseCase::wasLeftSaved(const KeptDisk& kept) const {
    return ports_.storage->boundInstance(kept.profile.id) == kept.profile.id;
}

void ProfileContentsUseCase::requireListed(const KeptDisk& kept) const {
    const auto& disk = kept.disk;
    const auto listed = ports_.list->list();
    const bool stands = std::any_of(listed.begin(), listed.end(), [&disk](const RamDisk& candidate) {
        return candidate.has(disk.device) && candidate.instance == disk.instance && candidate.mountPoint;
    });
    if (!stands && wasLeftSaved(kept)) {
        throw RamDiskError(RamDiskError::ContentsTransferFailed{
            "“" + disk.name + "” was ejected meanwhile. Its files were saved then."});
    }
    if (!stands) {
        throw RamDiskError(RamDiskError::DiskEjected{});
    }
}

VolumeProtection ProfileContentsUseCase::protection(const RamDiskProfile& profile, KeyUse use) const {
    if (!profile.isEncrypted) {
        return {};
    }
    const auto account = profile.id.text();
    if (auto secret = ports_.secrets->read(account)) {
        return {VolumeProtection::Encrypted{std::move(*secret)}};
    }
    if (use == KeyUse::onlyExisting) {
        throw RamDiskError(RamDiskError::SavedContentsKeyMissing{profile.name});
    }
    auto secret = ports_.passphrases->generate();
    // Before the first image exists: an image whose key was never kept would be lost.
    ports_.secrets->store(account, secret);
    return {VolumeProtection::Encrypted{std::move(secret)}};
}

RamDiskProfile ProfileContentsUseCase::currentProfile(const KeptDisk& kept) const {
    for (auto& profile : ports_.profiles->load()) {
        if (profile.id == kept.profile.id) {
            return std::move(profile);
        }
    }
    // A removal takes the notes along; a list that was damaged leaves them.
    if (ports_.profiles->isReadable() && !isNoted(kept)) {
        throw RamDiskError(
            RamDiskError::ContentsTransferFailed{"“" + kept.disk.name + "” is no longer a startup disk."});
    }
    return kept.profile;
}

void ProfileContentsUseCase::refuseUnrestored(const KeptDisk& kept, Unrestored unrestored) const {
    try {
        requireBound(kept);
    } catch (const RamDiskError& error) {
        const bool isTaken = unrestored == Unrestored::taken
                             && std::holds_alternative<RamDiskError::SavedContentsNotRestored>(error.value());
        if (!isTaken) {
            throw;
        }
    }
}

SaveOutcome ProfileContentsUseCase::save(const KeptDisk& kept, Verification verification,
                                         const ProgressObserver& observer, Unrestored unrestored) {
    requireNotFilling(kept);
    refuseUnrestored(kept, unrestored);
    auto outcome = SaveOutcome::saved;
    whileLocked(kept.profile, [&] {
        // What was waited for may have been another filling, the eject of the disk, or the removal of its
        // record.
        requireListed(kept);
        const auto profile = currentProfile(kept);
        refuseUnrestored(kept, unrestored);
        auto& storage = *ports_.storage;
        const auto former = copies(profile).size();
        const auto bound = storage.boundInstance(profile.id);
        const bool isTaken = former > 0 && !isBound(kept);
        const SaveRequest request{
            kept.disk, files(profile),
            // None of the files that were not put back is given up for those that are there now.
            isTaken ? std::max(profile.previousCopies, static_cast<std::uint32_t>(former))
                    : profile.previousCopies,
            protection(profile, former == 0 ? KeyUse::mayBeNew : KeyUse::onlyExisting), verification};
        if (former == 0 && kept.disk.instance) {
            // Before the copy takes its place: a copy that belongs to no disk could never be followed.
            storage.bind(profile.id, kept.disk.instance);
        }
        std::optional<SomeFilesNotSaved> incomplete;
        try {
            outcome = ports_.archiver->save(request, observer);
        } catch (const SomeFilesNotSaved& error) {
            incomplete = error;
        } catch (...) {
            if (former == 0 && copies(profile).empty()) {
                storage.bind(profile.id, bound);
            }
            throw;
        }
        if (isTaken && kept.disk.instance) {
            storage.bind(profile.id, kept.disk.instance);
        }
        if (storage.unsavedInstance(profile.id)) {
            storage.setUnsavedInstance(profile.id, std::nullopt);
        }
        if (incomplete) {
            throw SomeFilesNotSaved(*incomplete);
        }
    });
    return outcome;
}

bool ProfileContentsUseCase::restore(const KeptDisk& kept, const ProgressObserver& observer) {
    const auto saved = copies(kept.profile);
    if (saved.empty()) {
        if (hadCopies(kept.profile)) {
            throw RamDiskError(RamDiskError::ContentsTransferFailed{
                "the saved copies of “" + kept.disk.name + "” are gone from the folder “Saved Contents”."});
        }
        noteUnsaved(kept);
        return false;
    }
    if (!saved.front().isLatest) {
        withdrawDisk(kept.profile);
        // Earlier copies alone are not what the disk held last; which one is wanted is the user's to say.
        throw RamDiskError(RamDiskError::ImageEjected{});
    }
    const auto interrupted = interruptedLoad(kept);
    if (!interrupted) {
        fill(kept, saved.front().image, RestoreMode::fill, observer);
        return true;
    }
    // A copy that has lost its name since has become the latest.
    const auto wanted = std::find_if(saved.begin(), saved.end(), [&interrupted](const SavedCopy& copy) {
        return copy.image.filename() == *interrupted;
    });
    fill(kept, (wanted == saved.end() ? saved.front() : *wanted).image, RestoreMode::replace, observer);
    return true;
}

RestoredVolume ProfileContentsUseCase::load(const KeptDisk& kept, std::size_t number,
                                            const ProgressObserver& observer) {
    std::optional<RestoredVolume> restored;
    requireNotFilling(kept);
    whileLocked(kept.profile, [&] {
        requireListed(kept);
        const auto saved = copies(kept.profile);
        if (saved.empty()) {
            throw RamDiskError(
                RamDiskError::ContentsTransferFailed{"there is no saved copy of “" + kept.disk.name + "”."});
        }
        if (number == 0 || number > saved.size()) {
            throw RamDiskError(RamDiskError::ContentsTransferFailed{
                "there is no copy " + std::to_string(number) + " of “" + kept.disk.name
                + "”; the oldest is copy " + std::to_string(saved.size()) + "."});
        }
        restored = fill(kept, saved[number - 1].image, RestoreMode::replace, observer);
    });
    return std::move(*restored);
}

RestoredVolume ProfileContentsUseCase::fill(const KeptDisk& kept, const std::filesystem::path& image,
                                            RestoreMode mode, const ProgressObserver& observer) {
    const auto& profile = kept.profile.id;
    const auto former = ports_.storage->filling(profile);
    bool hasBegun = false;
    ports_.storage->setFilling(
        profile,
        Filling{kept.disk.instance.value_or(profile),
                mode == RestoreMode::replace ? std::optional(image.filename().string()) : std::nullopt});
    try {
        const RestoreRequest request{image, files(kept.profile), kept.disk,
                                     protection(kept.profile, KeyUse::onlyExisting), mode};
        auto restored = ports_.archiver->restore(request, [&](const TransferProgress& progress) {
            hasBegun = true;
            if (observer) {
                observer(progress);
            }
        });
        if (kept.disk.instance) {
            ports_.storage->bind(profile, kept.disk.instance);
        }
        ports_.storage->setFilling(profile, std::nullopt);
        if (ports_.storage->unsavedInstance(profile)) {
            ports_.storage->setUnsavedInstance(profile, std::nullopt);
        }
        return restored;
    } catch (const SomeFilesDamaged&) {
        // Nothing is left to put back, and yet the disk must not be saved over copies that may be better.
        if (isBound(kept)) {
            ports_.storage->bind(profile, UUID::random());
        }
        ports_.storage->setFilling(profile, std::nullopt);
        throw;
    } catch (...) {
        if (!hasBegun) {
            // As it was: filled in part by an earlier try, or only announced and thus as it was made.
            const bool wasBegun = former && former->instance == kept.disk.instance;
            ports_.storage->setFilling(profile, wasBegun ? former : std::nullopt);
        }
        throw;
    }
}

} // namespace ramdisk
