#pragma once

#include "RamDiskInfrastructure/Commands/FileDescriptor.h"

#include <optional>
#include <unordered_set>

#include <sys/types.h>
#include <time.h>

namespace ramdisk {

/// Tells which files of a tmpfs nobody can have changed since the watch began, in any way.
///
/// Dates do not show it, since a write through a shared mapping changes none. But a program that writes to a
/// file, even through a mapping, has it open for writing. If it had opened the file before we looked at it, a
/// lease on the file shows that. If it opened the file later, the kernel reports that to the watch. The
/// kernel also reports changes of metadata, and changes of the size without opening the file. The dates of
/// folders are only used to tell which file a name leads to. The watch ends with the process, and a crash
/// leaves nothing behind.
class WriteWatch {
public:
    /// Absent for other file systems, and where the kernel cannot tell or we may not ask it. Takes one tick
    /// of the clock that file dates come from, a few milliseconds.
    [[nodiscard]] static std::optional<WriteWatch> begin(const FileDescriptor& root);

    /// The same folder by a way that only we have. What is opened through it is not reported to this watch.
    [[nodiscard]] const FileDescriptor& root() const noexcept { return root_; }

    /// Whether an item with this change date would have another one if it had been changed again after
    /// `begin` returned.
    [[nodiscard]] bool wouldShowInDate(const timespec& changed) const noexcept;

    /// Whether nobody has the file open for writing or mapped for writing. `file` is open for reading. A
    /// program that opens it meanwhile waits for the microsecond that this takes.
    [[nodiscard]] static bool hasNoWriter(int file) noexcept;

    /// The files that others opened, for any purpose, or changed since the watch began. Absent when the
    /// kernel lost count.
    [[nodiscard]] const std::unordered_set<ino_t>* touchedByOthers();

private:
    WriteWatch(FileDescriptor events, FileDescriptor mount, FileDescriptor root, timespec begun)
        : events_(std::move(events)),
          mount_(std::move(mount)),
          root_(std::move(root)),
          begun_(begun) {}

    void note(const char* event);

    FileDescriptor events_;
    /// The mount ends with this descriptor.
    FileDescriptor mount_;
    FileDescriptor root_;
    timespec begun_;
    std::unordered_set<ino_t> touched_;
    bool isComplete_ = true;
};

} // namespace ramdisk
