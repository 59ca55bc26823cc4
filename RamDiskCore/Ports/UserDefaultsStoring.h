#pragma once

#include "RamDiskCore/Ports/Port.h"
#include "RamDiskCore/Preferences/DefaultsValue.h"

#include <map>
#include <optional>
#include <string>

namespace ramdisk {

/// What is to change in the user defaults: the new value of each key, absent to remove the key.
using DefaultsChanges = std::map<std::string, std::optional<DefaultsValue>>;

/// The user defaults of one application: values under keys, shared by all processes of the user.
class UserDefaultsStoring : public Port {
public:
    /// All values as they are stored now; empty when there are none or they cannot be read.
    [[nodiscard]] virtual std::map<std::string, DefaultsValue> values() const = 0;

    /// The value of one key; absent when it is not set.
    [[nodiscard]] virtual std::optional<DefaultsValue> value(const std::string& key) const = 0;

    /// @throws std::exception that names the place of values that are there but cannot be read.
    virtual void requireReadable() const {}

    /// Makes all changes, and leaves what other processes stored under other keys as it is.
    /// @throws std::exception with nothing changed.
    virtual void apply(const DefaultsChanges& changes) = 0;
};

} // namespace ramdisk
