#include "RamDiskInfrastructure/Linux/Volumes/LoopVolume.h"

#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskInfrastructure/Commands/SystemCallError.h"
#include "RamDiskInfrastructure/Linux/Host/ProcSystemMemoryProvider.h"
#include "RamDiskInfrastructure/Linux/Host/SmallFile.h"
#include "RamDiskInfrastructure/Linux/Host/SystemTools.h"
#include "RamDiskInfrastructure/Linux/Mounting/DetachedMount.h"
#include "RamDiskInfrastructure/Linux/Mounting/DmCrypt.h"
#include "RamDiskInfrastructure/Linux/Mounting/Fscrypt.h"
#include "RamDiskInfrastructure/Linux/Mounting/VolumeMarkLinux.h"
#include "RamDiskInfrastructure/Linux/Volumes/LoopVolumeRoot.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace ramdisk {

namespace {

/// Far beyond what laying a file system onto memory takes; a tool that hangs must not hang us.
constexpr double makingLimitInSeconds = 300;
constexpr double loadingLimitInSeconds = 30;
constexpr unsigned loopMajor = 7;

[[noreturn]] void throwUnsupported(const std::string& reason) {
    throw RamDiskError(RamDiskError::FormattingFailed{reason});
}

SystemCommand modprobe(std::vector<std::string> arguments) {
    return {findSystemTool("modprobe").value_or("/sbin/modprobe"),
            std::move(arguments),
            {},
            loadingLimitInSeconds};
}

std::string noFileSystem(FileSystem fileSystem) {
    return fmt::format("this kernel has no {} file system, which {} needs.",
                       LinuxFormat::of(fileSystem).kernelType, displayName(fileSystem));
}

/// Whether the mount's device is the loop device, or a container upon it.
bool liesOn(const MountEntry& entry, unsigned loop, const std::filesystem::path& sys) {
    if (entry.device == makedev(loopMajor, loop)) {
        return true;
    }
    const auto slave =
        sys / fmt::format("dev/block/{}:{}/slaves/loop{}", major(entry.device), minor(entry.device), loop);
    return access(slave.c_str(), F_OK) == 0;
}

} // namespace

EncryptionMeans availableEncryption() {
    if (DmCrypt::isSupported()) {
        return EncryptionMeans::luks;
    }
    return Fscrypt::isSupported() ? EncryptionMeans::fscrypt : EncryptionMeans::none;
}

/// What the steps of one build hand to each other. The plan of a build that never happens has only the
/// texts.
struct LoopVolume::Build {
    VolumeRequest& request;
    const LinuxFormat& format;
    EncryptionMeans encryption;
    MountFolders::Made mountFolder{};
    FileDescriptor memory{};
    std::optional<LoopDevice> loop{};
    std::filesystem::path device{};
    std::optional<DetachedMount> mount{};
    FileDescriptor root{};

    [[nodiscard]] DiskRecord& record() const { return request.hold.record; }
};

void LoopVolume::requireSupport(const RamDiskSpecification& specification) const {
    const auto& format = LinuxFormat::of(specification.fileSystem);
    const auto name = displayName(specification.fileSystem);
    if (!kernelListsFileSystem(format.kernelType, host().proc) && !canLoad(format.kernelType)) {
        throwUnsupported(noFileSystem(specification.fileSystem));
    }
    if (!findSystemTool(format.tool)) {
        throwUnsupported(
            fmt::format("{} needs the tool {}, of the package {}.", name, format.tool, format.package));
    }
    if (access("/dev/loop-control", R_OK | W_OK) != 0) {
        throwUnsupported(fmt::format("{} needs loop devices, and /dev/loop-control cannot be opened.", name));
    }
    if (specification.isEncrypted && probe_() == EncryptionMeans::none) {
        throwUnsupported("this kernel offers neither dm-crypt nor encryption in ext4.");
    }
}

bool LoopVolume::canLoad(const std::string& module) const {
    try {
        return runner_->run(modprobe({"-q", "--dry-run", module})).exitCode == 0;
    } catch (const std::exception&) {
        // Without the tool, or one that answers, nothing is loaded.
        return false;
    }
}

