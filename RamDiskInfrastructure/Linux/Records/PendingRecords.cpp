#include "RamDiskInfrastructure/Linux/Records/PendingRecords.h"

namespace ramdisk {

void PendingRecords::add(RecordHold hold) {
    const std::scoped_lock guard(mutex_);
    const auto device = hold.record.device;
    holds_.insert_or_assign(device, std::make_unique<RecordHold>(std::move(hold)));
}

RecordHold* PendingRecords::find(const DeviceIdentifier& device) {
    const std::scoped_lock guard(mutex_);
    const auto found = holds_.find(device);
    return found == holds_.end() ? nullptr : found->second.get();
}

std::optional<RecordHold> PendingRecords::take(const DeviceIdentifier& device) {
    const std::scoped_lock guard(mutex_);
    const auto found = holds_.find(device);
    if (found == holds_.end()) {
        return std::nullopt;
    }
    auto hold = std::move(*found->second);
    holds_.erase(found);
    return hold;
}

} // namespace ramdisk
