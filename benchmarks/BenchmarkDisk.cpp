#include "benchmarks/BenchmarkDisk.h"

#include <fmt/format.h>

#include <cerrno>
#include <chrono>
#include <fstream>
#include <limits>
#include <stdexcept>
#include <string>
#include <system_error>

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace ramdisk::benchmarks {

BenchmarkDisk::BenchmarkDisk(const std::filesystem::path& folder)
    : folder_(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    struct stat status {};
    struct statfs system {};
    if (!folder_ || fstat(folder_.get(), &status) != 0 || fstatfs(folder_.get(), &system) != 0) {
        throw std::system_error(errno, std::generic_category(), "look at " + folder.string());
    }
    if (system.f_type == TMPFS_MAGIC) {
        throw std::runtime_error(
            fmt::format("{} is in memory: set TMPDIR to a folder on the system disk", folder.string()));
    }
    statistics_ = fmt::format("/sys/dev/block/{}:{}/stat", major(status.st_dev), minor(status.st_dev));
}

DiskCost BenchmarkDisk::costOf(const std::function<void()>& work) const {
    flush();
    const auto before = written();
    const auto start = std::chrono::steady_clock::now();
    work();
    flush();
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    return {taken.count(), written() - before};
}

void BenchmarkDisk::flush() const {
    if (syncfs(folder_.get()) != 0) {
        throw std::system_error(errno, std::generic_category(), "write to the system disk");
    }
}

void BenchmarkDisk::forgetCaches() const {
    flush();
    std::ofstream file("/proc/sys/vm/drop_caches");
    if (!(file << "3" << std::flush)) {
        throw std::system_error(errno, std::generic_category(), "empty the page cache");
    }
}

double BenchmarkDisk::written() const {
    // The seventh number: sectors of 512 bytes written.
    std::ifstream file(statistics_);
    double value = 0;
    for (int field = 0; field < 7; ++field) {
        file >> value;
    }
    return file ? value / 2048 : std::numeric_limits<double>::quiet_NaN();
}

} // namespace ramdisk::benchmarks
