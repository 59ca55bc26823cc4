#pragma once

#include <stdexcept>

namespace ramdisk::cli {

/// The command line is invalid: exit status 2. Says so in one sentence.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

} // namespace ramdisk::cli
