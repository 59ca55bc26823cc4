#pragma once

#include "tramdisk/GlobalOptions.h"

namespace ramdisk::cli {

/// Prints what the program says of itself on standard error, one line each, if the user asked for that: with
/// `--trace`, or with TRAMDISK_TRACE in the environment. Called once, before anything is carried out.
///
/// A line has the milliseconds since then, the part of the program and what it did:
/// "[   3.214] records: disk3 “X”: healed: its volume is gone".
void installTracePrinter(const GlobalOptions& options);

/// The same for a session whose standard error is a log, unless it is to be quiet: a session runs unattended,
/// and what went wrong in it is hard to see a second time. Each line begins with "tramdisk: trace: ". Does
/// nothing when a trace is printed already. Called before the session starts a thread.
void installSessionTracePrinter(const GlobalOptions& options);

} // namespace ramdisk::cli
