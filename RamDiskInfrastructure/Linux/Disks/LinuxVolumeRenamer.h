#pragma once

#include "RamDiskCore/Ports/VolumeAccessControlling.h"
#include "RamDiskCore/Ports/VolumeRenaming.h"
#include "RamDiskInfrastructure/Linux/Disks/LinuxContext.h"

#include <functional>
#include <memory>

namespace ramdisk {

/// Renames a disk: its record, its label where the format has one, and the folder that it is found at.
///
/// A mount in use can be moved only where the system does not share its mounts with others; elsewhere the
/// disk takes its new name at once and its folder when it is made again, and the user is told. A process
/// killed on the way leaves the disk mounted in one of the two places and the record in step after the next
/// listing.
///
/// The place of a disk follows from its name and from who may open it, so the same is done when that changes.
class LinuxVolumeRenamer final : public VolumeRenaming, public VolumeAccessControlling {
public:
    explicit LinuxVolumeRenamer(std::shared_ptr<const LinuxContext> context) : context_(std::move(context)) {}

    void rename(const RamDisk& volume, const std::string& newName) override;
    void setAccess(const RamDisk& volume, VolumeAccess access) override;

private:
    /// Runs `work` on the disk's record while this process alone may change it.
    void whileHeld(const RamDisk& volume, const std::function<void(RecordHold&)>& work) const;
    void renameHeld(RecordHold& hold, const std::string& newName) const;
    void setAccessHeld(RecordHold& hold, VolumeAccess access) const;
    void moveMount(RecordHold& hold) const;
    void moveFolder(RecordHold& hold) const;

    std::shared_ptr<const LinuxContext> context_;
};

} // namespace ramdisk
