#include "RamDiskInfrastructure/Linux/Mounting/MountTableWatch.h"

#include "RamDiskInfrastructure/Commands/SystemCallError.h"

#include <array>
#include <cerrno>
#include <cstdint>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace ramdisk {

namespace {

/// One unmount is often followed by the next.
constexpr int settlingMilliseconds = 200;

void watch(int table, int end, const std::function<void()>& changed) {
    for (;;) {
        std::array<pollfd, 2> waited{{{table, POLLPRI, 0}, {end, POLLIN, 0}}};
        if (poll(waited.data(), waited.size(), -1) < 0) {
            if (errno == EINTR) {
                continue;
            }
            return;
        }
        pollfd ended{end, POLLIN, 0};
        if (waited[1].revents != 0 || poll(&ended, 1, settlingMilliseconds) > 0) {
            return;
        }
        changed();
    }
}

} // namespace

MountTableWatch::MountTableWatch(std::filesystem::path proc) : proc_(std::move(proc)) {}

MountTableWatch::~MountTableWatch() {
    stop();
}

void MountTableWatch::start(std::function<void()> changed) {
    const auto path = proc_ / "self/mountinfo";
    table_ = FileDescriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!table_) {
        throw SystemCallError("watch", path);
    }
    end_ = FileDescriptor(eventfd(0, EFD_CLOEXEC));
    if (!end_) {
        throw SystemCallError("watch the mount table");
    }
    thread_ = std::thread([table = table_.get(), end = end_.get(), changed = std::move(changed)] {
        watch(table, end, changed);
    });
}

void MountTableWatch::stop() noexcept {
    if (thread_.joinable()) {
        const std::uint64_t one = 1;
        static_cast<void>(::write(end_.get(), &one, sizeof one));
        thread_.join();
    }
}

} // namespace ramdisk
