#include "RamDiskInfrastructure/Linux/LinuxContext.h"

#include <algorithm>
#include <iterator>

namespace ramdisk {

const DiskRecordStore& LinuxContext::storeOf(const DiskRecord& record) const {
    const auto found = std::find_if(stores.begin(), stores.end(), [&record](const DiskRecordStore& store) {
        return store.folder() == record.folder;
    });
    return found == stores.end() ? ownStore() : *found;
}

std::vector<DiskRecord> LinuxContext::visibleRecords() const {
    std::vector<DiskRecord> records;
    for (const auto& store : stores) {
        auto more = store.readAll();
        std::copy_if(std::make_move_iterator(more.begin()), std::make_move_iterator(more.end()),
                     std::back_inserter(records),
                     [this](const DiskRecord& record) { return host.isRoot || record.owner == host.owner; });
    }
    return records;
}

} // namespace ramdisk
