#include "RamDiskCore/Startup/LoadSavedContentsUseCase.h"

#include "RamDiskCore/Ports/Tracing.h"

#include <iterator>
#include <optional>
#include <utility>

namespace ramdisk {

LoadSavedContentsUseCase::LoadSavedContentsUseCase(RamDiskServices services,
                                                   std::shared_ptr<ProfileContentsUseCase> contents,
                                                   std::shared_ptr<FolderRedirectsUseCase> redirects)
    : making_(std::move(services), contents),
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
            // Under the lock nobody takes the disk for one that was lost.
            contents_->whileLocked(kept.profile, [&] { making_.makeAnewWithRoom(onto); });
            restored = contents_->load(*onto, number, observer);
        }
        reapply();
        return {std::move(*restored), std::move(failures)};
    } catch (...) {
        try {
            reapply();
        } catch (const std::exception&) {
            // Why nothing was loaded is what the user must see.
            traceCaught("redirects", "the redirects of the disk are not put back");
        }
        throw;
    }
}

} // namespace ramdisk
