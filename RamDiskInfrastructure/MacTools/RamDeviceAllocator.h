#pragma once

#include "RamDiskCore/Ports/CommandRunning.h"
#include "RamDiskCore/Ports/RamDeviceAllocating.h"
#include "RamDiskInfrastructure/MacTools/MediaIdentifying.h"
#include "RamDiskInfrastructure/MacTools/PrivateMounts.h"

#include <functional>
#include <memory>

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
        /// Called after a failed detach, which may have worked nevertheless.
        std::function<bool(const DeviceIdentifier&)> isAttached;
        /// Tells an attachment from a later one with the same device name.
        std::shared_ptr<MediaIdentifying> media;
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
    [[nodiscard]] CommandOutput attach(ByteCount size);
    void detach(const DeviceIdentifier& device, Force force, std::optional<std::uint64_t> attachment);
    [[nodiscard]] bool isStillAttached(const DeviceIdentifier& device,
                                       std::optional<std::uint64_t> attachment);
    [[nodiscard]] bool isAnotherAttachment(const DeviceIdentifier& device,
                                           std::optional<std::uint64_t> attachment);

    Ports ports_;
};

} // namespace ramdisk
