#pragma once

#include "RamDiskCore/Disks/CreateRamDiskResult.h"
#include "RamDiskCore/Redirects/RedirectFailure.h"
#include "RamDiskCore/Values/CaseName.h"
#include "RamDiskCore/Values/RamDiskError.h"

#include <exception>
#include <string_view>
#include <variant>
#include <vector>

namespace ramdisk {

/// A step after the creation of a disk that did not work. The disk itself exists.
struct RamDiskSetupProblem {
    /// The profile of the startup disk could not be stored.
    struct ProfileNotSaved {
        static constexpr std::string_view caseName = "profileNotSaved";
        std::exception_ptr error;
    };
    /// The initial contents could not be copied, or not all of them.
    struct SeedNotCopied {
        static constexpr std::string_view caseName = "seedNotCopied";
        std::exception_ptr error;
    };
    struct FolderNotCreated {
        static constexpr std::string_view caseName = "folderNotCreated";
        RamDiskError error;
    };
    struct RedirectFailed {
        static constexpr std::string_view caseName = "redirectFailed";
        RedirectFailure failure;
    };
    /// The list of redirects could not be stored.
    struct RedirectsNotSaved {
        static constexpr std::string_view caseName = "redirectsNotSaved";
        std::exception_ptr error;
    };

    std::variant<ProfileNotSaved, SeedNotCopied, FolderNotCreated, RedirectFailed, RedirectsNotSaved> value;

    /// The name of the case as scripts read it.
    [[nodiscard]] std::string_view caseName() const { return nameOfCase(value); }
};

struct RamDiskSetupResult {
    CreateRamDiskResult creation;
    /// In the order of the steps.
    std::vector<RamDiskSetupProblem> problems;
};

} // namespace ramdisk
