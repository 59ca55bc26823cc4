#include "RamDiskCore/Redirects/FolderRedirectsUseCase.h"
#include "RamDiskCore/Values/Text.h"

#include <algorithm>

namespace ramdisk {

std::vector<RedirectStatus>
FolderRedirectsUseCase::statuses(const std::vector<FolderRedirect>& redirects) const {
    std::vector<RedirectStatus> statuses;
    if (redirects.empty()) {
        return statuses;
    }
    const auto disks = inventory_->list();
    for (const auto& redirect : redirects) {
        const auto disk = std::find_if(disks.begin(), disks.end(), [&](const RamDisk& candidate) {
            return candidate.mountPoint && namesEqual(candidate.name, redirect.diskName);
        });
        statuses.push_back(
            redirecting_->status(redirect, disk == disks.end() ? std::nullopt : disk->mountPoint));
    }
    return statuses;
}

} // namespace ramdisk
