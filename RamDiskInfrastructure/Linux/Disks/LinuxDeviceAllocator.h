#pragma once

#include "RamDiskCore/Ports/RamDeviceAllocating.h"
#include "RamDiskInfrastructure/Linux/Disks/LinuxContext.h"
#include "RamDiskInfrastructure/Linux/Records/PendingRecords.h"

#include <memory>

namespace ramdisk {

/// Gives out device names by claiming a record for each. On Linux memory is taken as files are written, so a
/// new device holds none.
class LinuxDeviceAllocator final : public RamDeviceAllocating {
public:
    LinuxDeviceAllocator(std::shared_ptr<const LinuxContext> context, std::shared_ptr<PendingRecords> making)
        : context_(std::move(context)),
          pending_(std::move(making)) {}

    [[nodiscard]] DeviceIdentifier allocate(ByteCount size) override;
    void settle(const DeviceIdentifier& device) override;
    ReleaseOutcome release(const DeviceIdentifier& device, Force force,
                           std::optional<std::uint64_t> attachment) override;
    [[nodiscard]] std::vector<std::string> plan(ByteCount size) const override;
    [[nodiscard]] std::vector<std::string> planSettling() const override;

private:
    [[nodiscard]] MachineStep claimStep(ByteCount size, std::optional<RecordHold>& claimed) const;
    [[nodiscard]] std::vector<unsigned> numbersElsewhere() const;
    [[nodiscard]] std::optional<DiskRecord> find(const DeviceIdentifier& device,
                                                 std::optional<std::uint64_t> attachment) const;
    void abandon(RecordHold hold) const;
    ReleaseOutcome releaseHeld(RecordHold hold, Force force) const;

    std::shared_ptr<const LinuxContext> context_;
    std::shared_ptr<PendingRecords> pending_;
};

} // namespace ramdisk
