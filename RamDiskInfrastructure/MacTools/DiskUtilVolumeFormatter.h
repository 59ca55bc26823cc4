#pragma once

#include "RamDiskCore/Ports/CommandRunning.h"
#include "RamDiskCore/Ports/VolumeFormatting.h"
#include "RamDiskCore/Ports/VolumeMarking.h"
#include "RamDiskInfrastructure/MacTools/AttachedRamImage.h"
#include "RamDiskInfrastructure/MacTools/PrivateMounts.h"
#include "RamDiskInfrastructure/MacTools/VolumeMarkAccessing.h"

#include <memory>
#include <optional>

namespace ramdisk {

/// Makes volumes on devices with macOS's disk utility, mounts them and marks them.
///
/// A crash meanwhile leaves an attached device without our mark. It is listed as a disk that another program
/// made. Passphrases reach the tool on its standard input and are wiped right after.
class DiskUtilVolumeFormatter final : public VolumeFormatting, public VolumeMarking {
public:
    struct Ports {
        std::shared_ptr<CommandRunning> runner;
        std::shared_ptr<const PrivateMounts> privateMounts;
        std::shared_ptr<VolumeMarkAccessing> marks;
    };

    explicit DiskUtilVolumeFormatter(Ports ports);

    void requireSupport(const RamDiskSpecification& specification) const override;
    [[nodiscard]] std::filesystem::path format(const DeviceIdentifier& device,
                                               const RamDiskSpecification& specification,
                                               const VolumeProtection& protection) override;
    [[nodiscard]] std::vector<std::string> plan(const RamDiskSpecification& specification) const override;

    void mark(const std::filesystem::path& volume) override;

private:
    void makeVolume(const DeviceIdentifier& device, const RamDiskSpecification& specification,
                    const VolumePassphrase* passphrase);
    /// The disk of the container on a device; absent when the list does not show one.
    [[nodiscard]] std::optional<DeviceIdentifier> findContainer(const DeviceIdentifier& device);
    [[nodiscard]] AttachedRamImage findMountedImage(const DeviceIdentifier& device);
    [[nodiscard]] std::filesystem::path mountPrivately(const DeviceIdentifier& device,
                                                       const std::string& name,
                                                       const VolumePassphrase* passphrase);
    void run(const SystemCommand& command, const VolumePassphrase* passphrase);
    void closeNodes(const DeviceIdentifier& device, const AttachedRamImage& image) const;

    Ports ports_;
};

} // namespace ramdisk
