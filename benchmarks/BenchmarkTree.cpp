#include "benchmarks/BenchmarkTree.h"

#include "RamDiskInfrastructure/Commands/FileDescriptor.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <system_error>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace ramdisk::benchmarks {

namespace {

constexpr int filesInAFolder = 100;
constexpr std::size_t bufferSize = 64U << 10U;

} // namespace

BenchmarkTree::BenchmarkTree(std::filesystem::path folder, Extent extent)
    : folder_(std::move(folder)),
      extent_(extent),
      buffer_(bufferSize, '\0') {}

std::filesystem::path BenchmarkTree::file(int number) const {
    return folder_ / std::to_string(number / filesInAFolder) / std::to_string(number);
}

void BenchmarkTree::make() {
    for (int number = 0; number < extent_.files; number += filesInAFolder) {
        std::filesystem::create_directories(file(number).parent_path());
    }
    change(1);
}

void BenchmarkTree::change(double share) {
    // rsync takes files for unchanged whose size and second of change are the same.
    std::this_thread::sleep_for(std::chrono::milliseconds(1100));
    const auto each = extent_.bytes / static_cast<std::uint64_t>(extent_.files);
    const auto part = [share](auto whole) { return static_cast<double>(whole) * share; };
    if (extent_.files == 1) {
        const auto length = static_cast<std::uint64_t>(part(each));
        write(file(0), (each - length) / 2, length);
        return;
    }
    for (int number = 0; number < static_cast<int>(part(extent_.files)); ++number) {
        write(file(number), 0, each);
    }
}

void BenchmarkTree::write(const std::filesystem::path& file, std::uint64_t start, std::uint64_t length) {
    const FileDescriptor open(::open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
    for (const auto end = start + length; start < end;) {
        for (std::size_t place = 0; place < buffer_.size(); place += sizeof random_) {
            random_ ^= random_ << 13U;
            random_ ^= random_ >> 7U;
            random_ ^= random_ << 17U;
            std::memcpy(buffer_.data() + place, &random_, sizeof random_);
        }
        const auto size = std::min<std::uint64_t>(buffer_.size(), end - start);
        const auto written = ::pwrite(open.get(), buffer_.data(), size, static_cast<off_t>(start));
        if (written <= 0) {
            throw std::system_error(errno, std::generic_category(), "write " + file.string());
        }
        start += static_cast<std::uint64_t>(written);
    }
}

} // namespace ramdisk::benchmarks
