#pragma once

#include "RamDiskInfrastructure/Linux/Disks/LinuxContext.h"

#include <vector>

namespace ramdisk {

/// Makes damaged records anew from what the kernel shows of their volumes, so that the disks can be listed,
/// saved and ejected again, and tells so.
///
/// A volume shows whose it is by its tag, which only its maker could give it; its mark, its size and its
/// mount point tell the rest. The name is that of the mount folder. Which of several formats that Linux makes
/// in the same way it had, nobody knows any more. A volume of a user who may not mount is a folder and cannot
/// be recognised: that is told.
class RecordRecovery {
public:
    explicit RecordRecovery(const LinuxContext& context) : context_(context) {}

    /// @param intact the records that can be read. Their volumes are not those of the damaged ones.
    void recover(std::vector<DamagedRecord> damaged, const std::vector<DiskRecord>& intact) const;

private:
    /// The volumes that stand and have no record.
    [[nodiscard]] std::vector<DiskRecord> volumesWithout(const std::vector<DiskRecord>& records) const;
    void replace(const DamagedRecord& damaged, DiskRecord found) const;

    const LinuxContext& context_;
};

} // namespace ramdisk
