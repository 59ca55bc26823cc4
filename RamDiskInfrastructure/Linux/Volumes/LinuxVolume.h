#pragma once

#include "RamDiskCore/Ports/Port.h"
#include "RamDiskCore/Ports/RamDeviceAllocating.h"
#include "RamDiskCore/Values/RamDisk.h"
#include "RamDiskCore/Values/RamDiskError.h"
#include "RamDiskCore/Values/RamDiskSpecification.h"
#include "RamDiskCore/Values/VolumeProtection.h"
#include "RamDiskInfrastructure/Commands/MachineStep.h"
#include "RamDiskInfrastructure/Linux/Host/LinuxHost.h"
#include "RamDiskInfrastructure/Linux/Host/MountTable.h"
#include "RamDiskInfrastructure/Linux/Host/OpenFiles.h"
#include "RamDiskInfrastructure/Linux/Records/DiskRecordStore.h"
#include "RamDiskInfrastructure/Linux/Records/MountFolders.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace ramdisk {

/// A volume that is being made: what is asked for, and the record in which every step leaves its trace.
struct VolumeRequest {
    RecordHold& hold;
    const RamDiskSpecification& specification;
    const VolumeProtection& protection;
    /// Writes the record as it stands now.
    std::function<void()> saveRecord;
    /// Makes the folder to mount on, under a path that the record names before it exists.
    std::function<MountFolders::Made()> makeMountFolder;
};

/// What became of a volume that was to go.
struct Detached {
    /// Why it stayed; then nothing has changed.
    struct Refused {
        std::string reason;
        EjectObstacle obstacle = EjectObstacle::other;
    };
    /// It is gone, and its memory is back.
    struct Gone {};
    /// It is out of sight, and open files keep its memory.
    struct Held {
        ReleaseOutcome outcome;
    };
    std::variant<Refused, Gone, Held> value;
};

/// One way of realising a volume on Linux. Stateless: all it knows of a volume comes from the record and from
/// the kernel.
class LinuxVolume : public Port {
public:
    explicit LinuxVolume(LinuxHost host) : host_(std::move(host)) {}

    /// Refuses what cannot be made here, before anything is allocated.
    /// @throws RamDiskError `formattingFailed`, `allocationFailed`
    virtual void requireSupport(const RamDiskSpecification& specification) const = 0;

    /// The steps that ready this machine for what `requireSupport` let pass, before anything is allocated.
    [[nodiscard]] virtual std::vector<MachineStep>
    preparingSteps(const RamDiskSpecification& /*specification*/) const {
        return {};
    }

    /// Where the volume is going to be found, unless something stands in the way there.
    [[nodiscard]] virtual std::filesystem::path preferredMountPoint(const DiskRecord& record) const = 0;

    /// The steps that make and mount the volume. They refer to `request`, which must outlive them. A failure
    /// leaves what `detach` and `removeRemains` can take away.
    [[nodiscard]] virtual std::vector<MachineStep> makingSteps(VolumeRequest& request) const = 0;

    /// Whether the kernel shows the volume of this record.
    [[nodiscard]] virtual bool isLive(const DiskRecord& record, const MountTable& mounts) const = 0;

    /// The live volume as a listing shows it.
    [[nodiscard]] virtual RamDisk describe(const DiskRecord& record, const MountTable& mounts) const = 0;

    /// Whether nobody ever put anything onto the volume.
    [[nodiscard]] bool isPristine(const DiskRecord& record) const;

    /// Takes the live volume away. `hold` is updated where the record must know more than before.
    [[nodiscard]] virtual Detached detach(RecordHold& hold, const DiskRecordStore& store,
                                          Force force) const = 0;

    /// What still keeps the memory of a volume that was detached while in use; absent when it is back.
    [[nodiscard]] virtual std::optional<ReleaseOutcome> heldMemory(const DiskRecord& record,
                                                                   const MountTable& mounts) const = 0;

    /// Where users find the volume, whole; absent when it is out of sight or half taken away, even though the
    /// kernel may still keep it.
    [[nodiscard]] virtual std::optional<std::filesystem::path> visibleAt(const DiskRecord& record,
                                                                         const MountTable& mounts) const = 0;

    /// Removes what a volume that is no longer live may have left: its mount folder. Never deletes contents
    /// of anything but the volume itself.
    virtual void removeRemains(const DiskRecord& record) const;

protected:
    [[nodiscard]] const LinuxHost& host() const noexcept { return host_; }

    /// What every kind of volume has in common in a listing.
    [[nodiscard]] static RamDisk baseDescription(const DiskRecord& record);

    /// The refusal of a volume whose files are in use.
    [[nodiscard]] static Detached busy(const DiskRecord& record, const std::vector<VolumeUser>& users);

    [[nodiscard]] static std::optional<ReleaseOutcome> outcomeOf(const OpenFiles& files);

private:
    LinuxHost host_;
};

} // namespace ramdisk
