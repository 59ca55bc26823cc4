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
    /// The process that holds the record is making the disk. If no process holds it, the disk is abandoned.
    making,
    /// Complete.
    settled,
    /// Ejected, but its memory is not free yet, since a program still has one of its files open.
    detaching,
};
template <>
inline constexpr auto
    enumerators<RecordState> = enumerationTable<Named<RecordState>>({{RecordState::making, "making"},
                                                                     {RecordState::settled, "settled"},
                                                                     {RecordState::detaching, "detaching"}});

/// What is remembered about an attached disk, beyond what the kernel shows. Each record is one file in a
/// folder that is gone at reboot, as the disks are. The kernel has the last word: if no mount, loop device or
/// folder shows the record's `uuid`, the disk does not exist.
struct DiskRecord {
    /// The name of the record's file; not stored inside it.
    DeviceIdentifier device;
    /// The volume itself carries it, where only its maker can put it.
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
    /// Empty until it is chosen. Written before the folder is made, so that a crash in between leaves a trace
    /// of it.
    std::filesystem::path mountPoint{};
    /// While a rename moves the mount: the mount point before it. Empty at all other times.
    std::filesystem::path formerMountPoint{};
    /// While detaching: the file system's device number, and how much memory it had when it was ejected.
    dev_t heldDevice = 0;
    ByteCount heldBytes{};
    /// The folder with the notes of what the disk keeps. Empty for a disk that never kept files.
    std::filesystem::path keeper{};
    /// The folder that the record was read from; not stored inside it.
    std::filesystem::path folder{};

    /// A record with new identifiers, for a device that has no name yet.
    [[nodiscard]] static DiskRecord draft() {
        return {DeviceIdentifier::wholeDisk(0), UUID::random(), UUID::random()};
    }

    /// Tells this disk from others if the kernel has no unique numbers for mounts. No other disk has the same
    /// identifier.
    [[nodiscard]] std::uint64_t fallbackAttachment() const;

    /// The name under which the kernel shows the volume: the source of its mount, the name of its memory file
    /// or of its folder.
    [[nodiscard]] std::string volumeTag() const { return std::string(tagPrefix) + uuid.text(); }
    static constexpr std::string_view tagPrefix = "ramdisk-";

    friend bool operator==(const DiskRecord&, const DiskRecord&) = default;
};

/// The content of the record's file: one compact JSON object.
[[nodiscard]] std::string encodeRecord(const DiskRecord& record);

/// Reads what `encodeRecord` wrote. Absent for anything else, so a foreign or damaged file is skipped.
[[nodiscard]] std::optional<DiskRecord> decodeRecord(std::string_view text, const DeviceIdentifier& device);

} // namespace ramdisk
