#pragma once

#include "RamDiskCore/Ports/CommandRunning.h"
#include "RamDiskCore/Values/VolumePassphrase.h"

#include <filesystem>
#include <string>

namespace ramdisk {

/// LUKS2 containers by the `cryptsetup` tool. The passphrase reaches it on standard input only.
class DmCrypt {
public:
    explicit DmCrypt(CommandRunning& runner) : runner_(runner) {}

    /// Whether the kernel really has the target that decrypts, and the tool is installed. The control node
    /// alone proves nothing: some containers have it but may not use it.
    [[nodiscard]] static bool isSupported();

    /// Makes a container on the device and opens it. A tool that dies half way leaves it closed or open;
    /// `closeWhenUnused` handles both.
    /// @returns the device of the open container.
    /// @throws CommandFailure, CommandTimeout, std::system_error
    std::filesystem::path makeAndOpen(const std::filesystem::path& device, const std::string& name,
                                      const VolumePassphrase& passphrase);

    /// Tells the kernel to close the container as soon as nothing uses it any more.
    /// @throws CommandFailure, CommandTimeout, std::system_error
    void closeWhenUnused(const std::string& name);

    /// The commands of `makeAndOpen`, without their input.
    [[nodiscard]] static SystemCommand formatCommand(const std::filesystem::path& device);
    [[nodiscard]] static SystemCommand openCommand(const std::filesystem::path& device,
                                                   const std::string& name);

    /// The path of an open container with this name.
    [[nodiscard]] static std::filesystem::path containerPath(const std::string& name);

private:
    CommandRunning& runner_;
};

} // namespace ramdisk
