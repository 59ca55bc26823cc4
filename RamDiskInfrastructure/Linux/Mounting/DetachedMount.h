#pragma once

#include "RamDiskInfrastructure/Commands/FileDescriptor.h"

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

namespace ramdisk {

/// How to make a mount. Kernels before 5.2, and sandboxes that filter the newer calls, offer only the classic
/// way.
enum class MountInterface { descriptors, classic };

/// What to mount.
struct MountRequest {
    std::string fileSystem;
    /// The mount table shows it.
    std::string source;
    /// Options of the file system, such as size and mode. An option with an empty value is a flag.
    std::vector<std::pair<std::string, std::string>> options;
    /// Whether programs on it may be run.
    enum class Programs { run, refuse } programs = Programs::run;
    enum class Access { readWrite, readOnly } access = Access::readWrite;

    /// The options as a user would type them: "size=4096,mode=0755".
    [[nodiscard]] std::string optionText() const;
};

/// A mounted file system that nobody can see yet. It is set up through its descriptor and then attached to a
/// folder in one step. Until then the kernel removes it when the process dies. With the classic interface
/// nothing is mounted before `attach`.
class DetachedMount {
public:
    /// Mounts with nosuid and nodev, and as the request says. Falls back to the classic interface if the
    /// kernel lacks the other one.
    /// @throws SystemCallError
    DetachedMount(MountRequest request, MountInterface interface);

    /// The root folder of the mount, for reading; invalid with the classic interface.
    [[nodiscard]] const FileDescriptor& root() const noexcept { return root_; }

    /// Makes only what lies below `folder`, a folder of this mount, visible later.
    /// @throws SystemCallError
    void narrowTo(FileDescriptor folder);

    /// Makes the mount visible at `path`, whose open folder is `folder`.
    /// @throws SystemCallError with nothing attached.
    void attach(const std::filesystem::path& path, const FileDescriptor& folder);

private:
    void openContext();

    MountRequest request_;
    FileDescriptor mount_;
    FileDescriptor root_;
};

} // namespace ramdisk
