#pragma once

#include "RamDiskCore/Values/ByteCount.h"
#include "RamDiskCore/Values/EnumerationTable.h"
#include "RamDiskCore/Values/RedirectTarget.h"

#include <optional>
#include <string>

namespace ramdisk {

/// How things really stand with a stored redirect.
struct RedirectStatus {
    enum class Condition {
        inPlace,
        /// The disk is there, and nothing of the redirect is.
        notInPlace,
        /// A change was cut short, or another process is at it.
        interrupted,
        diskNotMounted,
        /// Something else took the place of the link.
        linkReplaced,
        /// Somebody unmounted the folder.
        mountGone,
        /// Something else is mounted over the folder.
        covered,
        /// Somebody else set the setting.
        settingReplaced,
        /// The folder on the disk is gone.
        folderMissing,
        /// It is in place, but what it would bring back is gone.
        originalMissing,
        /// It is in place, but the tool keeps its files elsewhere.
        overridden,
    };

    /// The target as users name it: a folder that is a tool's cache is that cache.
    RedirectTarget target{};
    Condition condition{};
    /// What leads the tool elsewhere, such as the name of a variable.
    std::optional<std::string> overriddenBy = std::nullopt;
    /// What the folder on the disk holds; absent when there is none.
    std::optional<ByteCount> used = std::nullopt;
    /// Not all files were counted, since there are too many.
    bool usesMore = false;

    friend bool operator==(const RedirectStatus&, const RedirectStatus&) = default;
};

template <>
inline constexpr auto
    enumerators<RedirectStatus::Condition> = enumerationTable<Named<RedirectStatus::Condition>>({
        {RedirectStatus::Condition::inPlace, "inPlace"},
        {RedirectStatus::Condition::notInPlace, "notInPlace"},
        {RedirectStatus::Condition::interrupted, "interrupted"},
        {RedirectStatus::Condition::diskNotMounted, "diskNotMounted"},
        {RedirectStatus::Condition::linkReplaced, "linkReplaced"},
        {RedirectStatus::Condition::mountGone, "mountGone"},
        {RedirectStatus::Condition::covered, "covered"},
        {RedirectStatus::Condition::settingReplaced, "settingReplaced"},
        {RedirectStatus::Condition::folderMissing, "folderMissing"},
        {RedirectStatus::Condition::originalMissing, "originalMissing"},
        {RedirectStatus::Condition::overridden, "overridden"},
    });

} // namespace ramdisk
