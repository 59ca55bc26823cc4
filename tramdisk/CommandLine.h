#pragma once

#include "tramdisk/GlobalOptions.h"
#include "tramdisk/Subcommand.h"
#include "tramdisk/UsageError.h"

#include <string>

namespace ramdisk::cli {

/// No subcommand was given; carries the help to show instead of a sentence.
class MissingSubcommand : public UsageError {
public:
    using UsageError::UsageError;
};

/// One call of the program, read and checked, but not yet carried out.
struct Invocation {
    GlobalOptions global;
    /// Empty when help or the version was asked for.
    Action action;
    /// The help or the version.
    std::string text;
};

/// Reads the arguments of `main`.
/// @throws UsageError
[[nodiscard]] Invocation parseCommandLine(int argumentCount, const char* const* arguments);

} // namespace ramdisk::cli
