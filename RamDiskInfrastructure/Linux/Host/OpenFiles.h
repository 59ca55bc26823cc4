#pragma once

#include "RamDiskCore/Ports/VolumeUsersListing.h"
#include "RamDiskCore/Values/ByteCount.h"

#include <filesystem>
#include <optional>
#include <variant>
#include <vector>

#include <sys/types.h>

namespace ramdisk {

/// Where the files lie whose users are looked for.
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

/// The processes that have files of a place open, stand in it, or map them, and what memory they keep there.
struct OpenFiles {
    std::vector<VolumeUser> users;
    /// The memory that cannot come back while these files are open; absent when it could not be told.
    std::optional<ByteCount> held;

    /// Looks through every process that the caller may look into.
    [[nodiscard]] static OpenFiles find(const std::filesystem::path& proc, const FilesPlace& place);
};

/// The users as a message names them, such as "vim (4711)".
[[nodiscard]] std::vector<std::string> describe(const std::vector<VolumeUser>& users);

} // namespace ramdisk
