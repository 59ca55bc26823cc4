#pragma once

#include "RamDiskCore/Ports/Port.h"

#include <optional>
#include <string>

namespace ramdisk {

/// The environment that the user's session gives to programs that are started from now on.
class SessionEnvironment : public Port {
public:
    /// Absent when the variable is not set.
    /// @throws std::exception when it cannot be told.
    [[nodiscard]] virtual std::optional<std::string> value(const std::string& variable) = 0;

    /// Sets the variable. If the process is killed meanwhile, either nothing has changed or `value` shows the
    /// new value.
    /// @throws std::exception when it failed, in part or as a whole.
    virtual void set(const std::string& variable, const std::string& value) = 0;

    /// Gives the variable its former value, or removes it. If the process is killed meanwhile, `value` still
    /// shows the value that was to be replaced.
    /// @throws as `set`
    virtual void restore(const std::string& variable, const std::optional<std::string>& former) = 0;
};

} // namespace ramdisk
