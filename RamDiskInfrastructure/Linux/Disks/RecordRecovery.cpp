#include "RamDiskInfrastructure/Linux/Disks/RecordRecovery.h"

#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskInfrastructure/Linux/Mounting/LoopDevice.h"
#include "RamDiskInfrastructure/Linux/Mounting/VolumeMarkLinux.h"
#include "RamDiskInfrastructure/Linux/Volumes/LinuxFormat.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>
#include <utility>

#include <sys/stat.h>
#include <sys/statfs.h>

namespace ramdisk {

namespace {

constexpr std::size_t lengthOfIdentifier = 36;

/// The identifier in a volume's tag.
std::optional<UUID> identifierIn(std::string_view tag) {
    return tag.starts_with(DiskRecord::tagPrefix)
               ? UUID::parse(tag.substr(DiskRecord::tagPrefix.size(), lengthOfIdentifier))
               : std::nullopt;
}

/// A volume in memory as its mount or its loop device names it, without anything else.
DiskRecord draftOf(const UUID& uuid, VolumeKind kind) {
    auto draft = DiskRecord::draft();
    draft.uuid = uuid;
    draft.kind = kind;
    draft.state = RecordState::settled;
    // Until its mount has told, it may be.
    draft.isEncrypted = true;
    return draft;
}

/// The first format that is made of such a volume.
FileSystem formatOf(const DiskRecord& record, const std::string& kernelType) {
    for (const auto format : allFileSystems) {
        const auto& facts = LinuxFormat::of(format);
        if (facts.kind == record.kind && facts.kernelType == kernelType
            && (!record.isEncrypted || supportsEncryption(format))) {
            return format;
        }
    }
    return record.fileSystem;
}

bool liesIn(const std::filesystem::path& path, const std::filesystem::path& folder) {
    return path.parent_path().native() == folder.native();
}

/// Completes the draft of a volume by its mount. @returns whether that can be looked at.
bool describeBy(const MountEntry& entry, const LinuxHost& host, DiskRecord& draft) {
    struct stat root {};
    struct statfs volume {};
    const auto& path = entry.mountPoint;
    if (lstat(path.c_str(), &root) != 0 || statfs(path.c_str(), &volume) != 0) {
        return false;
    }
    draft.mountPoint = path;
    draft.name = path.filename().string();
    draft.owner = root.st_uid;
    draft.access = liesIn(path, host.privateMounts) || (root.st_mode & 0077U) == 0 ? VolumeAccess::onlyMe
                                                                                   : VolumeAccess::everyone;
    draft.isEncrypted = entry.root != "/" || entry.source.starts_with("/dev/mapper/");
    draft.fileSystem = formatOf(draft, entry.fileSystem);
    draft.size = {volume.f_blocks * static_cast<std::uint64_t>(volume.f_bsize)};
    if (draft.loop) {
        draft.size = LoopDevices{host.sys}.size(*draft.loop).value_or(draft.size);
    }
    if (const auto mark = readVolumeMark(path); mark.instance) {
        draft.instance = *mark.instance;
    }
    return true;
}

} // namespace

std::vector<DiskRecord> RecordRecovery::volumesWithout(const std::vector<DiskRecord>& records) const {
    std::vector<DiskRecord> drafts;
    const auto& host = context_.host;
    const auto mounts = MountTable::read(host.proc);
    const auto add = [&](const std::optional<UUID>& uuid, VolumeKind kind, std::optional<unsigned> loop) {
        const auto isOfIt = [&uuid](const DiskRecord& record) { return record.uuid == uuid; };
        if (uuid && std::none_of(records.begin(), records.end(), isOfIt)
            && std::none_of(drafts.begin(), drafts.end(), isOfIt)) {
            drafts.push_back(draftOf(*uuid, kind));
            drafts.back().loop = loop;
        }
    };
    for (const auto& entry : mounts.entries()) {
        if (entry.fileSystem == "tmpfs") {
            add(identifierIn(entry.source), VolumeKind::tmpfs, {});
        }
    }
    for (const auto& [number, file] : LoopDevices{host.sys}.backingFiles()) {
        constexpr std::string_view memory = "/memfd:";
        const std::string_view name(file.native());
        add(name.starts_with(memory) ? identifierIn(name.substr(memory.size())) : std::nullopt,
            VolumeKind::loop, number);
    }
    std::erase_if(drafts, [&](DiskRecord& draft) {
        // Where its only mount is; a volume that cannot be seen is for nobody to save.
        const auto place = context_.volumes.of(draft.kind).visibleAt(draft, mounts);
        const auto* entry = place ? mounts.topmostAt(*place) : nullptr;
        return entry == nullptr || !describeBy(*entry, host, draft)
               || !(host.isRoot || draft.owner == host.owner);
    });
    return drafts;
}

void RecordRecovery::recover(std::vector<DamagedRecord> damaged,
                             const std::vector<DiskRecord>& intact) const {
    auto found = volumesWithout(intact);
    const auto& host = context_.host;
    // Disks of another folder of records have their mounts elsewhere.
    const auto isHere = [&host](const DiskRecord& draft) {
        const auto& folders = host.publicMounts;
        return liesIn(draft.mountPoint, host.privateMounts)
               || std::any_of(folders.begin(), folders.end(),
                              [&draft](const auto& folder) { return liesIn(draft.mountPoint, folder); });
    };
    for (const bool isNamed : {true, false}) {
        std::erase_if(damaged, [&](const DamagedRecord& record) {
            const auto match = std::find_if(found.begin(), found.end(), [&](const DiskRecord& draft) {
                return isNamed ? record.text.find(draft.uuid.text()) != std::string::npos : isHere(draft);
            });
            if (match == found.end()) {
                return false;
            }
            replace(record, *match);
            found.erase(match);
            return true;
        });
    }
    for (const auto& record : damaged) {
        if (DiskRecordStore(record.folder).isOwn()) {
            context_.notice(fmt::format(
                "The record of {} in “{}” is damaged, and no mounted volume shows which disk it was of, so "
                "nothing of it can be saved. Where disks are folders, their files are still in “{}”.",
                record.device.bsdName(), record.folder.string(), host.sharedMemory.string()));
        }
    }
}

void RecordRecovery::replace(const DamagedRecord& damaged, DiskRecord found) const {
    found.device = damaged.device;
    found.folder = damaged.folder;
    const auto& store = context_.storeOf(found);
    const auto device = found.device.bsdName();
    const auto name = found.name;
    const auto owner = found.owner;
    try {
        if (!store.isOwn()) {
            if (owner == context_.host.owner) {
                context_.notice(fmt::format(
                    "The record of “{}” ({}) is damaged. `sudo tramdisk list` makes it anew.", name, device));
            }
            return;
        }
        if (store.replaceDamaged(std::move(found))) {
            context_.notice(
                fmt::format("The record of “{}” ({}) was damaged and is made anew from what the kernel shows "
                            "of the disk. `tramdisk save` saves its files if it keeps them.",
                            name, device));
        }
    } catch (const std::exception& error) {
        context_.notice(fmt::format("The record of “{}” ({}) is damaged: {}.", name, device, error.what()));
    }
}

} // namespace ramdisk
