#pragma once

#include "RamDiskCore/Values/CaseName.h"
#include "RamDiskCore/Values/RamDisk.h"
#include "RamDiskCore/Values/RamDiskError.h"
#include "RamDiskCore/Values/RamDiskProfile.h"

#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace ramdisk {

/// What happened to one startup disk at launch.
struct StartupOutcome {
    struct Created {
        static constexpr std::string_view caseName = "created";
        RamDisk disk;
        /// Whether its saved files were put back; there may have been none.
        bool restoredContents = false;
        friend bool operator==(const Created&, const Created&) = default;
    };
    /// It existed already, so nothing was made.
    struct AlreadyMounted {
        static constexpr std::string_view caseName = "alreadyMounted";
        RamDisk disk;
        friend bool operator==(const AlreadyMounted&, const AlreadyMounted&) = default;
    };
    /// It exists, but without its saved files. They are kept, and what is on the disk is not saved over them.
    struct RestoreFailed {
        static constexpr std::string_view caseName = "restoreFailed";
        RamDisk disk;
        RamDiskError error;
        friend bool operator==(const RestoreFailed&, const RestoreFailed&) = default;
    };
    /// It exists, but something besides its saved files could not be put onto it.
    struct FoldersNotCreated {
        static constexpr std::string_view caseName = "foldersNotCreated";
        RamDisk disk;
        bool restoredContents = false;
        std::vector<RamDiskError> errors;
        friend bool operator==(const FoldersNotCreated&, const FoldersNotCreated&) = default;
    };
    struct Failed {
        static constexpr std::string_view caseName = "failed";
        RamDiskProfile profile;
        RamDiskError error;
        friend bool operator==(const Failed&, const Failed&) = default;
    };

    std::variant<Created, AlreadyMounted, RestoreFailed, FoldersNotCreated, Failed> value;

    /// The disk; null when there is none.
    [[nodiscard]] const RamDisk* disk() const noexcept;
    /// The name of the disk, whether it exists or not.
    [[nodiscard]] const std::string& name() const noexcept;
    /// Whether the user has to be told that something is wrong.
    [[nodiscard]] bool needsAttention() const noexcept;
    /// The name of the case as scripts read it.
    [[nodiscard]] std::string_view caseName() const { return nameOfCase(value); }

    friend bool operator==(const StartupOutcome&, const StartupOutcome&) = default;
};

} // namespace ramdisk
