#include "RamDiskInfrastructure/MacTools/ImageManifest.h"

#include "RamDiskInfrastructure/Commands/SystemCallError.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <iterator>
#include <utility>

namespace ramdisk {

namespace {

using namespace std::chrono_literals;

/// How far apart two changes must be for their dates to differ. HFS+ counts whole seconds.
std::chrono::nanoseconds granularity(const VolumeContents::Status& status) {
    const bool hasWholeSeconds = std::all_of(status.begin(), status.end(), [](const auto& item) {
        return item.second.changed.time_since_epoch() % 1s == 0ns;
    });
    return hasWholeSeconds ? std::chrono::nanoseconds(2s) : std::chrono::nanoseconds(20ms);
}

} // namespace

std::optional<ImageManifest> ImageManifest::of(const RamDisk& disk, const VolumeContents::Status& status,
                                               std::chrono::sys_time<std::chrono::nanoseconds> takenAt) {
    const auto latestProof = takenAt - granularity(status);
    const bool isProof =
        disk.instance && std::all_of(status.begin(), status.end(), [&latestProof](const auto& item) {
            return item.second.changed < latestProof;
        });
    if (!isProof) {
        return std::nullopt;
    }
    auto text = fmt::format("1 {} {} {}\n", disk.instance->text(), disk.capacity.bytes, disk.name);
    for (const auto& [path, item] : status) {
        text += fmt::format("{} {} {}", item.changed.time_since_epoch().count(), item.isFolder ? 'd' : '-',
                            path.native());
        // No path holds it, so no other list of items has this text.
        text += '\0';
    }
    return ImageManifest(std::move(text));
}

void ImageManifest::writeTo(const std::filesystem::path& volume) const {
    std::ofstream file(volume / fileName, std::ios::binary | std::ios::trunc);
    file << text_ << std::flush;
    if (!file) {
        throw SystemCallError("write", volume / fileName, errno);
    }
}

bool ImageManifest::isOn(const std::filesystem::path& volume) const {
    std::ifstream file(volume / fileName, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {}) == text_;
}

} // namespace ramdisk
