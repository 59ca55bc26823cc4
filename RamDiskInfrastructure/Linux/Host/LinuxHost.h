#pragma once

#include "RamDiskCore/Values/EnumerationTable.h"

#include <filesystem>
#include <optional>
#include <vector>

#include <sys/types.h>

namespace ramdisk {

/// The ways in which a process can get a volume on Linux, best first.
enum class HostRung {
    /// The process may mount: volumes are real mounts with enforced sizes.
    kernel,
    /// The desktop's disk service mounts for it.
    udisks,
    /// A folder on /dev/shm: real memory, no mount, size not enforced.
    folder,
};

template <>
inline constexpr auto enumerators<HostRung> = enumerationTable<Named<HostRung>>(
    {{HostRung::kernel, "kernel"}, {HostRung::udisks, "udisks"}, {HostRung::folder, "folder"}});

/// Who runs this process, what it may do and where things are kept. Read once, at the start of the process.
///
/// `HOME` and the `XDG_*` variables are used. `TRAMDISK_HOST` forces a rung. `TRAMDISK_STATE` puts the
/// records and the mounts for everyone below one folder, and shows only what was made there. A process that
/// gained privileges ignores these two, since they could point it at another user's files.
struct LinuxHost {
    /// The owner of the disks that are made: the user behind sudo, if there is one.
    uid_t owner = 0;
    gid_t ownerGroup = 0;
    /// Whether the process acts as root and so sees everybody's disks.
    bool isRoot = false;
    /// Whether the process holds CAP_SYS_ADMIN.
    bool mayMount = false;
    std::optional<HostRung> forcedRung;

    /// Where this process records the disks that it makes.
    std::filesystem::path records;
    /// All folders of records that it looks into, `records` first.
    std::vector<std::filesystem::path> visibleRecords;
    /// Parents of the mount folders for everyone, in the order in which they are tried.
    std::vector<std::filesystem::path> publicMounts;
    /// Parent of the mount folders that only the user may enter.
    std::filesystem::path privateMounts;
    std::filesystem::path home;
    /// Where lists and saved files are kept between launches.
    std::filesystem::path applicationSupport;
    /// Where the user defaults are kept.
    std::filesystem::path configuration;

    /// Whether everything is kept below one folder, apart from the machine's other disks.
    bool isIsolated = false;

    std::filesystem::path sharedMemory = "/dev/shm";
    std::filesystem::path proc = "/proc";
    std::filesystem::path sys = "/sys";

    /// @throws std::runtime_error when a variable has an invalid value.
    [[nodiscard]] static LinuxHost current();

    /// The rung that this process starts with.
    [[nodiscard]] HostRung firstRung() const;
    /// Why it starts with that one, for people.
    [[nodiscard]] std::string_view firstRungReason() const;
};

} // namespace ramdisk
