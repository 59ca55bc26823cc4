#pragma once

#include "tramdisk/GlobalOptions.h"

namespace ramdisk::cli {

/// Has what the program tells of itself printed on standard error, a line each, where that is wanted: with
/// `--trace`, with TRAMDISK_TRACE in the environment, and in a session whose standard error is a log. Called
/// once, before anything is carried out.
///
/// A line tells the milliseconds since then, the part of the program and what it did:
/// "[   3.214] records: disk3 “X”: healed: its volume is gone". In the log of a session that nobody asked to
/// trace, "tramdisk: trace: " stands before it.
void installTracePrinter(const Invocation& invocation);

} // namespace ramdisk::cli