void LoopVolume::load(FileSystem fileSystem) const {
    const std::string type = LinuxFormat::of(fileSystem).kernelType;
    static_cast<void>(runner_->run(modprobe({"-q", type})));
    if (!kernelListsFileSystem(type, host().proc)) {
        throwUnsupported(noFileSystem(fileSystem));
    }
}

std::vector<MachineStep> LoopVolume::preparingSteps(const RamDiskSpecification& specification) const {
    const std::string type = LinuxFormat::of(specification.fileSystem).kernelType;
    if (kernelListsFileSystem(type, host().proc)) {
        return {};
    }
    return {{"modprobe " + type, [this, fileSystem = specification.fileSystem] { load(fileSystem); }}};
}

EncryptionMeans LoopVolume::encryption(const DiskRecord& record) const {
    return record.isEncrypted ? probe_() : EncryptionMeans::none;
}

std::vector<MachineStep> LoopVolume::makingSteps(VolumeRequest& request) const {
    const auto& record = request.hold.record;
    auto build =
        std::make_shared<Build>(Build{request, LinuxFormat::of(record.fileSystem), encryption(record)});
    auto steps = deviceSteps(build);
    auto more = fileSystemSteps(build);
    std::move(more.begin(), more.end(), std::back_inserter(steps));
    return steps;
}

std::vector<MachineStep> LoopVolume::deviceSteps(const std::shared_ptr<Build>& build) const {
    const auto& record = build->record();
    const auto tag = record.volumeTag();
    const auto size = build->request.specification.hasRestoreRoom
                          ? build->format.sizeWithRestoreRoom(record.size, host())
                          : record.size;
    const auto room = std::max(size, ProcSystemMemoryProvider(host().proc, host().sys).read().physical);
    std::vector<MachineStep> steps{
        {fmt::format("mkdir {}", preferredMountPoint(record).string()),
         [build] { build->mountFolder = build->request.makeMountFolder(); }},
        {fmt::format("memfd_create {}, {} bytes, sparse", tag, room.bytes),
         [build, tag, room] { build->memory = makeMemoryFile(tag, room); }},
        {fmt::format("LOOP_CONFIGURE a free loop device with the first {} bytes of it, autoclear",
                     size.bytes),
         [build, tag, size] {
             build->loop = LoopDevice::attach(build->memory, tag, size);
             // The device keeps the memory; a descriptor of ours would keep it beyond the device's end.
             build->memory.reset();
             build->device = build->loop->path();
             build->record().loop = build->loop->number();
             build->request.saveRecord();
             if (build->record().access == VolumeAccess::onlyMe && chmod(build->device.c_str(), 0600) != 0) {
                 throw SystemCallError("keep private the device", build->device);
             }
         }},
    };
    if (build->encryption == EncryptionMeans::luks) {
        steps.push_back({"cryptsetup luksFormat and open it, the key on standard input", [this, build, tag] {
                             build->device = DmCrypt(*runner_).makeAndOpen(
                                 build->device, tag, *build->request.protection.passphrase());
                         }});
    }
    return steps;
}

std::vector<MachineStep> LoopVolume::fileSystemSteps(const std::shared_ptr<Build>& build) const {
    const auto& record = build->record();
    const auto options = build->format.mountOptions(record, host());
    std::vector<MachineStep> steps{
        {fmt::format(
             "{} {}", build->format.tool,
             fmt::join(build->format.arguments(record, build->encryption, "the device", host()), " ")),
         [this, build] {
             const auto tool = findSystemTool(build->format.tool).value_or(build->format.tool);
             runner_->runChecked(
                 {tool,
                  build->format.arguments(build->record(), build->encryption, build->device.string(), host()),
                  {},
                  makingLimitInSeconds});
         }},
        {fmt::format("fsopen {} on it, nosuid, nodev", build->format.kernelType),
         [build, options] {
             build->mount.emplace(MountRequest{build->format.kernelType, build->device.string(), options},
                                  MountInterface::descriptors);
             build->loop.reset();
         }},
    };
    if (build->encryption == EncryptionMeans::luks) {
        steps.push_back({"cryptsetup close --deferred, for the time after the eject",
                         [this, tag = record.volumeTag()] { DmCrypt(*runner_).closeWhenUnused(tag); }});
    }
    steps.push_back({"prepare and mark its root", [this, build] { prepareRoot(*build); }});
    steps.push_back({fmt::format("move_mount to {}", preferredMountPoint(record).string()),
                     [build] { build->mount->attach(build->mountFolder.path, build->mountFolder.folder); }});
    return steps;
}

