#pragma once

#include "RamDiskInfrastructure/Commands/MachineStep.h"
#include "RamDiskInfrastructure/Linux/Host/LinuxHost.h"
#include "RamDiskInfrastructure/Linux/Records/DiskRecordStore.h"
#include "RamDiskInfrastructure/Linux/Volumes/LinuxVolumes.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace ramdisk {

/// What the Linux adapters of one process share.
struct LinuxContext {
    /// A context whose tools are really run.
    explicit LinuxContext(LinuxHost aHost);
    LinuxContext(LinuxHost aHost, std::shared_ptr<CommandRunning> aRunner);

    /// The store for the records that this process makes.
    [[nodiscard]] const DiskRecordStore& ownStore() const { return stores.front(); }

    /// The store that a record was read from.
    [[nodiscard]] const DiskRecordStore& storeOf(const DiskRecord& record) const;

    /// Every record that this process may see, ordered by store and device.
    /// @param damaged gets the records that are damaged, whoever's they are.
    [[nodiscard]] std::vector<DiskRecord> visibleRecords(std::vector<DamagedRecord>* damaged = nullptr) const;

    LinuxHost host;
    std::shared_ptr<CommandRunning> runner;
    LinuxVolumes volumes;
    std::vector<DiskRecordStore> stores;
    /// Empty outside of tests.
    StepObserver observer;
    /// Gets a sentence that the user should know once, such as that sizes are not enforced here.
    std::function<void(std::string)> notice = [](const std::string&) {};
};

} // namespace ramdisk
