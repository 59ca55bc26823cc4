#include "RamDiskInfrastructure/MacTools/RamDeviceAllocator.h"

#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskInfrastructure/MacTools/AttachedImageListing.h"
#include "RamDiskInfrastructure/MacTools/ToolOutput.h"
#include "RamDiskInfrastructure/MacTools/ToolPaths.h"

#include <algorithm>
#include <thread>
#include <variant>

namespace ramdisk {

namespace {

constexpr std::uint64_t bytesOfASector = 512;

/// Removes the mount folders that are empty by then.
struct TidyMountPoints {
    explicit TidyMountPoints(const PrivateMounts* given) : mounts(given) {}
    TidyMountPoints(const TidyMountPoints&) = delete;
    TidyMountPoints& operator=(const TidyMountPoints&) = delete;
    ~TidyMountPoints() {
        if (mounts != nullptr) {
            mounts->removeEmptyMountPoints();
        }
    }

    const PrivateMounts* mounts;
};

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
    const auto before = listed();
    if (ports_.method == AttachMethod::diskImages2) {
        if (const auto device = attachNewer(size, before)) {
            return *device;
        }
    }
    return attachClassic(size, before);
}

ReleaseOutcome RamDeviceAllocator::release(const DeviceIdentifier& device, Force force,
                                           std::optional<std::uint64_t> attachment) {
    // Also of a device that was gone, or that is unmounted and cannot go.
    const TidyMountPoints tidy{ports_.privateMounts.get()};
    if (isAnotherAttachment(device, attachment)) {
        throw notFound(device);
    }
    detach(device, force, attachment ? attachment : ports_.media->identifier(device.bsdName()));
    return {};
}

std::vector<std::string> RamDeviceAllocator::plan(ByteCount size) const {
    const auto classic = classicAttach(size).description();
    if (ports_.method == AttachMethod::classic) {
        return {classic};
    }
    return {diskImages2Attach(size).description() + ", or where that fails " + classic};
}

RamDeviceAllocator::Listed RamDeviceAllocator::listed() {
    try {
        Listed found{std::in_place};
        for (const auto& image : attachedRamImages(*ports_.runner)) {
            found->emplace_back(image.device, ports_.media->identifier(image.device.bsdName()));
        }
        return found;
    } catch (const std::exception&) {
        traceCaught("devices", "a device that an attach does not name will not be found");
        return std::nullopt;
    }
}

std::optional<DeviceIdentifier> RamDeviceAllocator::attachNewer(ByteCount size, const Listed& before) {
    std::optional<DeviceIdentifier> device;
    try {
        device = firstWholeDisk(ports_.runner->runChecked(diskImages2Attach(size)).standardOutput);
    } catch (const std::exception&) {
        // Systems without the newer attach, and those where it fails, have the classic one.
        traceCaught("devices", "the classic attach is used");
        return std::nullopt;
    }
    if (!device || wasListed(*device, before)) {
        return findNew(size, before);
    }
    if (isListed(*device)) {
        return device;
    }
    // A disk that no listing shows could be neither used nor ejected.
    trace("devices", "{} is not listed: the classic attach is used", device->bsdName());
    takeBack(*device);
    return std::nullopt;
}

DeviceIdentifier RamDeviceAllocator::attachClassic(ByteCount size, const Listed& before) {
    CommandOutput output;
    try {
        output = ports_.runner->runChecked(classicAttach(size));
    } catch (const std::exception& error) {
        throw RamDiskError(RamDiskError::AllocationFailed{error.what()});
    }
    if (const auto device = firstWholeDisk(output.standardOutput); device && !wasListed(*device, before)) {
        return *device;
    }
    if (const auto device = findNew(size, before)) {
        return *device;
    }
    throw RamDiskError(
        RamDiskError::AllocationFailed{"No device was reported (" + output.standardOutputText() + ")"});
}

/// Whether a device is somebody's from before: a tool that names it speaks of something else.
bool RamDeviceAllocator::wasListed(const DeviceIdentifier& device, const Listed& before) {
    const std::pair seen(device, ports_.media->identifier(device.bsdName()));
    return before && std::find(before->begin(), before->end(), seen) != before->end();
}

/// The one image that came since, has this size and is not mounted. Of several, none is known to be ours.
std::optional<DeviceIdentifier> RamDeviceAllocator::findNew(ByteCount size, const Listed& before) {
    if (!before) {
        return std::nullopt;
    }
    std::vector<DeviceIdentifier> found;
    try {
        for (const auto& image : attachedRamImages(*ports_.runner)) {
            if (!wasListed(image.device, before) && !image.mountPoint
                && image.capacity.bytes / bytesOfASector == sectorCount(size)) {
                found.push_back(image.device);
            }
        }
    } catch (const std::exception&) {
        traceCaught("devices", "the device that was attached is not found");
    }
    return found.size() == 1 ? std::optional(found.front()) : std::nullopt;
}

bool RamDeviceAllocator::isListed(const DeviceIdentifier& device) {
    try {
        const auto images = attachedRamImages(*ports_.runner);
        return std::any_of(images.begin(), images.end(),
                           [&device](const AttachedRamImage& image) { return image.has(device); });
    } catch (const std::exception&) {
        traceCaught("devices", "the device counts as not listed");
        return false;
    }
}

/// Detaches a device that an attach has just made.
void RamDeviceAllocator::takeBack(const DeviceIdentifier& device) {
    try {
        detach(device, Force::no, ports_.media->identifier(device.bsdName()));
    } catch (const RamDiskError& error) {
        if (const auto* failure = std::get_if<RamDiskError::EjectFailed>(&error.value())) {
            throw RamDiskError(RamDiskError::AllocationFailed{failure->reason});
        }
        traceCaught("devices", "the device was gone already");
    }
}

void RamDeviceAllocator::detach(const DeviceIdentifier& device, Force force,
                                std::optional<std::uint64_t> attachment) {
    for (int attempt = 1; attempt == 1 || !isAnotherAttachment(device, attachment); ++attempt) {
        auto failure = tryDetach(device, force);
        if (!failure) {
            return;
        }
        const auto found = presence(device, attachment, failure->obstacle);
        trace("devices", "the detach failed ({}); {}", failure->reason,
              found == Presence::gone ? "the device is gone" : "the device is still there");
        if (found == Presence::gone && attempt > 1) {
            return;
        }
        if (found == Presence::gone) {
            throw notFound(device);
        }
        if (found == Presence::inUse || attempt == detachAttempts) {
            failure->reason = reasonFor(found, device.bsdName()) + failure->reason;
            throw RamDiskError(*failure);
        }
        std::this_thread::sleep_for(ports_.detachPause);
    }
}

std::string RamDeviceAllocator::reasonFor(Presence presence, const std::string& name) {
    switch (presence) {
    case Presence::unlisted:
        return name + " is not in the list of disk images, but the system still has it: ";
    case Presence::unmounted:
        return name + " is unmounted, but it still holds its memory. Only by the name " + name
               + " is it found now, as in `tramdisk eject " + name + "`. ";
    default:
        return {};
    }
}

std::optional<RamDiskError::EjectFailed> RamDeviceAllocator::tryDetach(const DeviceIdentifier& device,
                                                                       Force force) {
    try {
        ports_.runner->runChecked(detachCommand(device, force));
        return std::nullopt;
    } catch (const CommandFailure& error) {
        return RamDiskError::EjectFailed{
            device, error.what(), saysBusy(error.output()) ? EjectObstacle::busy : EjectObstacle::other};
    } catch (const std::exception& error) {
        return RamDiskError::EjectFailed{device, error.what(), EjectObstacle::other};
    }
}

RamDeviceAllocator::Presence RamDeviceAllocator::presence(const DeviceIdentifier& device,
                                                          std::optional<std::uint64_t> attachment,
                                                          EjectObstacle obstacle) {
    auto found = Presence::unlisted;
    try {
        if (ports_.isAttached(device)) {
            const bool isIdle = obstacle == EjectObstacle::busy && isUnmounted(device);
            found = isIdle ? Presence::unmounted : Presence::inUse;
        }
    } catch (const std::exception&) {
        // Memory that may still be held is not reported as given back.
        traceCaught("devices", "the device counts as attached");
        found = Presence::inUse;
    }
    // Last, since the name may have changed hands by the time of the list.
    const bool isGone = isAnotherAttachment(device, attachment)
                        || (found == Presence::unlisted && !ports_.media->identifier(device.bsdName()));
    return isGone ? Presence::gone : found;
}

/// Whether the list shows the device without a mounted volume, whatever the tool's language.
bool RamDeviceAllocator::isUnmounted(const DeviceIdentifier& device) {
    const auto images = attachedRamImages(*ports_.runner);
    return std::any_of(images.begin(), images.end(), [&device](const AttachedRamImage& image) {
        return image.has(device) && !image.mountPoint;
    });
}

bool RamDeviceAllocator::isAnotherAttachment(const DeviceIdentifier& device,
                                             std::optional<std::uint64_t> attachment) {
    if (!attachment) {
        return false;
    }
    const auto present = ports_.media->identifier(device.bsdName());
    return present && present != attachment;
}

} // namespace ramdisk