void LoopVolume::prepareRoot(Build& build) const {
    auto& mount = *build.mount;
    if (!mount.root()) {
        throw SystemCallError("mount a volume out of sight, as a loop device needs", ENOSYS);
    }
    if (build.format.metadata == LinuxFormat::Metadata::none) {
        return;
    }
    const auto& record = build.record();
    LoopVolumeRoot root(mount.root());
    root.keepBackClusters(host().sys, root.clustersBeyond(host().sys, record.size));
    root.removeLostAndFound();
    if (foldsCase(record, build.encryption, host())) {
        root.foldCase();
    }
    if (build.encryption == EncryptionMeans::fscrypt) {
        root.concealMountPoint();
        mount.narrowTo(root.makeEncryptedFolder(*build.request.protection.passphrase(), host()));
    }
    LoopVolumeRoot(mount.root()).setMode(record.access == VolumeAccess::onlyMe ? 0700 : 0755);
    writeVolumeMark(mount.root().get(), record.instance);
}

bool LoopVolume::isOurs(const DiskRecord& record, const MountEntry& entry) const {
    return record.loop && liesOn(entry, *record.loop, host().sys)
           && loops().carries(*record.loop, record.volumeTag());
}

bool LoopVolume::isLive(const DiskRecord& record, const MountTable& /*mounts*/) const {
    return record.loop && loops().carries(*record.loop, record.volumeTag());
}

std::string LoopVolume::fileSystemName(const DiskRecord& record) const {
    const auto& format = LinuxFormat::of(record.fileSystem);
    if (format.metadata == LinuxFormat::Metadata::none) {
        return format.kernelType;
    }
    return fmt::format("{} (journaled{})", format.kernelType, record.isEncrypted ? ", encrypted" : "");
}

std::optional<ByteCount> LoopVolume::deviceSize(const DiskRecord& record) const {
    const auto size = record.loop ? loops().size(*record.loop) : std::nullopt;
    return size ? std::optional(std::min(*size, record.size)) : std::nullopt;
}

void LoopVolume::stopWriters(const std::filesystem::path& mountPoint) const {
    LoopVolumeRoot::shutDown(mountPoint);
}

std::optional<ReleaseOutcome> LoopVolume::heldMemory(const DiskRecord& record,
                                                     const MountTable& mounts) const {
    if (const auto others = mountsOf(record, mounts); !others.empty()) {
        return heldByMount(others.front(), record);
    }
    if (!record.loop || loops().isReleased(*record.loop, record.volumeTag())) {
        return std::nullopt;
    }
    // A volume that somebody else took out of sight told nobody its number.
    auto known = record;
    known.heldDevice = record.heldDevice != 0 ? record.heldDevice : makedev(loopMajor, *record.loop);
    // What keeps it may be hidden from us.
    return heldOutOfSight(known).value_or(ReleaseOutcome{record.heldBytes, {}});
}

std::optional<std::filesystem::path> LoopVolume::removeRemains(const DiskRecord& record) const {
    if (record.isEncrypted && access(DmCrypt::containerPath(record.volumeTag()).c_str(), F_OK) == 0) {
        try {
            DmCrypt(*runner_).closeWhenUnused(record.volumeTag());
        } catch (const std::exception&) {
            // Still in use, or closing already: what remains is told by the device that it stands on.
            traceCaught("encryption", "an encrypted container is left to close by itself");
        }
    }
    if (record.access == VolumeAccess::onlyMe && record.loop
        && !loops().carries(*record.loop, record.volumeTag())) {
        // The node outlives the disk and is the next one's, who may want the mode that it usually has.
        static_cast<void>(chmod(LoopDevice::pathOf(*record.loop).c_str(), 0660));
    }
    return LinuxVolume::removeRemains(record);
}

} // namespace ramdisk
