#include "RamDiskInfrastructure/Linux/Mounting/DmCrypt.h"

#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskInfrastructure/Commands/FileDescriptor.h"
#include "RamDiskInfrastructure/Commands/SecretInput.h"
#include "RamDiskInfrastructure/Linux/Host/SystemTools.h"

#include <array>
#include <cstring>
#include <string_view>

#include <fcntl.h>
#include <linux/dm-ioctl.h>
#include <sys/ioctl.h>

namespace ramdisk {

namespace {

constexpr const char* tool = "/usr/sbin/cryptsetup";
/// The tool's derivation runs once for a random passphrase: its least number of rounds is enough.
constexpr const char* leastRounds = "1000";
constexpr double limitInSeconds = 60;

/// Whether the device mapper answers and names a target called "crypt".
bool kernelHasTarget() {
    const FileDescriptor control(open("/dev/mapper/control", O_RDWR | O_CLOEXEC));
    if (!control) {
        traceRefused("encryption", "/dev/mapper/control", "the device mapper is not used");
        return false;
    }
    alignas(dm_ioctl) std::array<char, 16384> buffer{};
    auto* request = reinterpret_cast<dm_ioctl*>(buffer.data());
    request->version[0] = DM_VERSION_MAJOR;
    request->data_size = buffer.size();
    request->data_start = sizeof(dm_ioctl);
    if (ioctl(control.get(), DM_LIST_VERSIONS, request) != 0) {
        traceRefused("encryption", "DM_LIST_VERSIONS", "the device mapper is not used");
        return false;
    }
    for (std::size_t offset = request->data_start; offset + sizeof(dm_target_versions) < buffer.size();) {
        const auto* target = reinterpret_cast<const dm_target_versions*>(buffer.data() + offset);
        if (std::string_view(target->name) == "crypt") {
            return true;
        }
        if (target->next == 0) {
            return false;
        }
        offset += target->next;
    }
    return false;
}

} // namespace

bool DmCrypt::isSupported() {
    if (!findSystemTool("cryptsetup")) {
        trace("encryption", "cryptsetup is not installed, so dm-crypt is not used");
        return false;
    }
    const bool hasTarget = kernelHasTarget();
    trace("encryption", "dm-crypt {}", hasTarget ? "is used" : "is not among the kernel's targets");
    return hasTarget;
}

std::filesystem::path DmCrypt::containerPath(const std::string& name) {
    return std::filesystem::path("/dev/mapper") / name;
}

SystemCommand DmCrypt::formatCommand(const std::filesystem::path& device) {
    return {tool,
            {"luksFormat", "--batch-mode", "--type", "luks2",
             // The usual header takes 16 MiB, more than the smallest disk has; one key needs far less.
             "--luks2-metadata-size", "16k", "--luks2-keyslots-size", "256k", "--cipher", "aes-xts-plain64",
             "--key-size", "512", "--pbkdf", "pbkdf2", "--pbkdf-force-iterations", leastRounds, "--key-file",
             "-", device.string()},
            {},
            limitInSeconds};
}

SystemCommand DmCrypt::openCommand(const std::filesystem::path& device, const std::string& name) {
    return {tool, {"open", "--type", "luks2", "--key-file", "-", device.string(), name}, {}, limitInSeconds};
}

std::filesystem::path DmCrypt::makeAndOpen(const std::filesystem::path& device, const std::string& name,
                                           const VolumePassphrase& passphrase) {
    runWithSecretInput(runner_, formatCommand(device), passphrase.value());
    runWithSecretInput(runner_, openCommand(device, name), passphrase.value());
    return containerPath(name);
}

void DmCrypt::closeWhenUnused(const std::string& name) {
    runner_.runChecked({tool, {"close", "--deferred", name}, {}, limitInSeconds});
}

} // namespace ramdisk
