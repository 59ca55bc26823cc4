#include "RamDiskCore/Validation/SpecificationRules.h"

#include <cmath>
#include <limits>

namespace ramdisk {

ByteCount MemoryCapacityRule::recommendedLimit(ByteCount physical) {
    constexpr double beyondLargest = 18446744073709551616.0;
    const double limit = std::round(static_cast<double>(physical.bytes) * recommendedShare);
    return limit < beyondLargest ? ByteCount{static_cast<std::uint64_t>(limit)}
                                 : ByteCount{std::numeric_limits<std::uint64_t>::max()};
}

std::vector<ValidationIssue> MemoryCapacityRule::check(const RamDiskSpecification& specification,
                                                       const ValidationContext& context) const {
    const auto& memory = context.memory;
    if (specification.size >= memory.physical) {
        return {{ValidationIssue::ExceedsPhysicalMemory{specification.size, memory.physical}}};
    }
    if (memory.available < specification.size) {
        return {{ValidationIssue::ExceedsAvailableMemory{memory.available}}};
    }
    if (specification.size > recommendedLimit(memory.physical)) {
        return {{ValidationIssue::ExceedsRecommendedShare{recommendedShare}}};
    }
    return {};
}

} // namespace ramdisk
