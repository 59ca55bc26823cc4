#include "RamDiskCore/Disks/CreateRamDiskResult.h"

#include <array>

namespace ramdisk {

namespace {

// In the order of the variant.
constexpr std::array<std::string_view, 2> caseNames{"validation", "indexingNotDisabled"};
static_assert(caseNames.size() == std::variant_size_v<decltype(CreationWarning::value)>);

} // namespace

std::string_view CreationWarning::caseName() const noexcept {
    return caseNames[value.index()];
}

} // namespace ramdisk
