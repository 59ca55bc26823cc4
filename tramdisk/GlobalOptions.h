#pragma once

namespace ramdisk::cli {

/// What holds for every subcommand.
struct GlobalOptions {
    bool json = false;
    bool noColor = false;
    bool quiet = false;
    bool trace = false;
};

} // namespace ramdisk::cli
