#include "RamDiskInfrastructure/Linux/Volumes/LinuxVolume.h"

#include "RamDiskInfrastructure/Linux/Volumes/IndexingMarkers.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <chrono>
#include <thread>

namespace ramdisk {

bool LinuxVolume::isPristine(const DiskRecord& record) const {
    std::error_code error;
    std::filesystem::directory_iterator entries(record.mountPoint, error);
    if (error == std::errc::no_such_file_or_directory) {
        return true;
    }
    // A folder that cannot be looked into may hold anything.
    return !error && std::all_of(begin(entries), end(entries), [](const auto& entry) {
        const auto name = entry.path().filename();
        return std::find(indexingMarkers.begin(), indexingMarkers.end(), name.native())
               != indexingMarkers.end();
    });
}

std::optional<std::filesystem::path> LinuxVolume::removeRemains(const DiskRecord& record) const {
    // A maker that died may have had no time to mark its folder; later, an unmarked one is somebody else's.
    if (!record.mountPoint.empty()
        && (record.state == RecordState::making || MountFolders::mayBeOurs(record.mountPoint))) {
        return MountFolders::remove(record.mountPoint);
    }
    return std::nullopt;
}

RamDisk LinuxVolume::baseDescription(const DiskRecord& record) {
    RamDisk disk{record.device, record.name, record.size};
    disk.isCreatedByRamDisk = true;
    disk.instance = record.instance;
    disk.access = record.access;
    return disk;
}

std::optional<Detached> LinuxVolume::refuseMountBelow(const std::filesystem::path& folder,
                                                      const MountTable& mounts) {
    const auto* inner = mounts.below(folder);
    if (inner == nullptr) {
        return std::nullopt;
    }
    return Detached{Detached::Refused{mountedOnText(*inner)}};
}

void LinuxVolume::waitWhile(const std::function<bool()>& isBusy) {
    constexpr int looks = 10;
    constexpr std::chrono::milliseconds pause{10};
    for (int look = 1; isBusy() && look < looks; ++look) {
        std::this_thread::sleep_for(pause);
    }
}

Detached LinuxVolume::busy(const DiskRecord& record, const std::vector<VolumeUser>& users) {
    const auto names = ramdisk::describe(users);
    const auto who = names.empty() ? "open files" : fmt::format("{}", fmt::join(names, ", "));
    return {Detached::Refused{fmt::format("“{}” is kept busy by {}.", record.mountPoint.string(), who),
                              EjectObstacle::busy}};
}

std::optional<ReleaseOutcome> LinuxVolume::outcomeOf(const OpenFiles& files) {
    if (files.users.empty()) {
        return std::nullopt;
    }
    return ReleaseOutcome{files.held.value_or(ByteCount{}), ramdisk::describe(files.users)};
}

} // namespace ramdisk
