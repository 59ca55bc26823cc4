#include "RamDiskCore/Setup/RamDiskSetupResult.h"

#include <array>

namespace ramdisk {

std::string_view RamDiskSetupProblem::caseName() const noexcept {
    constexpr std::array<std::string_view, std::variant_size_v<decltype(value)>> names{
        "profileNotSaved", "seedNotCopied", "folderNotCreated", "redirectFailed", "redirectsNotSaved"};
    return names[value.index()];
}

} // namespace ramdisk
