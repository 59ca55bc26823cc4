#pragma once

#include "tests/support/Testing.h"

namespace ramdisk::test {

/// A program that is run again and again, each time killed at another point.
struct KillLoop {
    /// Sets the scene before each run.
    std::function<void()> prepare = [] {};
    /// What is killed. It runs in a child process, which ends with status 0 when it returns.
    std::function<void()> work;
    /// Looks at what is there afterwards, and clears it away. Gets the exit status of a run that was not
    /// killed.
    std::function<void(std::optional<int> status)> check;
    /// The most points to try, spread evenly over all, and fewer where a sanitizer makes everything slow; the
    /// variable TRAMDISK_KILL_POINTS overrules it.
    int most = 40;
};

/// Runs the program once to its end, and then kills it at its system calls that change what outlives a
/// process: mounts, devices, files and their names, right before the call is done. What the program's own
/// children do counts too; they outlive it, as they would. The caller may have no other child meanwhile.
/// @returns the writes, flushes, links and replacements of the whole run, in their order.
std::string killAtEveryCall(const KillLoop& loop);

} // namespace ramdisk::test
