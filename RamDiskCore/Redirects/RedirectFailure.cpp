#include "RamDiskCore/Redirects/RedirectFailure.h"

#include <utility>

namespace ramdisk {

RedirectFailure RedirectFailure::of(const std::exception& error, FolderRedirect redirect) {
    if (const auto* const ours = dynamic_cast<const RamDiskError*>(&error)) {
        return {std::move(redirect), *ours};
    }
    return {std::move(redirect), std::string(error.what())};
}

} // namespace ramdisk
