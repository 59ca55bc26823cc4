#include "RamDiskCore/Validation/SpecificationRules.h"
#include "RamDiskCore/Values/Text.h"

namespace ramdisk {

std::vector<ValidationIssue> VolumeNameRule::check(const RamDiskSpecification& specification,
                                                   const ValidationContext& /*context*/) const {
    const auto name = trimmed(specification.name);
    if (name.empty()) {
        return {{ValidationIssue::EmptyName{}}};
    }
    if (name.starts_with('.')) {
        return {{ValidationIssue::NameStartsWithDot{}}};
    }
    if (name.starts_with('-')) {
        return {{ValidationIssue::NameStartsWithHyphen{}}};
    }
    const auto characters = graphemes(name);
    for (const auto character : characters) {
        // A slash separates folders also where a combining mark makes it part of a larger character.
        if (character.find_first_of(":/\\") != std::string_view::npos) {
            return {{ValidationIssue::ForbiddenCharacter{std::string(character)}}};
        }
    }
    const auto limit = maximumNameLength(specification.fileSystem);
    if (static_cast<std::int64_t>(characters.size()) > limit
        || static_cast<std::int64_t>(name.size()) > limit * bytesPerCharacter) {
        return {{ValidationIssue::NameTooLong{limit, specification.fileSystem}}};
    }
    return {};
}

} // namespace ramdisk
