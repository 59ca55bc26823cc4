#include "RamDiskCore/Values/ValidationIssue.h"

#include <array>

namespace ramdisk {

namespace {

using Severity = ValidationIssue::Severity;
using Field = ValidationIssue::Field;

struct IssueTraits {
    std::string_view name;
    Severity severity;
    Field field;
};

// In the order of the variant.
constexpr std::array<IssueTraits, 14> issueTraits{{
    {"forbiddenCharacter", Severity::error, Field::name},
    {"nameTooLong", Severity::error, Field::name},
    {"nameInUse", Severity::error, Field::name},
    {"nameOfStartupDisk", Severity::error, Field::name},
    {"belowMinimumSize", Severity::error, Field::size},
    {"exceedsPhysicalMemory", Severity::error, Field::size},
    {"exceedsAvailableMemory", Severity::warning, Field::size},
    {"exceedsRecommendedShare", Severity::warning, Field::size},
    {"encryptionUnsupported", Severity::error, Field::fileSystem},
    {"invalidFolder", Severity::error, Field::folders},
    {"tooManyFolders", Severity::error, Field::folders},
    {"emptyName", Severity::error, Field::name},
    {"nameStartsWithDot", Severity::error, Field::name},
    {"nameStartsWithHyphen", Severity::error, Field::name},
}};
static_assert(issueTraits.size() == std::variant_size_v<ValidationIssue::Case>);

} // namespace

Severity ValidationIssue::severity() const noexcept {
    return issueTraits[value.index()].severity;
}

Field ValidationIssue::field() const noexcept {
    return issueTraits[value.index()].field;
}

std::string_view ValidationIssue::caseName() const noexcept {
    return issueTraits[value.index()].name;
}

std::string_view rawValue(ValidationIssue::Severity severity) {
    return severity == Severity::warning ? "warning" : "error";
}

std::string_view rawValue(ValidationIssue::Field field) {
    switch (field) {
    case Field::name:
        return "name";
    case Field::size:
        return "size";
    case Field::fileSystem:
        return "fileSystem";
    case Field::folders:
        return "folders";
    }
    return "name";
}

} // namespace ramdisk
