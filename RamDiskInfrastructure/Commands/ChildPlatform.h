#pragma once

#include "RamDiskInfrastructure/Commands/FileDescriptor.h"

#include <string_view>

#include <spawn.h>
#include <sys/types.h>

// What running a child needs of the platform: one implementation a system, chosen by the build.

namespace ramdisk {

struct Pipe {
    FileDescriptor readingEnd;
    FileDescriptor writingEnd;
};

/// A pipe whose ends are closed on exec and lie above the three standard descriptors, even in a process that
/// was started with those closed: else setting up the child's streams would overwrite one with another.
/// @throws std::system_error
[[nodiscard]] Pipe makePipe();

/// Makes `write` to the pipe return at once with what fits, and lets the system prepare it for
/// `writeWithoutSignal`.
/// @throws std::system_error
void prepareForWriting(const FileDescriptor& writingEnd);

/// `write`, with no SIGPIPE for this process when nobody reads any more: the call then fails with EPIPE.
[[nodiscard]] ssize_t writeWithoutSignal(const FileDescriptor& writingEnd, std::string_view bytes) noexcept;

/// Lets the pipe of a child that writes much hold more, where the system allows it.
void enlargePipe(const FileDescriptor& pipe) noexcept;

/// A descriptor that becomes readable when the child, not yet reaped, ends. None where the system has no such
/// thing or the child is already gone: the caller must then look from time to time.
[[nodiscard]] FileDescriptor openExitDescriptor(pid_t child) noexcept;

/// Adds what closes every descriptor above the three standard ones in the child, whoever opened it.
/// @returns 0 or an errno.
[[nodiscard]] int closeOtherDescriptors(posix_spawn_file_actions_t& actions, short& attributeFlags) noexcept;

} // namespace ramdisk
