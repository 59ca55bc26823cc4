#pragma once

#include "RamDiskCore/Values/EnumerationTable.h"

#include <cstdint>
#include <map>
#include <string>

namespace ramdisk {

/// What a global hot key can do.
enum class HotKeyAction { newDisk, ejectAll, showWindow };
template <>
inline constexpr auto enumerators<HotKeyAction> =
    enumerationTable<Named<HotKeyAction>>({{HotKeyAction::newDisk, "newDisk"},
                                           {HotKeyAction::ejectAll, "ejectAll"},
                                           {HotKeyAction::showWindow, "showWindow"}});

/// A combination of keys.
struct KeyCombo {
    /// The key's number, independent of the keyboard's language.
    std::int64_t keyCode = 0;
    /// The modifiers held with it, as Carbon counts them.
    std::int64_t carbonModifiers = 0;
    /// How the combination is shown.
    std::string display;

    friend bool operator==(const KeyCombo&, const KeyCombo&) = default;
};

using HotKeys = std::map<HotKeyAction, KeyCombo>;

} // namespace ramdisk
