#include "RamDiskInfrastructure/Linux/Mounting/LoopDevice.h"

#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskInfrastructure/Commands/SystemCallError.h"
#include "RamDiskInfrastructure/Linux/Host/SmallFile.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <thread>

#include <fcntl.h>
#include <linux/loop.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace ramdisk {

FileDescriptor makeMemoryFile(const std::string& tag, ByteCount size) {
    FileDescriptor file(memfd_create(tag.c_str(), MFD_CLOEXEC));
    if (!file || ftruncate(file.get(), static_cast<off_t>(size.bytes)) != 0) {
        throw SystemCallError("make a file in memory");
    }
    return file;
}

std::filesystem::path LoopDevice::pathOf(unsigned number) {
    return fmt::format("/dev/loop{}", number);
}

LoopDevice LoopDevice::attach(const FileDescriptor& file, const std::string& tag, ByteCount capacity,
                              LoopAccess access) {
    const bool isReadOnly = access == LoopAccess::readOnly;
    const FileDescriptor control(open("/dev/loop-control", O_RDWR | O_CLOEXEC));
    if (!control) {
        throw SystemCallError("open", "/dev/loop-control");
    }
    for (;;) {
        const int number = ioctl(control.get(), LOOP_CTL_GET_FREE);
        if (number < 0) {
            throw SystemCallError("find a free loop device");
        }
        const auto path = pathOf(static_cast<unsigned>(number));
        FileDescriptor device(open(path.c_str(), (isReadOnly ? O_RDONLY : O_RDWR) | O_CLOEXEC));
        if (!device) {
            throw SystemCallError("open", path);
        }
        loop_config config{};
        config.fd = static_cast<__u32>(file.get());
        config.info.lo_sizelimit = capacity.bytes;
        config.info.lo_flags = LO_FLAGS_AUTOCLEAR;
        if (isReadOnly) {
            config.info.lo_flags |= LO_FLAGS_READ_ONLY;
        } else if (access == LoopAccess::writeThrough) {
            config.info.lo_flags |= LO_FLAGS_DIRECT_IO;
        }
        std::memcpy(config.info.lo_file_name, tag.data(),
                    std::min<std::size_t>(tag.size(), LO_NAME_SIZE - 1));
        if (ioctl(device.get(), LOOP_CONFIGURE, &config) == 0) {
            return {static_cast<unsigned>(number), std::move(device)};
        }
        // Somebody else was quicker to put something behind the free device.
        if (errno != EBUSY) {
            throw SystemCallError("configure", path);
        }
        traceRefused("loop", "LOOP_CONFIGURE", "somebody was quicker, so the next free device is tried");
    }
}

bool LoopDevices::carries(unsigned number, const std::string& tag) const {
    const auto backing = tryReadSmallFile(sys / fmt::format("block/loop{}/loop/backing_file", number));
    return backing && backing->starts_with(fmt::format("/memfd:{}", tag));
}

std::optional<ByteCount> LoopDevices::size(unsigned number) const {
    const auto sectors = tryReadSmallFile(sys / fmt::format("block/loop{}/size", number));
    const auto count = sectors ? std::strtoull(sectors->c_str(), nullptr, 10) : 0;
    return count == 0 ? std::nullopt : std::optional(ByteCount{count * 512});
}

std::vector<std::pair<unsigned, std::filesystem::path>> LoopDevices::backingFiles() const {
    std::vector<std::pair<unsigned, std::filesystem::path>> files;
    std::error_code error;
    const auto block = sys / "block";
    for (std::filesystem::directory_iterator entry(block, error), end; !error && entry != end;
         entry.increment(error)) {
        constexpr std::string_view prefix = "loop";
        const auto name = entry->path().filename().string();
        auto backing = tryReadSmallFile(entry->path() / "loop/backing_file");
        if (!name.starts_with(prefix) || !backing) {
            continue;
        }
        if (backing->ends_with('\n')) {
            backing->pop_back();
        }
        const auto number = std::strtoul(name.c_str() + prefix.size(), nullptr, 10);
        files.emplace_back(static_cast<unsigned>(number), std::move(*backing));
    }
    if (error) {
        throw SystemCallError("list", block, error.value());
    }
    return files;
}

std::optional<LoopDevices::Backing> LoopDevices::backing(unsigned number) noexcept {
    const FileDescriptor node(open(LoopDevice::pathOf(number).c_str(), O_RDONLY | O_CLOEXEC));
    loop_info64 info{};
    if (node && ioctl(node.get(), LOOP_GET_STATUS64, &info) == 0) {
        return Backing{info.lo_device, info.lo_inode};
    }
    return node && errno == ENXIO ? std::optional(Backing{}) : std::nullopt;
}

bool LoopDevices::isReleased(unsigned number, const std::string& tag) const {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(1);
    while (carries(number, tag)) {
        if (std::chrono::steady_clock::now() > deadline) {
            trace("loop", "/dev/loop{} still carries the disk after a second", number);
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

} // namespace ramdisk
