#pragma once

#include "RamDiskCore/Ports/VolumeUsersListing.h"
#include "RamDiskCore/Values/ByteCount.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include <sys/types.h>

namespace ramdisk {

/// Where to look for open files.
struct FilesPlace {
    /// Everything on one file system, also after it was unmounted.
    struct Device {
        dev_t number;
    };
    /// Everything below one folder, also after it was deleted.
    struct Folder {
        std::filesystem::path path;
    };
    std::variant<Device, Folder> value;
};

/// The processes that use files of a place: have them open, map them, or have their working folder there. And
/// the memory that they keep there.
struct OpenFiles {
    std::vector<VolumeUser> users;
    /// The memory that cannot be freed while these files are open. Absent when unknown.
    std::optional<ByteCount> held;

    /// Checks every process that the caller may look into.
    [[nodiscard]] static OpenFiles find(const std::filesystem::path& proc, const FilesPlace& place);
};

/// The processes that run now, in no order.
[[nodiscard]] std::vector<std::int32_t> processesIn(const std::filesystem::path& proc);

/// The name of the process whose folder below /proc is given; "?" when it has ended.
[[nodiscard]] std::string commandName(const std::filesystem::path& process);

/// The processes as a message names them, such as "vim (4711)".
[[nodiscard]] std::vector<std::string> describe(const std::vector<VolumeUser>& users);

} // namespace ramdisk
