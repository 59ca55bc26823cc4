#pragma once

#include "RamDiskCore/Values/CaseName.h"
#include "RamDiskCore/Values/RamDisk.h"
#include "RamDiskCore/Values/ValidationIssue.h"

#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace ramdisk {

/// Something that the user should know about a disk that was made nevertheless.
struct CreationWarning {
    struct Validation {
        static constexpr std::string_view caseName = "validation";
        /// Its severity is `warning`.
        ValidationIssue issue;
        friend bool operator==(const Validation&, const Validation&) = default;
    };
    struct IndexingNotDisabled {
        static constexpr std::string_view caseName = "indexingNotDisabled";
        std::string reason;
        friend bool operator==(const IndexingNotDisabled&, const IndexingNotDisabled&) = default;
    };

    std::variant<Validation, IndexingNotDisabled> value;

    /// The name of the case as scripts read it.
    [[nodiscard]] std::string_view caseName() const { return nameOfCase(value); }

    friend bool operator==(const CreationWarning&, const CreationWarning&) = default;
};

struct CreateRamDiskResult {
    RamDisk ramDisk;
    /// Those of validation first, in report order.
    std::vector<CreationWarning> warnings;

    friend bool operator==(const CreateRamDiskResult&, const CreateRamDiskResult&) = default;
};

} // namespace ramdisk
