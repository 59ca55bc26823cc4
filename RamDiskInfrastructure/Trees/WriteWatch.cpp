#include "RamDiskInfrastructure/Trees/WriteWatch.h"

#include "RamDiskCore/Ports/Tracing.h"

#include <array>
#include <csignal>
#include <cstdint>
#include <cstdio>

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/fanotify.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <sys/vfs.h>
#include <unistd.h>

namespace ramdisk {

namespace {

constexpr timespec pollInterval{0, 500'000};
/// The clock advances every ten milliseconds at the least.
constexpr int mostPolls = 100;

/// Older kernels do not report every file that the kernel itself opens for somebody, as for an overlay whose
/// upper folder lies on the volume, and still older ones let attributes change without the date.
bool kernelTellsAll() {
    utsname system{};
    unsigned major = 0;
    unsigned minor = 0;
    return ::uname(&system) == 0 && std::sscanf(system.release, "%u.%u", &major, &minor) == 2
           && (major > 6 || (major == 6 && minor >= 12));
}

bool isLater(const timespec& one, const timespec& other) {
    return one.tv_sec > other.tv_sec || (one.tv_sec == other.tv_sec && one.tv_nsec > other.tv_nsec);
}

/// Waits until what is changed gets a later date than whatever was changed up to `begun`: the clock that
/// dates are taken from advances in ticks.
bool waitForNewDates(const timespec& begun) {
    for (int poll = 0; poll < mostPolls; ++poll) {
        timespec now{};
        ::clock_gettime(CLOCK_REALTIME_COARSE, &now);
        if (isLater(now, begun)) {
            return true;
        }
        ::nanosleep(&pollInterval, nullptr);
    }
    return false;
}

} // namespace

std::optional<WriteWatch> WriteWatch::begin(const FileDescriptor& root) {
    struct statfs volume {};
    if (!kernelTellsAll() || ::fstatfs(root.get(), &volume) != 0 || volume.f_type != TMPFS_MAGIC) {
        return std::nullopt;
    }
    // Handles instead of descriptors: an event must not keep a file that was removed, nor open a device.
    FileDescriptor events(
        ::fanotify_init(FAN_CLASS_NOTIF | FAN_CLOEXEC | FAN_NONBLOCK | FAN_REPORT_FID, O_RDONLY | O_CLOEXEC));
    FileDescriptor mount(::open_tree(root.get(), "", OPEN_TREE_CLONE | OPEN_TREE_CLOEXEC | AT_EMPTY_PATH));
    FileDescriptor own(mount ? ::openat(mount.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC) : -1);
    const auto mark = [&](unsigned flags, std::uint64_t mask) {
        return ::fanotify_mark(events.get(), FAN_MARK_ADD | flags, mask, own.get(), nullptr) == 0;
    };
    // Without opening it a file can be cut short, which is to modify it.
    if (!events || !own || !mark(FAN_MARK_MOUNT | FAN_MARK_IGNORE_SURV, FAN_OPEN)
        || !mark(FAN_MARK_FILESYSTEM, FAN_OPEN | FAN_ATTRIB | FAN_MODIFY)) {
        traceRefused("save", "fanotify", "everything is read again");
        return std::nullopt;
    }
    timespec begun{};
    ::clock_gettime(CLOCK_REALTIME, &begun);
    if (!waitForNewDates(begun)) {
        return std::nullopt;
    }
    return WriteWatch(std::move(events), std::move(mount), std::move(own), begun);
}

bool WriteWatch::wouldShowInDate(const timespec& changed) const noexcept {
    return !isLater(changed, begun_);
}

bool WriteWatch::hasNoWriter(int file) noexcept {
    // The signal for a lease that somebody else asks for would by default end the process.
    return ::fcntl(file, F_SETSIG, SIGURG) == 0 && ::fcntl(file, F_SETLEASE, F_RDLCK) == 0
           && ::fcntl(file, F_SETLEASE, F_UNLCK) == 0;
}

const std::unordered_set<ino_t>* WriteWatch::touchedByOthers() {
    alignas(fanotify_event_metadata) std::array<char, 16384> buffer;
    while (isComplete_) {
        const auto length = ::read(events_.get(), buffer.data(), buffer.size());
        if (length < 0 && errno == EINTR) {
            continue;
        }
        if (length <= 0) {
            isComplete_ = length < 0 && errno == EAGAIN;
            break;
        }
        const auto* event = reinterpret_cast<const fanotify_event_metadata*>(buffer.data());
        for (auto left = length; FAN_EVENT_OK(event, left); event = FAN_EVENT_NEXT(event, left)) {
            note(reinterpret_cast<const char*>(event));
        }
    }
    return isComplete_ ? &touched_ : nullptr;
}

void WriteWatch::note(const char* event) {
    const auto& metadata = *reinterpret_cast<const fanotify_event_metadata*>(event);
    const auto* info = reinterpret_cast<const fanotify_event_info_fid*>(event + metadata.metadata_len);
    if (metadata.vers != FANOTIFY_METADATA_VERSION || (metadata.mask & FAN_Q_OVERFLOW) != 0
        || metadata.event_len < metadata.metadata_len + sizeof *info
        || info->hdr.info_type != FAN_EVENT_INFO_TYPE_FID) {
        isComplete_ = false;
        return;
    }
    // The kernel only reads it.
    auto* const place = const_cast<unsigned char*>(info->handle);
    const FileDescriptor file(
        ::open_by_handle_at(root_.get(), reinterpret_cast<file_handle*>(place), O_PATH | O_CLOEXEC));
    struct stat status {};
    if (file && ::fstat(file.get(), &status) == 0) {
        touched_.insert(status.st_ino);
    } else if (errno != ESTALE) {
        // What is stale was removed for good.
        isComplete_ = false;
    }
}

} // namespace ramdisk
