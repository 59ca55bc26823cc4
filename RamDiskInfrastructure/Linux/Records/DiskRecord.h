#pragma once

#include "RamDiskCore/Values/ByteCount.h"
#include "RamDiskCore/Values/DeviceIdentifier.h"
#include "RamDiskCore/Values/EnumerationTable.h"
#include "RamDiskCore/Values/FileSystem.h"
#include "RamDiskCore/Values/UUID.h"
#include "RamDiskCore/Values/VolumeAccess.h"

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include <sys/types.h>

namespace ramdisk {

/// What a disk is made of.
enum class VolumeKind {
    /// A tmpfs of its own.
    tmpfs,
    /// A file in memory behind a loop device, with a file system on it.
    loop,
    /// A folder on /dev/shm.
    folder,
};
template <>
inline constexpr auto enumerators<VolumeKind> = enumerationTable<Named<VolumeKind>>(
    {{VolumeKind::tmpfs, "tmpfs"}, {VolumeKind::loop, "loop"}, {VolumeKind::folder, "folder"}});

/// How far a disk has come.
enum class RecordState {
    /// Being made by the process that holds the record; abandoned when no process holds it.
    making,
    /// Complete.
    settled,
    /// Ejected; its memory is not back yet, since a program still has one of its files open.
    detaching,
};
template <>
inline constexpr auto
    enumerators<RecordState> = enumerationTable<Named<RecordState>>({{RecordState::making, "making"},
                                                                     {RecordState::settled, "settled"},
                                                                     {RecordState::detaching, "detaching"}});

/// What is remembered of an attached disk, beyond what the kernel shows: one file in a folder that is gone at
/// reboot, as the disks are. The kernel has the last word: a record whose `uuid` no mount, loop device or
/// folder shows speaks of nothing.
struct DiskRecord {
    /// The name of the record's file; not stored inside it.
    DeviceIdentifier device;
    /// Carried by the volume itself, where only its maker can put it.
    UUID uuid;
    /// The identifier inside the volume's mark.
    UUID instance;
    uid_t owner = 0;
    RecordState state = RecordState::making;
    VolumeKind kind = VolumeKind::tmpfs;
    ByteCount size{};
    std::string name{};
    FileSystem fileSystem = FileSystem::hfsPlus;
    VolumeAccess access = VolumeAccess::everyone;
    bool isEncrypted = false;
    /// The number of the loop device, once there is one.
    std::optional<unsigned> loop = std::nullopt;
    /// Empty until it is chosen. Written before the folder is made, so that a crash in between leaves a
    /// trace.
    std::filesystem::path mountPoint{};
    /// While a renaming moves the mount: where it was before. Empty at all other times.
    std::filesystem::path formerMountPoint{};
    /// While detaching: the file system's device number and how much memory it had when it was ejected.
    dev_t heldDevice = 0;
    ByteCount heldBytes{};
    /// The folder that the record was read from; not stored inside it.
    std::filesystem::path folder{};

    /// A record with fresh identifiers, for a device that is yet to be named.
    [[nodiscard]] static DiskRecord draft() {
        return {DeviceIdentifier::wholeDisk(0), UUID::random(), UUID::random()};
    }

    /// Tells this disk from others where the kernel numbers no attachments: nobody else draws our identifier.
    [[nodiscard]] std::uint64_t fallbackAttachment() const;

    /// How the kernel shows the volume: the source of its mount, the name of its memory file or of its
    /// folder.
    [[nodiscard]] std::string volumeTag() const { return std::string(tagPrefix) + uuid.text(); }
    static constexpr std::string_view tagPrefix = "ramdisk-";

    friend bool operator==(const DiskRecord&, const DiskRecord&) = default;
};

/// The record as its file holds it: one compact JSON object.
[[nodiscard]] std::string encodeRecord(const DiskRecord& record);

/// Reads what `encodeRecord` wrote. Absent for anything else, so that a foreign or damaged file is passed
/// over.
[[nodiscard]] std::optional<DiskRecord> decodeRecord(std::string_view text, const DeviceIdentifier& device);

} // namespace ramdisk
