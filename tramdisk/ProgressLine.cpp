#include "tramdisk/ProgressLine.h"

#include "RamDiskCore/Values/ByteCountFormat.h"
#include "tramdisk/Console.h"

#include <fmt/format.h>

#include <cstdio>
#include <utility>

#include <unistd.h>

namespace ramdisk::cli {

namespace {

constexpr std::chrono::milliseconds patience{1000};
constexpr std::chrono::milliseconds pause{100};

} // namespace

ProgressLine::ProgressLine(const GlobalOptions& options, std::string verb)
    : verb_(std::move(verb)),
      isShown_(!options.quiet && !options.json && isatty(STDERR_FILENO) != 0),
      next_(Clock::now() + patience) {}

ProgressLine::~ProgressLine() {
    if (isDrawn_) {
        static_cast<void>(std::fputs("\r\033[K", stderr));
    }
}

void ProgressLine::show(const std::string& diskName, const TransferProgress& progress) {
    const auto now = Clock::now();
    if (!isShown_ || now < next_) {
        return;
    }
    next_ = now + pause;
    isDrawn_ = true;
    const auto share = progress.totalBytes == 0
                           ? std::string()
                           : fmt::format(" {} %,", progress.bytes * 100 / progress.totalBytes);
    fmt::print(stderr, "\r\033[K{} “{}”:{} {}, {} files", verb_, printable(diskName), share,
               format(ByteCount{progress.bytes}), progress.files);
    static_cast<void>(std::fflush(stderr));
}

ProgressObserver ProgressLine::observer(const std::string& diskName) {
    return [this, diskName](const TransferProgress& progress) { show(diskName, progress); };
}

SessionLifecycleUseCase::Observer ProgressLine::observer() {
    return
        [this](const std::string& diskName, const TransferProgress& progress) { show(diskName, progress); };
}

} // namespace ramdisk::cli
