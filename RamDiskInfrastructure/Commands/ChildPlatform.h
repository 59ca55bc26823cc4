#pragma once

#include "RamDiskInfrastructure/Commands/FileDescriptor.h"

#include <string_view>

#include <spawn.h>
#include <sys/types.h>

// What running a child needs from the platform. Each platform has its own implementation, which the build
// chooses.

namespace ramdisk {

struct Pipe {
    FileDescriptor readingEnd;
    FileDescriptor writingEnd;
};

/// A pipe whose ends are closed on exec and have numbers above the three standard descriptors, even in a
/// process that was started with those closed. Otherwise setting up the child's streams would overwrite one
/// with another.
/// @throws std::system_error
[[nodiscard]] Pipe makePipe();

/// Makes `write` to the pipe return at once with what fits, and prepares the pipe for `writeWithoutSignal`.
/// @throws std::system_error
void prepareForWriting(const FileDescriptor& writingEnd);

/// `write` without a SIGPIPE for this process when nobody reads any more. The call then fails with EPIPE.
[[nodiscard]] ssize_t writeWithoutSignal(const FileDescriptor& writingEnd, std::string_view bytes) noexcept;

/// Lets the pipe of a child that writes much hold more, where the system allows it.
void enlargePipe(const FileDescriptor& pipe) noexcept;

/// A descriptor that becomes readable when the child, which was not waited for yet, ends. None where the
/// system has no such descriptor or the child is already gone. The caller must then check from time to time.
[[nodiscard]] FileDescriptor openExitDescriptor(pid_t child) noexcept;

/// Adds actions that close every descriptor above the three standard ones in the child, whoever opened it.
/// @returns 0 or an errno.
[[nodiscard]] int closeOtherDescriptors(posix_spawn_file_actions_t& actions, short& attributeFlags) noexcept;

} // namespace ramdisk
