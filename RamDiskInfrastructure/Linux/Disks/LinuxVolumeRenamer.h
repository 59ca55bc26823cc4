#pragma once

#include "RamDiskCore/Ports/VolumeAccessControlling.h"
#include "RamDiskCore/Ports/VolumeRenaming.h"
#include "RamDiskInfrastructure/Linux/Disks/LinuxContext.h"

#include <functional>
#include <memory>

namespace ramdisk {

/// Renames a disk: its record, its label if the format has one, and its mount folder.
///
/// A mount in use can be moved only where the system does not share its mounts with other namespaces.
/// Elsewhere the disk gets its new name at once, but keeps its folder until it is made again, and the user is
/// told. A process that is killed meanwhile leaves the disk mounted in one of the two folders. The next
/// listing brings the record in line.
///
/// The folder of a disk depends on its name and on who may open it. So a change of access is done in the same
/// way.
class LinuxVolumeRenamer final : public VolumeRenaming, public VolumeAccessControlling {
public:
    explicit LinuxVolumeRenamer(std::shared_ptr<const LinuxContext> context) : context_(std::move(context)) {}

    void rename(const RamDisk& volume, const std::string& newName) override;
    void setAccess(const RamDisk& volume, VolumeAccess access) override;

private:
    /// Runs `work` on the disk's record while this process holds it.
    void whileHeld(const RamDisk& volume, const std::function<void(RecordHold&)>& work) const;
    void renameHeld(RecordHold& hold, const std::string& newName) const;
    void setAccessHeld(RecordHold& hold, VolumeAccess access) const;
    void moveMount(RecordHold& hold) const;
    void moveFolder(RecordHold& hold) const;

    std::shared_ptr<const LinuxContext> context_;
};

} // namespace ramdisk
