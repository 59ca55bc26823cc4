#include "RamDiskCore/Startup/LoadSavedContentsUseCase.h"

#include "RamDiskCore/Ports/Tracing.h"

#include <iterator>
#include <optional>
#include <utility>

namespace ramdisk {

LoadSavedContentsUseCase::LoadSavedContentsUseCase(RamDiskServices services,
                                                   std::shared_ptr<ProfileContentsUseCase> contents,
                                                   std::shared_ptr<FolderRedirectsUseCase> redirects)
    : services_(std::move(services)),
      contents_(std::move(contents)),
      redirects_(std::move(redirects)) {}

LoadSavedContentsUseCase::Result LoadSavedContentsUseCase::load(const KeptDisk& kept, std::size_t number,
                                                                const ProgressObserver& observer) {
    auto failures = redirects_->undoUnlessInUse(kept.disk);
    std::optional<KeptDisk> onto = kept;
    const auto reapply = [&] {
        if (onto) {
            auto more = redirects_->apply(onto->disk);
            std::move(more.begin(), more.end(), std::back_inserter(failures));
        }
    };
    const auto loadOnce = [&]() -> std::optional<RestoredVolume> {
        try {
            return contents_->load(*onto, number, observer);
        } catch (const CopyNeedsRoom&) {
            traceCaught("load", "the disk is made anew with room that only a restore may use");
            return std::nullopt;
        }
    };
    try {
        auto restored = loadOnce();
        if (!restored) {
            makeAnew(onto);
            restored = contents_->load(*onto, number, observer);
        }
        reapply();
        return {std::move(*restored), std::move(failures)};
    } catch (...) {
        reapply();
        throw;
    }
}

/// What is on the disk was to be replaced. Under the lock nobody takes the disk for one that was lost.
void LoadSavedContentsUseCase::makeAnew(std::optional<KeptDisk>& kept) {
    const auto former = *kept;
    contents_->whileLocked(former.profile, [&] {
        auto wanted = specificationOf(former.profile);
        wanted.name = former.disk.name;
        wanted.size = former.disk.capacity;
        wanted.access = former.disk.access;
        wanted.hasRestoreRoom = true;
        services_.eject->eject(former.disk, Force::no);
        kept.reset();
        contents_->noteLeft(former, ProfileContentsUseCase::LeftFiles::givenUp);
        kept = KeptDisk{
            services_.create->execute(std::move(wanted), CreateRamDiskUseCase::Purpose::startupDisk).ramDisk,
            former.profile};
    });
}

} // namespace ramdisk
