#pragma once

#include "RamDiskCore/Ports/CommandRunning.h"
#include "RamDiskInfrastructure/Linux/Mounting/LoopDevice.h"
#include "RamDiskInfrastructure/Linux/Volumes/LinuxFormat.h"
#include "RamDiskInfrastructure/Linux/Volumes/MountedLinuxVolume.h"

#include <functional>
#include <memory>

namespace ramdisk {

/// Finds out what this machine offers for encryption. Called when an encrypted volume is requested.
using EncryptionProbe = std::function<EncryptionMeans()>;

/// The best means that really works here: LUKS2 if the device mapper can decrypt, otherwise the file system's
/// own.
[[nodiscard]] EncryptionMeans availableEncryption();

/// A volume with a file system of its own on a loop device, on top of a file in memory that only the device
/// keeps alive. The file has room for the whole machine's memory. The device shows only the disk's size.
class LoopVolume final : public MountedLinuxVolume {
public:
    LoopVolume(LinuxHost host, std::shared_ptr<CommandRunning> runner,
               EncryptionProbe probe = availableEncryption)
        : MountedLinuxVolume(std::move(host)),
          runner_(std::move(runner)),
          probe_(std::move(probe)) {}

    void requireSupport(const RamDiskSpecification& specification) const override;
    [[nodiscard]] std::vector<MachineStep>
    preparingSteps(const RamDiskSpecification& specification) const override;
    [[nodiscard]] std::vector<MachineStep> makingSteps(VolumeRequest& request) const override;
    [[nodiscard]] bool isLive(const DiskRecord& record, const MountTable& mounts) const override;
    [[nodiscard]] std::optional<ReleaseOutcome> heldMemory(const DiskRecord& record,
                                                           const MountTable& mounts) const override;
    std::optional<std::filesystem::path> removeRemains(const DiskRecord& record) const override;

private:
    struct Build;

    [[nodiscard]] bool isOurs(const DiskRecord& record, const MountEntry& entry) const override;
    [[nodiscard]] std::string fileSystemName(const DiskRecord& record) const override;
    [[nodiscard]] std::optional<ByteCount> deviceSize(const DiskRecord& record) const override;
    void stopWriters(const std::filesystem::path& mountPoint) const override;

    [[nodiscard]] LoopDevices loops() const { return {host().sys}; }
    /// Whether there is a module of this name, and all that it depends on. Loads nothing.
    [[nodiscard]] bool canLoad(const std::string& module) const;
    void load(FileSystem fileSystem) const;
    [[nodiscard]] EncryptionMeans encryption(const DiskRecord& record) const;
    [[nodiscard]] std::vector<MachineStep> deviceSteps(const std::shared_ptr<Build>& build) const;
    [[nodiscard]] std::vector<MachineStep> fileSystemSteps(const std::shared_ptr<Build>& build) const;
    void prepareRoot(Build& build) const;

    std::shared_ptr<CommandRunning> runner_;
    EncryptionProbe probe_;
};

} // namespace ramdisk
