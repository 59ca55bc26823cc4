#pragma once

#include "RamDiskInfrastructure/Linux/Records/DiskRecordStore.h"

#include <map>
#include <memory>
#include <mutex>
#include <optional>

namespace ramdisk {

/// The records that this process holds while it makes their disks: begun by the allocator, filled in by the
/// formatter. Safe from any thread.
class PendingRecords {
public:
    void add(RecordHold hold);

    /// The hold of a device that this process is making, null when it is not. Stays this object's; one thread
    /// at a time works on one device.
    [[nodiscard]] RecordHold* find(const DeviceIdentifier& device);

    /// Takes the hold out, for its last step.
    [[nodiscard]] std::optional<RecordHold> take(const DeviceIdentifier& device);

private:
    std::mutex mutex_;
    std::map<DeviceIdentifier, std::unique_ptr<RecordHold>> holds_;
};

} // namespace ramdisk
