#include "RamDiskInfrastructure/Linux/Disks/LinuxMountedVolumeListing.h"

#include "RamDiskInfrastructure/Linux/Disks/RecordHealer.h"

namespace ramdisk {

namespace {

namespace fs = std::filesystem;

bool isBelow(const fs::path& path, const fs::path& folder) {
    return path.native().starts_with(folder.native() + "/");
}

} // namespace

std::set<std::string> LinuxMountedVolumeListing::volumeNames(const std::optional<fs::path>& excluding) const {
    std::set<std::string> names;
    std::set<fs::path> ours;
    const auto records = context_->visibleRecords();
    auto mounts = MountTable::read(context_->host.proc);
    const RecordHealer healer(*context_);
    for (const auto& record : records) {
        if (!healer.stands(record, mounts)) {
            // Healing may have unmounted it.
            mounts = MountTable::read(context_->host.proc);
            continue;
        }
        if (record.state == RecordState::detaching) {
            continue;
        }
        ours.insert(record.mountPoint);
        if (!record.name.empty() && record.mountPoint != excluding) {
            names.insert(record.name);
        }
    }
    auto parents = context_->host.publicMounts;
    if (!context_->host.isIsolated) {
        parents.insert(parents.end(), {"/run/media", "/mnt"});
    }
    for (const auto& entry : mounts.entries()) {
        if (entry.mountPoint == excluding || ours.contains(entry.mountPoint)) {
            continue;
        }
        for (const auto& parent : parents) {
            if (isBelow(entry.mountPoint, parent)) {
                names.insert(entry.mountPoint.filename().string());
            }
        }
    }
    return names;
}

} // namespace ramdisk
