#include "RamDiskCore/Startup/LoadSavedContentsUseCase.h"

#include <iterator>

namespace ramdisk {

LoadSavedContentsUseCase::LoadSavedContentsUseCase(std::shared_ptr<ProfileContentsUseCase> contents,
                                                   std::shared_ptr<FolderRedirectsUseCase> redirects)
    : contents_(std::move(contents)),
      redirects_(std::move(redirects)) {}

LoadSavedContentsUseCase::Result LoadSavedContentsUseCase::load(const KeptDisk& kept, std::size_t number,
                                                                const ProgressObserver& observer) {
    auto failures = redirects_->undo(kept.disk.name);
    const auto reapply = [&] {
        auto more = redirects_->apply(kept.disk);
        std::move(more.begin(), more.end(), std::back_inserter(failures));
    };
    try {
        auto restored = contents_->load(kept, number, observer);
        reapply();
        return {std::move(restored), std::move(failures)};
    } catch (...) {
        reapply();
        throw;
    }
}

} // namespace ramdisk
