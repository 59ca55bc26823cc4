#pragma once

#include "RamDiskCore/Values/ValidationIssue.h"

#include <vector>

namespace ramdisk {

/// What the rules found, in the order in which they found it.
struct ValidationReport {
    std::vector<ValidationIssue> issues;

    [[nodiscard]] std::vector<ValidationIssue> errors() const;
    [[nodiscard]] std::vector<ValidationIssue> warnings() const;
    [[nodiscard]] std::vector<ValidationIssue> issuesFor(ValidationIssue::Field field) const;

    /// No errors; warnings do not stand in the way.
    [[nodiscard]] bool isValid() const;

    friend bool operator==(const ValidationReport&, const ValidationReport&) = default;
};

} // namespace ramdisk
