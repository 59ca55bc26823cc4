#include "RamDiskInfrastructure/MacTools/DiskUtilVolumeFormatter.h"

#include "RamDiskCore/Values/RamDiskError.h"
#include "RamDiskInfrastructure/Commands/SecretInput.h"
#include "RamDiskInfrastructure/MacTools/AttachedImageListing.h"
#include "RamDiskInfrastructure/MacTools/MacFormat.h"
#include "RamDiskInfrastructure/MacTools/ToolOutput.h"
#include "RamDiskInfrastructure/MacTools/ToolPaths.h"

#include <algorithm>
#include <utility>

namespace ramdisk {

namespace {

constexpr const char* passphraseOption = "-stdinpassphrase";

RamDiskError formattingFailed(std::string reason) {
    return RamDiskError::Case(RamDiskError::FormattingFailed{std::move(reason)});
}

/// Passes on what is ours and gives every other failure our shape.
template <typename Step>
auto asFormatting(Step step) {
    try {
        return step();
    } catch (const RamDiskError& error) {
        if (const auto* listing = std::get_if<RamDiskError::InventoryUnavailable>(&error.value())) {
            throw formattingFailed(listing->reason);
        }
        throw;
    } catch (const std::exception& error) {
        throw formattingFailed(error.what());
    }
}

SystemCommand diskutil(std::vector<std::string> arguments) {
    return {toolPaths::diskutil, std::move(arguments), std::nullopt, std::nullopt};
}

SystemCommand eraseVolume(const RamDiskSpecification& specification, const std::string& devicePath) {
    return diskutil({"erasevolume", std::string(diskUtilName(specification.fileSystem)),
                     volumeNameFor(specification.fileSystem, specification.name), devicePath});
}

SystemCommand createContainer(const std::string& devicePath) {
    return diskutil({"apfs", "createContainer", devicePath});
}

SystemCommand addVolume(const RamDiskSpecification& specification, const std::string& container) {
    return diskutil({"apfs", "addVolume", container, std::string(diskUtilName(specification.fileSystem)),
                     specification.name, passphraseOption});
}

SystemCommand unmount(const std::string& volumeDevice) {
    return diskutil({"unmount", volumeDevice});
}

SystemCommand mountPlain(const std::string& volumeDevice, const std::string& mountPoint) {
    return diskutil({"mount", "-mountPoint", mountPoint, volumeDevice});
}

SystemCommand mountEncrypted(const std::string& volumeDevice, const std::string& mountPoint) {
    return diskutil({"apfs", "unlockVolume", volumeDevice, passphraseOption, "-mountpoint", mountPoint});
}

void requireEncryptable(FileSystem fileSystem) {
    if (!supportsEncryption(fileSystem)) {
        throw formattingFailed(std::string(diskUtilName(fileSystem)) + " does not support encryption.");
    }
}

} // namespace

DiskUtilVolumeFormatter::DiskUtilVolumeFormatter(Ports ports) : ports_(std::move(ports)) {}

void DiskUtilVolumeFormatter::requireSupport(const RamDiskSpecification& specification) const {
    if (specification.isEncrypted) {
        requireEncryptable(specification.fileSystem);
    }
}

std::filesystem::path DiskUtilVolumeFormatter::format(const DeviceIdentifier& device,
                                                      const RamDiskSpecification& specification,
                                                      const VolumeProtection& protection) {
    return asFormatting([&] {
        const auto* passphrase = protection.passphrase();
        makeVolume(device, specification, passphrase);
        const auto volume = specification.access == VolumeAccess::onlyMe
                                ? mountPrivately(device, specification.name, passphrase)
                                : *findMountedImage(device).mountPoint;
        mark(volume);
        return volume;
    });
}

std::vector<std::string> DiskUtilVolumeFormatter::plan(const RamDiskSpecification& specification) const {
    std::vector<std::string> steps;
    if (specification.isEncrypted) {
        steps.push_back(createContainer("/dev/DEVICE").description());
        steps.push_back(addVolume(specification, "CONTAINER").description());
    } else {
        steps.push_back(eraseVolume(specification, "/dev/DEVICE").description());
    }
    if (specification.access == VolumeAccess::onlyMe) {
        const auto mountPoint = (ports_.privateMounts->directory() / specification.name).string();
        steps.push_back("make the folder " + mountPoint);
        steps.push_back(unmount("VOLUME").description());
        steps.push_back((specification.isEncrypted ? mountEncrypted("VOLUME", mountPoint)
                                                   : mountPlain("VOLUME", mountPoint))
                            .description());
        steps.emplace_back("close /dev/DEVICE and its raw node to other accounts");
    }
    steps.push_back(std::string("set ") + VolumeMark::attribute + " on the volume");
    return steps;
}

void DiskUtilVolumeFormatter::mark(const std::filesystem::path& volume) {
    ports_.marks->write(volume, UUID::random());
}

void DiskUtilVolumeFormatter::makeVolume(const DeviceIdentifier& device,
                                         const RamDiskSpecification& specification,
                                         const VolumePassphrase* passphrase) {
    const auto path = pathOfDevice(device);
    if (passphrase == nullptr) {
        ports_.runner->runChecked(eraseVolume(specification, path));
        return;
    }
    requireEncryptable(specification.fileSystem);
    const auto made = ports_.runner->runChecked(createContainer(path));
    auto container = apfsOperationDisk(made.standardOutput);
    if (!container) {
        // The tool speaks the user's language.
        container = findContainer(device);
    }
    if (!container) {
        throw formattingFailed("diskutil did not report the new APFS container.");
    }
    run(addVolume(specification, container->bsdName()), passphrase);
}

std::optional<DeviceIdentifier> DiskUtilVolumeFormatter::findContainer(const DeviceIdentifier& device) {
    for (const auto& image : attachedRamImages(*ports_.runner)) {
        if (!image.has(device)) {
            continue;
        }
        const auto devices = image.devices();
        const auto found =
            std::find_if(devices.begin(), devices.end(), [&device](const DeviceIdentifier& other) {
                return isWholeDisk(other) && other != device;
            });
        return found == devices.end() ? std::nullopt : std::optional(*found);
    }
    return std::nullopt;
}

AttachedRamImage DiskUtilVolumeFormatter::findMountedImage(const DeviceIdentifier& device) {
    const auto images = attachedRamImages(*ports_.runner);
    const auto found = std::find_if(images.begin(), images.end(), [&device](const AttachedRamImage& image) {
        return image.has(device) && image.mountPoint;
    });
    if (found == images.end()) {
        throw formattingFailed("The new volume was not mounted.");
    }
    return *found;
}

std::filesystem::path DiskUtilVolumeFormatter::mountPrivately(const DeviceIdentifier& device,
                                                              const std::string& name,
                                                              const VolumePassphrase* passphrase) {
    auto mountPoint = ports_.privateMounts->makeMountPoint(name);
    const auto image = findMountedImage(device);
    ports_.runner->runChecked(unmount(*image.volumeDevicePath));
    const auto path = mountPoint.path().string();
    run(passphrase == nullptr ? mountPlain(*image.volumeDevicePath, path)
                              : mountEncrypted(*image.volumeDevicePath, path),
        passphrase);
    mountPoint.keep();
    closeNodes(device, image);
    return mountPoint.path();
}

void DiskUtilVolumeFormatter::run(const SystemCommand& command, const VolumePassphrase* passphrase) {
    if (passphrase == nullptr) {
        ports_.runner->runChecked(command);
    } else {
        runWithSecretInput(*ports_.runner, command, passphrase->value());
    }
}

void DiskUtilVolumeFormatter::closeNodes(const DeviceIdentifier& device,
                                         const AttachedRamImage& image) const {
    auto nodes = image.devices();
    nodes.push_back(device);
    for (const auto& node : nodes) {
        if (!ports_.privateMounts->closeDevice(node)) {
            throw formattingFailed("Other accounts could still read " + pathOfDevice(node) + ".");
        }
    }
}

} // namespace ramdisk
