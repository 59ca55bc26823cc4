#pragma once

#include "RamDiskCore/Ports/Port.h"

#include <optional>
#include <string>

namespace ramdisk {

/// The environment that the user's session gives to programs opened from now on.
class SessionEnvironment : public Port {
public:
    /// Absent when the variable is not set.
    /// @throws std::exception when it cannot be told.
    [[nodiscard]] virtual std::optional<std::string> value(const std::string& variable) = 0;

    /// Sets the variable. Killed on the way, it either left everything as it was or `value` shows it.
    /// @throws std::exception when it failed, in part or as a whole.
    virtual void set(const std::string& variable, const std::string& value) = 0;

    /// Gives the variable its former value, or removes it. Killed on the way, `value` still shows what was.
    /// @throws as `set`
    virtual void restore(const std::string& variable, const std::optional<std::string>& former) = 0;
};

} // namespace ramdisk
