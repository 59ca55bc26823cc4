#include "RamDiskInfrastructure/MacTools/RamDeviceAllocator.h"

#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskCore/Values/RamDiskError.h"
#include "RamDiskInfrastructure/MacTools/AttachedImageListing.h"
#include "RamDiskInfrastructure/MacTools/ToolOutput.h"
#include "RamDiskInfrastructure/MacTools/ToolPaths.h"

#include <algorithm>
#include <string>
#include <utility>

namespace ramdisk {

namespace {

std::string memoryAddress(ByteCount size) {
    return "ram://" + std::to_string(sectorCount(size));
}

SystemCommand diskImages2Attach(ByteCount size) {
    return {toolPaths::diskutil,
            {"image", "attach", "--noMount", memoryAddress(size)},
            std::nullopt,
            std::nullopt};
}

SystemCommand classicAttach(ByteCount size) {
    return {toolPaths::hdiutil, {"attach", "-nomount", memoryAddress(size)}, std::nullopt, std::nullopt};
}

SystemCommand detachCommand(const DeviceIdentifier& device, Force force) {
    SystemCommand command{toolPaths::hdiutil, {"detach"}, std::nullopt, std::nullopt};
    if (force == Force::yes) {
        command.arguments.emplace_back("-force");
    }
    command.arguments.push_back(pathOfDevice(device));
    return command;
}

RamDiskError notFound(const DeviceIdentifier& device) {
    return RamDiskError::Case(RamDiskError::NotFound{RamDiskReference{RamDiskReference::Device{device}}});
}

} // namespace

RamDeviceAllocator::RamDeviceAllocator(Ports ports) : ports_(std::move(ports)) {}

std::function<bool(const DeviceIdentifier&)>
RamDeviceAllocator::attachedInListing(std::shared_ptr<CommandRunning> runner) {
    return [runner = std::move(runner)](const DeviceIdentifier& device) {
        const auto images = attachedRamImages(*runner);
        return std::any_of(images.begin(), images.end(),
                           [&device](const AttachedRamImage& image) { return image.has(device); });
    };
}

DeviceIdentifier RamDeviceAllocator::allocate(ByteCount size) {
    const auto output = attach(size);
    if (const auto device = firstWholeDisk(output.standardOutput)) {
        return *device;
    }
    throw RamDiskError(
        RamDiskError::AllocationFailed{"No device was reported (" + output.standardOutputText() + ")"});
}

ReleaseOutcome RamDeviceAllocator::release(const DeviceIdentifier& device, Force force,
                                           std::optional<std::uint64_t> attachment) {
    if (isAnotherAttachment(device, attachment)) {
        throw notFound(device);
    }
    detach(device, force, attachment);
    if (ports_.privateMounts) {
        ports_.privateMounts->removeEmptyMountPoints();
    }
    return {};
}

std::vector<std::string> RamDeviceAllocator::plan(ByteCount size) const {
    const auto classic = classicAttach(size).description();
    if (ports_.method == AttachMethod::classic) {
        return {classic};
    }
    return {diskImages2Attach(size).description() + ", or where that fails " + classic};
}

CommandOutput RamDeviceAllocator::attach(ByteCount size) {
    if (ports_.method == AttachMethod::diskImages2) {
        try {
            return ports_.runner->runChecked(diskImages2Attach(size));
        } catch (const std::exception&) {
            // Systems without the newer attach, and those where it fails, have the classic one.
            traceCaught("devices", "the classic attach is used");
        }
    }
    try {
        return ports_.runner->runChecked(classicAttach(size));
    } catch (const std::exception& error) {
        throw RamDiskError(RamDiskError::AllocationFailed{error.what()});
    }
}

void RamDeviceAllocator::detach(const DeviceIdentifier& device, Force force,
                                std::optional<std::uint64_t> attachment) {
    RamDiskError::EjectFailed failure{device, {}, EjectObstacle::other};
    try {
        ports_.runner->runChecked(detachCommand(device, force));
        return;
    } catch (const CommandFailure& error) {
        failure.reason = error.what();
        failure.obstacle = saysBusy(error.output()) ? EjectObstacle::busy : EjectObstacle::other;
    } catch (const std::exception& error) {
        failure.reason = error.what();
    }
    const bool isStill = isStillAttached(device, attachment);
    trace("devices", "the detach failed ({}); by the list, {}", failure.reason,
          isStill ? "the device is still there" : "the device is gone");
    throw isStill ? RamDiskError(failure) : notFound(device);
}

bool RamDeviceAllocator::isStillAttached(const DeviceIdentifier& device,
                                         std::optional<std::uint64_t> attachment) {
    try {
        return ports_.isAttached(device) && !isAnotherAttachment(device, attachment);
    } catch (const std::exception&) {
        // Memory that may still be held is not reported as given back.
        traceCaught("devices", "the device counts as attached");
        return true;
    }
}

bool RamDeviceAllocator::isAnotherAttachment(const DeviceIdentifier& device,
                                             std::optional<std::uint64_t> attachment) {
    if (!attachment || !ports_.media) {
        return false;
    }
    const auto present = ports_.media->identifier(device.bsdName());
    return present && present != attachment;
}

} // namespace ramdisk
