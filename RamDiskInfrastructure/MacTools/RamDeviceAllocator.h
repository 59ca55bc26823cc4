#pragma once

#include "RamDiskCore/Ports/CommandRunning.h"
#include "RamDiskCore/Ports/RamDeviceAllocating.h"
#include "RamDiskCore/Values/RamDiskError.h"
#include "RamDiskInfrastructure/MacTools/MediaIdentifying.h"
#include "RamDiskInfrastructure/MacTools/PrivateMounts.h"

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace ramdisk {

/// Memory-backed devices from macOS's disk-image tools. A device belongs to the operating system from the
/// moment it is attached, so a crash leaves it attached and listed.
class RamDeviceAllocator final : public RamDeviceAllocating {
public:
    /// How a device is attached: with the disk utility, which falls back to the disk-image tool, or with the
    /// disk-image tool at once.
    enum class AttachMethod { diskImages2, classic };

    struct Ports {
        std::shared_ptr<CommandRunning> runner;
        AttachMethod method = AttachMethod::diskImages2;
        /// Null where no disk is ever mounted privately.
        std::shared_ptr<const PrivateMounts> privateMounts;
        /// Called after a failed detach, which may have worked nevertheless. A false is no proof of that:
        /// `media` must not know the device any more either.
        std::function<bool(const DeviceIdentifier&)> isAttached;
        /// Tells an attachment from a later one with the same device name.
        std::shared_ptr<MediaIdentifying> media;
        /// Before a device that is unmounted, but still busy, is tried again.
        std::chrono::milliseconds detachPause{500};
    };

    explicit RamDeviceAllocator(Ports ports);

    /// An `isAttached` that reads the disk-image tool's list.
    /// @throws RamDiskError `inventoryUnavailable`, which counts as still attached.
    [[nodiscard]] static std::function<bool(const DeviceIdentifier&)>
    attachedInListing(std::shared_ptr<CommandRunning> runner);

    [[nodiscard]] DeviceIdentifier allocate(ByteCount size) override;
    ReleaseOutcome release(const DeviceIdentifier& device, Force force,
                           std::optional<std::uint64_t> attachment = std::nullopt) override;
    [[nodiscard]] std::vector<std::string> plan(ByteCount size) const override;

private:
    /// What is listed, by device and attachment; absent when the list cannot be read.
    using Listed = std::optional<std::vector<std::pair<DeviceIdentifier, std::optional<std::uint64_t>>>>;
    /// What is left of a device that could not be detached.
    enum class Presence { gone, unlisted, unmounted, inUse };

    [[nodiscard]] Listed listed();
    [[nodiscard]] std::optional<DeviceIdentifier> attachNewer(ByteCount size, const Listed& before);
    [[nodiscard]] DeviceIdentifier attachClassic(ByteCount size, const Listed& before);
    [[nodiscard]] std::optional<DeviceIdentifier> findNew(ByteCount size, const Listed& before);
    [[nodiscard]] bool wasListed(const DeviceIdentifier& device, const Listed& before);
    [[nodiscard]] bool isListed(const DeviceIdentifier& device);
    void takeBack(const DeviceIdentifier& device);
    void detach(const DeviceIdentifier& device, Force force, std::optional<std::uint64_t> attachment);
    [[nodiscard]] std::optional<RamDiskError::EjectFailed> tryDetach(const DeviceIdentifier& device,
                                                                     Force force);
    [[nodiscard]] Presence presence(const DeviceIdentifier& device, std::optional<std::uint64_t> attachment,
                                    EjectObstacle obstacle);
    [[nodiscard]] static std::string reasonFor(Presence presence, const std::string& name);
    [[nodiscard]] bool isUnmounted(const DeviceIdentifier& device);
    [[nodiscard]] bool isAnotherAttachment(const DeviceIdentifier& device,
                                           std::optional<std::uint64_t> attachment);

    Ports ports_;
};

} // namespace ramdisk
