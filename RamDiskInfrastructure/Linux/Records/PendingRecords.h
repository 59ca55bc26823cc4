#pragma once

#include "RamDiskInfrastructure/Linux/Records/DiskRecordStore.h"

#include <map>
#include <memory>
#include <mutex>
#include <optional>

namespace ramdisk {

/// The records that this process holds while it makes their disks. The allocator adds them, and the formatter
/// fills them in. Safe from any thread.
class PendingRecords {
public:
    void add(RecordHold hold);

    /// The hold of a device that this process is making; null for any other device. This object keeps owning
    /// it. One thread at a time works on one device.
    [[nodiscard]] RecordHold* find(const DeviceIdentifier& device);

    /// Takes the hold out of this object, for its last step.
    [[nodiscard]] std::optional<RecordHold> take(const DeviceIdentifier& device);

private:
    std::mutex mutex_;
    std::map<DeviceIdentifier, std::unique_ptr<RecordHold>> holds_;
};

} // namespace ramdisk
