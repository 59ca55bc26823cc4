#pragma once

#include "tramdisk/Invocation.h"

#include <stdexcept>
#include <string>

namespace ramdisk::cli {

/// The command line cannot be meant: exit status 2. Says so in one sentence.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// No subcommand was given; carries the help to show instead of a sentence.
class MissingSubcommand : public UsageError {
public:
    using UsageError::UsageError;
};

/// Reads the arguments of `main`.
/// @throws UsageError
[[nodiscard]] Invocation parseCommandLine(int argumentCount, const char* const* arguments);

} // namespace ramdisk::cli
