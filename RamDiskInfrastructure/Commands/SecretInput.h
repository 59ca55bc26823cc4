#pragma once

#include "RamDiskCore/Ports/CommandRunning.h"

#include <string_view>

namespace ramdisk {

/// As `runChecked`, with `secret` and nothing else on the tool's standard input. There is no line break,
/// since tools take it for a part of the password. No error contains the secret, and the copy made for the
/// tool is wiped.
/// @throws CommandFailure, and whatever `CommandRunning::run` throws.
CommandOutput runWithSecretInput(CommandRunning& runner, const SystemCommand& command,
                                 std::string_view secret);

} // namespace ramdisk
