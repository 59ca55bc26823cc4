#pragma once

#include <optional>
#include <string>

namespace ramdisk {

/// The value of a variable that a process must not take from whoever started it, where it has more rights
/// than he. Absent in such a process, and where the variable is not set or empty.
[[nodiscard]] std::optional<std::string> trustedEnvironmentValue(const char* name);

} // namespace ramdisk
