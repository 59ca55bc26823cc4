#include "RamDiskInfrastructure/Linux/Disks/LinuxVolumeRenamer.h"

#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskCore/Values/RamDiskError.h"
#include "RamDiskInfrastructure/Commands/SystemCallError.h"
#include "RamDiskInfrastructure/Linux/Disks/RecordHealer.h"
#include "RamDiskInfrastructure/Linux/Mounting/LoopDevice.h"
#include "RamDiskInfrastructure/Linux/Records/DiskPlaces.h"
#include "RamDiskInfrastructure/Linux/Volumes/LoopVolumeRoot.h"

#include <fmt/format.h>

#include <cstdio>

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>

namespace ramdisk {

namespace {

namespace fs = std::filesystem;

enum class Moved { no, yes };

/// Has the mount at `from` be found at `to` instead.
Moved moveMountBetween(const fs::path& from, const MountFolders::Made& to) {
    if (move_mount(AT_FDCWD, from.c_str(), to.folder.get(), "", MOVE_MOUNT_T_EMPTY_PATH) == 0) {
        return Moved::yes;
    }
    traceRefused("mounts", "moving the mount", "a second one is made and the first one taken away");
    // Below a mount that is shared with other namespaces nothing may be moved; a second mount may be made,
    // and the first one taken away while nobody stands in it.
    FileDescriptor second(open_tree(AT_FDCWD, from.c_str(), OPEN_TREE_CLONE | OPEN_TREE_CLOEXEC));
    if (!second
        || move_mount(second.get(), "", to.folder.get(), "",
                      MOVE_MOUNT_F_EMPTY_PATH | MOVE_MOUNT_T_EMPTY_PATH)
               != 0) {
        return Moved::no;
    }
    // An open descriptor of the mount would keep it busy.
    second.reset();
    if (umount2(from.c_str(), UMOUNT_NOFOLLOW) == 0) {
        return Moved::yes;
    }
    traceRefused("mounts", "unmounting the former place", "the disk keeps its name");
    if (umount2(to.path.c_str(), UMOUNT_NOFOLLOW) != 0) {
        traceRefused("mounts", "unmounting the new place", "the disk is in both places");
    }
    return Moved::no;
}

} // namespace

void LinuxVolumeRenamer::rename(const RamDisk& volume, const std::string& newName) {
    whileHeld(volume, [&](RecordHold& hold) { renameHeld(hold, newName); });
}

void LinuxVolumeRenamer::setAccess(const RamDisk& volume, VolumeAccess access) {
    whileHeld(volume, [&](RecordHold& hold) { setAccessHeld(hold, access); });
}

void LinuxVolumeRenamer::whileHeld(const RamDisk& volume,
                                   const std::function<void(RecordHold&)>& work) const {
    try {
        for (const auto& record : context_->visibleRecords()) {
            if (record.device != volume.device) {
                continue;
            }
            auto hold = context_->storeOf(record).hold(record);
            const auto mounts = MountTable::read(context_->host.proc);
            const auto& kind = context_->volumes.of(record.kind);
            if (hold && kind.visibleAt(hold->record, mounts)
                && kind.describe(hold->record, mounts).attachment == volume.attachment) {
                work(*hold);
                return;
            }
        }
    } catch (const RamDiskError&) {
        throw;
    } catch (const std::exception& error) {
        throw RamDiskError(RamDiskError::FormattingFailed{error.what()});
    }
    throw RamDiskError(RamDiskError::NotFound{RamDiskReference{RamDiskReference::Device{volume.device}}});
}

void LinuxVolumeRenamer::renameHeld(RecordHold& hold, const std::string& newName) const {
    const auto& store = context_->storeOf(hold.record);
    const auto lock = store.lockNames();
    requireFreeName(store, hold.record, newName);
    hold.record.name = newName;
    if (hold.record.kind == VolumeKind::folder) {
        moveFolder(hold);
        return;
    }
    moveMount(hold);
    if (hold.record.kind == VolumeKind::loop && !hold.record.isEncrypted) {
        LoopVolumeRoot::setLabel(hold.record.mountPoint, newName);
    }
}

void LinuxVolumeRenamer::setAccessHeld(RecordHold& hold, VolumeAccess access) const {
    const auto& store = context_->storeOf(hold.record);
    const auto lock = store.lockNames();
    auto& record = hold.record;
    const bool isPrivate = access == VolumeAccess::onlyMe;
    const auto setModes = [&] {
        // The root may be the user's own choice of mode otherwise; who may enter is what was asked for now.
        if (chmod(record.mountPoint.c_str(), isPrivate ? 0700 : 0755) != 0) {
            throw SystemCallError("set who may open", record.mountPoint);
        }
        if (record.loop && chmod(LoopDevice::pathOf(*record.loop).c_str(), isPrivate ? 0600 : 0660) != 0) {
            throw SystemCallError("set who may read the device of", record.mountPoint);
        }
    };
    if (isPrivate) {
        setModes();
    }
    record.access = access;
    if (record.kind == VolumeKind::folder) {
        store.update(hold);
    } else {
        moveMount(hold);
    }
    if (!isPrivate) {
        setModes();
    }
}

void LinuxVolumeRenamer::moveMount(RecordHold& hold) const {
    const auto& store = context_->storeOf(hold.record);
    auto& record = hold.record;
    const auto former = record.mountPoint;
    if (context_->volumes.of(record.kind).preferredMountPoint(record) == former) {
        store.update(hold);
        return;
    }
    record.formerMountPoint = former;
    const auto made = makeMountFolder(context_->host, store, hold, context_->notice);
    if (moveMountBetween(former, made) == Moved::yes) {
        RecordHealer(*context_).tellMovedAside(record, MountFolders::remove(former));
    } else {
        MountFolders::remove(made.path);
        record.mountPoint = former;
        context_->notice(fmt::format("“{}” is in use, so it stays at {} until it is ejected.", record.name,
                                     former.string()));
    }
    record.formerMountPoint.clear();
    store.update(hold);
}

void LinuxVolumeRenamer::moveFolder(RecordHold& hold) const {
    auto& record = hold.record;
    const auto former = record.mountPoint;
    record.mountPoint = context_->volumes.of(record.kind).preferredMountPoint(record);
    if (std::rename(former.c_str(), record.mountPoint.c_str()) != 0) {
        throw SystemCallError("rename", former);
    }
    context_->storeOf(record).update(hold);
}

} // namespace ramdisk
