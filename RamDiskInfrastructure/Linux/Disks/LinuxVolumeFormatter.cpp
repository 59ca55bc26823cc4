#include "RamDiskInfrastructure/Linux/Disks/LinuxVolumeFormatter.h"

#include "RamDiskCore/Ports/RamDeviceAllocating.h"
#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskCore/Values/RamDiskError.h"
#include "RamDiskInfrastructure/Commands/SystemCallError.h"
#include "RamDiskInfrastructure/Linux/Host/SmallFile.h"
#include "RamDiskInfrastructure/Linux/Mounting/VolumeMarkLinux.h"
#include "RamDiskInfrastructure/Linux/Records/DiskPlaces.h"
#include "RamDiskInfrastructure/Linux/Volumes/LinuxFormat.h"

#include <fmt/format.h>

#include <fcntl.h>
#include <unistd.h>

namespace ramdisk {

VolumeKind LinuxVolumeFormatter::firstKind(const RamDiskSpecification& specification) const {
    if (context_->host.firstRung() == HostRung::folder) {
        return VolumeKind::folder;
    }
    return LinuxFormat::of(specification.fileSystem).kind;
}

void LinuxVolumeFormatter::requireSupport(const RamDiskSpecification& specification) const {
    trace("ladder", [&] {
        const auto& host = context_->host;
        return fmt::format("{}: {}", rawValue(host.firstRung()), host.firstRungReason());
    });
    context_->volumes.of(firstKind(specification)).requireSupport(specification);
}

void LinuxVolumeFormatter::prepare(const RamDiskSpecification& specification) {
    try {
        const auto& volume = context_->volumes.of(firstKind(specification));
        perform(volume.preparingSteps(specification), context_->observer);
    } catch (const RamDiskError&) {
        throw;
    } catch (const std::exception& error) {
        throw RamDiskError(RamDiskError::FormattingFailed{error.what()});
    }
}

std::vector<std::string>
LinuxVolumeFormatter::planPreparation(const RamDiskSpecification& specification) const {
    return descriptions(context_->volumes.of(firstKind(specification)).preparingSteps(specification));
}

MachineStep LinuxVolumeFormatter::claimNameStep(RecordHold& hold,
                                                const RamDiskSpecification& specification) const {
    return {fmt::format("record the name “{}”", specification.name), [&] { claimName(hold, specification); }};
}

void LinuxVolumeFormatter::claimName(RecordHold& hold, const RamDiskSpecification& specification) const {
    const auto& store = context_->ownStore();
    const auto lock = store.lockNames();
    // Validation saw the machine some time ago; from here on nobody else can take the name.
    requireFreeName(store, hold.record, specification.name);
    hold.record.name = specification.name;
    hold.record.fileSystem = specification.fileSystem;
    hold.record.access = specification.access;
    hold.record.isEncrypted = specification.isEncrypted;
    hold.record.kind = firstKind(specification);
    if (hold.record.kind == VolumeKind::folder) {
        hold.record.mountPoint = context_->volumes.of(hold.record.kind).preferredMountPoint(hold.record);
    }
    store.update(hold);
}

void LinuxVolumeFormatter::make(RecordHold& hold, const RamDiskSpecification& specification,
                                const VolumeProtection& protection) const {
    const auto& store = context_->ownStore();
    const auto makeFolder = [&] {
        const auto lock = store.lockNames();
        try {
            return makeMountFolder(context_->host, store, hold, context_->notice);
        } catch (const SystemCallError& error) {
            if (geteuid() != 0) {
                throw;
            }
            // Root may mount: a place that is refused is no reason to make another kind of disk.
            throw RamDiskError(RamDiskError::FormattingFailed{error.what()});
        }
    };
    VolumeRequest making{hold, specification, protection, [&] { store.update(hold); }, makeFolder};
    perform(context_->volumes.of(hold.record.kind).makingSteps(making), context_->observer);
}

void LinuxVolumeFormatter::fallBackToFolder(RecordHold& hold,
                                            const RamDiskSpecification& specification) const {
    const auto& folder = context_->volumes.of(VolumeKind::folder);
    folder.requireSupport(specification);
    context_->volumes.of(hold.record.kind).removeRemains(hold.record);
    hold.record.kind = VolumeKind::folder;
    hold.record.mountPoint = folder.preferredMountPoint(hold.record);
    context_->ownStore().update(hold);
}

std::filesystem::path LinuxVolumeFormatter::format(const DeviceIdentifier& device,
                                                   const RamDiskSpecification& specification,
                                                   const VolumeProtection& protection) {
    auto* hold = pending_->find(device);
    if (hold == nullptr) {
        throw RamDiskError(RamDiskError::FormattingFailed{
            fmt::format("{} is not being made by this process.", device.bsdName())});
    }
    try {
        perform({claimNameStep(*hold, specification)}, context_->observer);
        try {
            make(*hold, specification, protection);
        } catch (const SystemCallError& error) {
            if (!error.isLackOfRights() || context_->host.forcedRung
                || hold->record.kind == VolumeKind::folder) {
                throw;
            }
            traceCaught("ladder", "the kernel refuses, so the disk becomes a folder");
            fallBackToFolder(*hold, specification);
            make(*hold, specification, protection);
        }
    } catch (const RamDiskError&) {
        throw;
    } catch (const std::exception& error) {
        throw RamDiskError(RamDiskError::FormattingFailed{error.what()});
    }
    if (hold->record.kind == VolumeKind::folder) {
        context_->notice(
            fmt::format("This user may not mount, so the disk is a folder on {}; its size is not enforced.",
                        context_->host.sharedMemory.string()));
    }
    return hold->record.mountPoint;
}

std::vector<std::string> LinuxVolumeFormatter::plan(const RamDiskSpecification& specification) const {
    RecordHold draft{DiskRecord::draft(), {}};
    draft.record.size = {sectorCount(specification.size) * 512};
    draft.record.name = specification.name;
    draft.record.fileSystem = specification.fileSystem;
    draft.record.access = specification.access;
    draft.record.isEncrypted = specification.isEncrypted;
    draft.record.kind = firstKind(specification);
    const auto& volume = context_->volumes.of(draft.record.kind);
    draft.record.mountPoint = volume.preferredMountPoint(draft.record);
    const VolumeProtection none;
    VolumeRequest making{draft, specification, none, {}, {}};
    auto steps = volume.makingSteps(making);
    steps.insert(steps.begin(), claimNameStep(draft, specification));
    return descriptions(steps);
}

void LinuxVolumeFormatter::mark(const std::filesystem::path& volume) {
    writeVolumeMark(requireFolder(volume).get(), UUID::random());
}

} // namespace ramdisk
