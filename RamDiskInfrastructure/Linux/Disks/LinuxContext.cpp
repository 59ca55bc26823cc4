#include "RamDiskInfrastructure/Linux/Disks/LinuxContext.h"

#include "RamDiskInfrastructure/Commands/ProcessCommandRunner.h"

#include <algorithm>
#include <iterator>

namespace ramdisk {

LinuxContext::LinuxContext(LinuxHost aHost)
    : LinuxContext(std::move(aHost), std::make_shared<ProcessCommandRunner>()) {}

LinuxContext::LinuxContext(LinuxHost aHost, std::shared_ptr<CommandRunning> aRunner)
    : host(std::move(aHost)),
      runner(std::move(aRunner)),
      volumes(host, runner) {
    for (const auto& folder : host.visibleRecords) {
        stores.emplace_back(folder);
    }
}

const DiskRecordStore& LinuxContext::storeOf(const DiskRecord& record) const {
    const auto found = std::find_if(stores.begin(), stores.end(), [&record](const DiskRecordStore& store) {
        return store.folder() == record.folder;
    });
    return found == stores.end() ? ownStore() : *found;
}

std::vector<DiskRecord> LinuxContext::visibleRecords(std::vector<DamagedRecord>* damaged) const {
    std::vector<DiskRecord> records;
    for (const auto& store : stores) {
        auto more = store.readAll(damaged);
        std::copy_if(std::make_move_iterator(more.begin()), std::make_move_iterator(more.end()),
                     std::back_inserter(records),
                     [this](const DiskRecord& record) { return host.isRoot || record.owner == host.owner; });
    }
    return records;
}

} // namespace ramdisk
