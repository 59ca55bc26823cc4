#include "RamDiskCore/Validation/ValidationReport.h"

#include <algorithm>
#include <iterator>

namespace ramdisk {

namespace {

template <typename Predicate>
std::vector<ValidationIssue> filtered(const std::vector<ValidationIssue>& issues, Predicate predicate) {
    std::vector<ValidationIssue> result;
    std::copy_if(issues.begin(), issues.end(), std::back_inserter(result), predicate);
    return result;
}

bool isError(const ValidationIssue& issue) {
    return issue.severity() == ValidationIssue::Severity::error;
}

} // namespace

std::vector<ValidationIssue> ValidationReport::errors() const {
    return filtered(issues, isError);
}

std::vector<ValidationIssue> ValidationReport::warnings() const {
    return filtered(issues, [](const ValidationIssue& issue) { return !isError(issue); });
}

std::vector<ValidationIssue> ValidationReport::issuesFor(ValidationIssue::Field field) const {
    return filtered(issues, [field](const ValidationIssue& issue) { return issue.field() == field; });
}

bool ValidationReport::isValid() const {
    return std::none_of(issues.begin(), issues.end(), isError);
}

} // namespace ramdisk
