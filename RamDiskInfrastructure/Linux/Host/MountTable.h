#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include <sys/types.h>

namespace ramdisk {

/// One mounted file system, as this process's mount namespace shows it.
struct MountEntry {
    std::uint64_t id = 0;
    /// The mount that this one was mounted on.
    std::uint64_t parent = 0;
    dev_t device = 0;
    /// The folder of the file system that is mounted; "/" unless only a part of it is mounted (bind mount).
    std::string root;
    std::filesystem::path mountPoint;
    std::string fileSystem;
    std::string source;
    /// The options of the file system, separated by commas.
    std::string options;

    friend bool operator==(const MountEntry&, const MountEntry&) = default;
};

/// All mounts, in the order in which the kernel lists them. This order does not show which of several mounts
/// at one path is visible, since a mount can be moved on top of a younger one.
class MountTable {
public:
    /// Reads the text of /proc/self/mountinfo. Lines of another form are left out.
    [[nodiscard]] static MountTable parse(std::string_view text);

    /// The mounts as they are now.
    /// @throws SystemCallError when they cannot be read.
    [[nodiscard]] static MountTable read(const std::filesystem::path& proc);

    [[nodiscard]] const std::vector<MountEntry>& entries() const noexcept { return entries_; }

    /// The mount that the path `mountPoint` leads to. Null when nothing is mounted exactly there.
    [[nodiscard]] const MountEntry* topmostAt(const std::filesystem::path& mountPoint) const;

    /// A mount somewhere below the folder, not at it. Null when there is none.
    [[nodiscard]] const MountEntry* below(const std::filesystem::path& folder) const;

    /// A mount that was made on a folder of this mount. Null when there is none.
    [[nodiscard]] const MountEntry* on(const MountEntry& mount) const;

    /// Whether any mount shows this file system.
    [[nodiscard]] bool shows(dev_t device) const;

private:
    std::vector<MountEntry> entries_;
};

/// Why a volume cannot go that another one is mounted on.
[[nodiscard]] std::string mountedOnText(const MountEntry& inner);

} // namespace ramdisk
