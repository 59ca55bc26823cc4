#include "RamDiskCore/Values/RamDiskError.h"

#include <array>

namespace ramdisk {

namespace {

// In the order of the variant.
constexpr std::array<const char*, 32> caseNames{
    "invalidSpecification",
    "notFound",
    "ambiguousReference",
    "allocationFailed",
    "formattingFailed",
    "ejectFailed",
    "inventoryUnavailable",
    "notMounted",
    "contentsTransferFailed",
    "savedContentsKeyMissing",
    "savedContentsNotRestored",
    "redirectTaken",
    "redirectNameTaken",
    "newSizeTooSmall",
    "resizeFailed",
    "notEnoughSpaceForBenchmark",
    "eraseFailed",
    "templateNotFound",
    "builtInTemplate",
    "folderNotCreated",
    "beingFilled",
    "partlyFilled",
    "incorrectPassphrase",
    "filesKeptChanging",
    "templateNameMissing",
    "imageEjected",
    "diskEjected",
    "imageUnreadable",
    "namesMerged",
    "imageOpenAlready",
    "imageStateUnknown",
    "imageLeftOpen",
};
static_assert(caseNames.size() == std::variant_size_v<RamDiskError::Case>);

} // namespace

std::string_view RamDiskError::caseName() const noexcept {
    return what();
}

const char* RamDiskError::what() const noexcept {
    return caseNames[value_.index()];
}

} // namespace ramdisk
