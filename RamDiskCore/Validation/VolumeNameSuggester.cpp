#include "RamDiskCore/Validation/VolumeNameSuggester.h"

#include "RamDiskCore/Values/Text.h"

#include <cstdint>
#include <set>

namespace ramdisk {

std::string VolumeNameSuggester::suggest(std::string_view base, std::span<const std::string> taken) {
    std::set<std::string> takenNames;
    for (const auto& name : taken) {
        takenNames.insert(foldedName(name));
    }
    std::string candidate(base);
    // Ends after as many turns as there are names: the counter cannot overflow.
    for (std::uint64_t number = 2; takenNames.contains(foldedName(candidate)); ++number) {
        candidate = std::string(base) + ' ' + std::to_string(number);
    }
    return candidate;
}

} // namespace ramdisk
