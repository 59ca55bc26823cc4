#pragma once

#include "RamDiskCore/Ports/UserDefaultsStoring.h"

#include <memory>
#include <optional>
#include <string>

namespace ramdisk {

/// A list as earlier versions kept it, before there were list files: a JSON array, stored as data under a key
/// of the user defaults.
struct UserDefaultsJSONList {
    std::string key;
    std::shared_ptr<UserDefaultsStoring> defaults;

    /// The array's text; absent when there is none.
    [[nodiscard]] std::optional<std::string> text() const;
    /// Removes the key.
    /// @throws std::exception
    void remove() const;
};

/// The list under `key`, or none when there are no user defaults.
[[nodiscard]] std::optional<UserDefaultsJSONList> legacyList(std::string key,
                                                             std::shared_ptr<UserDefaultsStoring> defaults);

} // namespace ramdisk
