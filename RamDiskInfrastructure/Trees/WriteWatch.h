#pragma once

#include "RamDiskInfrastructure/Commands/FileDescriptor.h"

#include <optional>
#include <unordered_set>

#include <sys/types.h>
#include <time.h>

namespace ramdisk {

/// Tells which files of a tmpfs nobody can have changed since the watch began, by whatever means.
///
/// Dates do not tell it, since a write through a shared mapping changes none. But whoever writes to a file
/// has it open for that, a mapping included, and either had so when it was looked at, which a lease on the
/// file tells, or has opened it since, which the kernel reports to the watch. It also reports what changes a
/// file's metadata, or its size without opening it. Only which file a name leads to is told by the dates of
/// the folders. Ends with the process, and leaves nothing behind when that crashes.
class WriteWatch {
public:
    /// Absent for other file systems, and where the kernel cannot tell or we may not ask it. Takes a tick of
    /// the clock that dates are taken from, some milliseconds.
    [[nodiscard]] static std::optional<WriteWatch> begin(const FileDescriptor& root);

    /// The same folder by a way that only we have: what is opened below it is not reported to this watch.
    [[nodiscard]] const FileDescriptor& root() const noexcept { return root_; }

    /// Whether an item that was changed at this time would have another change date if it had been changed
    /// once more since `begin` returned.
    [[nodiscard]] bool wouldShowInDate(const timespec& changed) const noexcept;

    /// Whether nobody has the file, which is open for reading, open for writing or so mapped. Whoever opens
    /// it meanwhile waits for the microsecond that this takes.
    [[nodiscard]] static bool hasNoWriter(int file) noexcept;

    /// The files that others opened, for whatever, or changed since the watch began. Absent when the kernel
    /// lost count.
    [[nodiscard]] const std::unordered_set<ino_t>* touchedByOthers();

private:
    WriteWatch(FileDescriptor events, FileDescriptor mount, FileDescriptor root, timespec begun)
        : events_(std::move(events)),
          mount_(std::move(mount)),
          root_(std::move(root)),
          begun_(begun) {}

    void note(const char* event);

    FileDescriptor events_;
    /// Ends with this descriptor.
    FileDescriptor mount_;
    FileDescriptor root_;
    timespec begun_;
    std::unordered_set<ino_t> touched_;
    bool isComplete_ = true;
};

} // namespace ramdisk
