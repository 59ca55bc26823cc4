#pragma once

#include "RamDiskCore/Ports/CommandRunning.h"

#include <string_view>

namespace ramdisk {

/// As `runChecked`, with `secret` and nothing else on the tool's standard input: tools take a line break
/// behind a password for a part of it. No error carries the secret, and the copy made for the tool is wiped.
/// @throws CommandFailure, and whatever `CommandRunning::run` throws.
CommandOutput runWithSecretInput(CommandRunning& runner, const SystemCommand& command,
                                 std::string_view secret);

} // namespace ramdisk
