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

RestoreState ProfileContentsUseCase::state(const KeptDisk& kept) const {
    if (!isPartlyFilled(kept) && (isBound(kept) || copies(kept.profile).empty())) {
        return RestoreState::restored;
    }
    // Whoever made the disk holds the lock from before the disk appears until its files are on it.
    return ports_.storage->isLocked(kept.profile.id) ? RestoreState::restoring : RestoreState::awaiting;
}

bool ProfileContentsUseCase::isPartlyFilled(const KeptDisk& kept) const {
    const auto beingFilled = ports_.storage->instanceBeingFilled(kept.profile.id);
    return beingFilled
           && (beingFilled == kept.disk.instance || (beingFilled == kept.profile.id && !isBound(kept)));
}

void ProfileContentsUseCase::tidy(const RamDiskProfile& profile) {
    ports_.archiver->tidy(files(profile));
}

void ProfileContentsUseCase::announceDisk(const RamDiskProfile& profile) {
    if (!copies(profile).empty()) {
        ports_.storage->setInstanceBeingFilled(profile.id, profile.id);
    }
}

void ProfileContentsUseCase::withdrawDisk(const RamDiskProfile& profile) {
    if (ports_.storage->instanceBeingFilled(profile.id) == profile.id) {
        ports_.storage->setInstanceBeingFilled(profile.id, std::nullopt);
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
    if (!isBound(kept) && !copies(kept.profile).empty()) {
        throw RamDiskError(RamDiskError::SavedContentsNotRestored{kept.disk.name});
    }
}

void ProfileContentsUseCase::requireListed(const RamDisk& disk) const {
    const auto listed = ports_.list->list();
    const bool stands = std::any_of(listed.begin(), listed.end(), [&disk](const RamDisk& candidate) {
        return candidate.device == disk.device && candidate.instance == disk.instance && candidate.mountPoint;
    });
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

SaveOutcome ProfileContentsUseCase::save(const KeptDisk& kept, Verification verification,
                                         const ProgressObserver& observer) {
    requireRestored(kept);
    auto outcome = SaveOutcome::saved;
    whileLocked(kept.profile, [&] {
        // What was waited for may have been another filling, or the eject of the disk.
        requireListed(kept.disk);
        requireBound(kept);
        const bool isFirst = copies(kept.profile).empty();
        const SaveRequest request{kept.disk, files(kept.profile), kept.profile.previousCopies,
                                  protection(kept.profile, isFirst ? KeyUse::mayBeNew : KeyUse::onlyExisting),
                                  verification};
        if (isFirst && kept.disk.instance) {
            // Before the copy takes its place: a copy that belongs to no disk could never be followed.
            ports_.storage->bind(kept.profile.id, *kept.disk.instance);
        }
        outcome = ports_.archiver->save(request, observer);
    });
    return outcome;
}

bool ProfileContentsUseCase::restore(const KeptDisk& kept, const ProgressObserver& observer) {
    const auto saved = copies(kept.profile);
    if (saved.empty()) {
        return false;
    }
    if (!saved.front().isLatest) {
        withdrawDisk(kept.profile);
        // Earlier copies alone are not what the disk held last; which one is wanted is the user's to say.
        throw RamDiskError(RamDiskError::ImageEjected{});
    }
    fill(kept, saved.front().image, RestoreMode::fill, observer);
    return true;
}

RestoredVolume ProfileContentsUseCase::load(const KeptDisk& kept, std::size_t number,
                                            const ProgressObserver& observer) {
    std::optional<RestoredVolume> restored;
    if (state(kept) == RestoreState::restoring) {
        throw RamDiskError(RamDiskError::BeingFilled{kept.disk.name});
    }
    whileLocked(kept.profile, [&] {
        requireListed(kept.disk);
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
    // A disk that was only announced is as it was made.
    bool hasBegun = ports_.storage->instanceBeingFilled(profile) == kept.disk.instance && kept.disk.instance;
    ports_.storage->setInstanceBeingFilled(profile, kept.disk.instance);
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
            ports_.storage->bind(profile, *kept.disk.instance);
        }
        ports_.storage->setInstanceBeingFilled(profile, std::nullopt);
        return restored;
    } catch (...) {
        if (!hasBegun) {
            ports_.storage->setInstanceBeingFilled(profile, std::nullopt);
        }
        throw;
    }
}

} // namespace ramdisk
