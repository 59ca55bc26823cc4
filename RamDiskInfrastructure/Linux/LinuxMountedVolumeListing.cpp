#include "RamDiskInfrastructure/Linux/LinuxMountedVolumeListing.h"

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
    for (const auto& record : context_->visibleRecords()) {
        ours.insert(record.mountPoint);
        if (!record.name.empty() && record.mountPoint != excluding) {
            names.insert(record.name);
        }
    }
    auto parents = context_->host.publicMounts;
    if (!context_->host.isIsolated) {
        parents.insert(parents.end(), {"/run/media", "/mnt"});
    }
    const auto mounts = MountTable::read(context_->host.proc);
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
