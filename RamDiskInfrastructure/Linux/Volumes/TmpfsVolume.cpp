#include "RamDiskInfrastructure/Linux/Volumes/TmpfsVolume.h"

#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskInfrastructure/Linux/Host/SmallFile.h"
#include "RamDiskInfrastructure/Linux/Mounting/VolumeMarkLinux.h"

#include <fmt/format.h>

namespace ramdisk {

namespace {

/// What the steps of one making hand to each other.
struct Parts {
    MountFolders::Made mountFolder;
    std::optional<DetachedMount> mount;
};

} // namespace

void TmpfsVolume::requireSupport(const RamDiskSpecification& /*specification*/) const {
    // Every kernel has it; the right to mount is what the ladder of rungs is about.
}

MountRequest TmpfsVolume::mountRequest(const DiskRecord& record,
                                       const RamDiskSpecification& specification) const {
    const auto pages = record.size.bytes / 4096;
    MountRequest request{
        "tmpfs",
        record.volumeTag(),
        {{"size", fmt::format("{}", record.size.bytes)},
         {"mode", specification.access == VolumeAccess::onlyMe ? "0700" : "0755"},
         {"uid", fmt::format("{}", host().owner)},
         {"gid", fmt::format("{}", host().ownerGroup)},
         // Empty files and folders take kernel memory that the size does not count: two for every page is
         // more than real trees have, and keeps a small disk from filling the machine with them.
         {"nr_inodes", fmt::format("{}", 2 * pages + 1024)}}};
    // For those who map a file and ask for them, as a restore does; nobody else's files take more memory.
    // Kernels without huge pages refuse the option.
    if (std::filesystem::exists(host().sys / "kernel/mm/transparent_hugepage/shmem_enabled")) {
        request.options.push_back({"huge", "advise"});
    } else {
        trace("volumes", "huge pages are not offered: this kernel has none for tmpfs");
    }
    return request;
}

std::vector<MachineStep> TmpfsVolume::makingSteps(VolumeRequest& request) const {
    auto parts = std::make_shared<Parts>();
    auto mount = mountRequest(request.hold.record, request.specification);
    const auto describeMount = fmt::format("fsopen {} as {} with {}, nosuid, nodev", mount.fileSystem,
                                           mount.source, mount.optionText());
    auto& record = request.hold.record;
    const auto mountPoint = preferredMountPoint(record).string();
    return {
        {fmt::format("mkdir {}", mountPoint),
         [&request, parts] { parts->mountFolder = request.makeMountFolder(); }},
        {describeMount, [parts, mount, interface = interface_] { parts->mount.emplace(mount, interface); }},
        {fmt::format("setxattr user.{} on its root", VolumeMark::attribute),
         [&record, parts] {
             if (parts->mount->root()) {
                 writeVolumeMark(parts->mount->root().get(), record.instance);
             }
         }},
        {fmt::format("move_mount to {}", mountPoint),
         [&record, parts] {
             parts->mount->attach(parts->mountFolder.path, parts->mountFolder.folder);
             if (!parts->mount->root()) {
                 writeVolumeMark(requireFolder(parts->mountFolder.path).get(), record.instance);
             }
         }},
    };
}

bool TmpfsVolume::isOurs(const DiskRecord& record, const MountEntry& entry) const {
    // Cheap questions first: a long list asks this of every mount.
    return entry.fileSystem == "tmpfs" && entry.source.starts_with(DiskRecord::tagPrefix)
           && entry.source == record.volumeTag();
}

std::string TmpfsVolume::fileSystemName(const DiskRecord& /*record*/) const {
    return "tmpfs";
}

bool TmpfsVolume::isLive(const DiskRecord& record, const MountTable& mounts) const {
    return !mountsOf(record, mounts).empty();
}

std::optional<ReleaseOutcome> TmpfsVolume::heldMemory(const DiskRecord& record,
                                                      const MountTable& mounts) const {
    if (const auto others = mountsOf(record, mounts); !others.empty()) {
        return heldByMount(others.front(), record);
    }
    // The kernel gives the number of a file system that is gone to the next one. Of a volume that somebody
    // else unmounted, and of which a folder stayed mounted elsewhere, no number is known.
    auto known = record;
    if (record.state != RecordState::detaching || mounts.shows(record.heldDevice)) {
        known.heldDevice = 0;
    }
    return heldOutOfSight(known);
}

} // namespace ramdisk
