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

/// A volume that is being made: the request, and the record, in which every step leaves a trace.
struct VolumeRequest {
    RecordHold& hold;
    const RamDiskSpecification& specification;
    const VolumeProtection& protection;
    /// Stores the record as it is now.
    std::function<void()> saveRecord;
    /// Makes the folder to mount on. The record names its path before it exists.
    std::function<MountFolders::Made()> makeMountFolder;
};

/// The result of detaching a volume.
struct Detached {
    /// Why it stayed. Then nothing has changed.
    struct Refused {
        std::string reason;
        EjectObstacle obstacle = EjectObstacle::other;
    };
    /// It is gone, and its memory is free.
    struct Gone {};
    /// It is out of sight, but open files keep its memory.
    struct Held {
        ReleaseOutcome outcome;
    };
    std::variant<Refused, Gone, Held> value;
    /// As `LinuxVolume::removeRemains` gives it.
    std::optional<std::filesystem::path> movedAside{};
};

/// One kind of volume on Linux. It has no state: all it knows about a volume comes from the record and from
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

    /// Where the volume will be mounted, unless that path exists already.
    [[nodiscard]] virtual std::filesystem::path preferredMountPoint(const DiskRecord& record) const = 0;

    /// The steps that make and mount the volume. They refer to `request`, which must outlive them. What a
    /// failure leaves, `detach` and `removeRemains` can remove.
    [[nodiscard]] virtual std::vector<MachineStep> makingSteps(VolumeRequest& request) const = 0;

    /// Whether the kernel shows the volume of this record.
    [[nodiscard]] virtual bool isLive(const DiskRecord& record, const MountTable& mounts) const = 0;

    /// The live volume as a listing shows it.
    [[nodiscard]] virtual RamDisk describe(const DiskRecord& record, const MountTable& mounts) const = 0;

    /// Whether nobody has ever put anything on the volume.
    [[nodiscard]] bool isPristine(const DiskRecord& record) const;

    /// Detaches the live volume. `hold` is updated when the record must hold more than before.
    [[nodiscard]] virtual Detached detach(RecordHold& hold, const DiskRecordStore& store,
                                          Force force) const = 0;

    /// What still keeps the memory of a volume that was detached while in use. Absent when the memory is
    /// free.
    [[nodiscard]] virtual std::optional<ReleaseOutcome> heldMemory(const DiskRecord& record,
                                                                   const MountTable& mounts) const = 0;

    /// Where users find the complete volume. Absent when it is out of sight or half removed, even though the
    /// kernel may still keep it.
    [[nodiscard]] virtual std::optional<std::filesystem::path> visibleAt(const DiskRecord& record,
                                                                         const MountTable& mounts) const = 0;

    /// Removes what a volume that is no longer live may have left: its mount folder. Never deletes any
    /// contents but those of the volume itself.
    /// @returns where the mount folder went that holds files which a program wrote after the volume was gone.
    virtual std::optional<std::filesystem::path> removeRemains(const DiskRecord& record) const;

protected:
    [[nodiscard]] const LinuxHost& host() const noexcept { return host_; }

    /// The parts of a listing that are the same for every kind of volume.
    [[nodiscard]] static RamDisk baseDescription(const DiskRecord& record);

    /// The refusal to detach a volume with another mount below `folder`, which nobody could reach any more.
    /// Absent when there is none.
    [[nodiscard]] static std::optional<Detached> refuseMountBelow(const std::filesystem::path& folder,
                                                                  const MountTable& mounts);

    /// Looks a few times within a tenth of a second, until nothing is busy. Whoever only looks at a volume,
    /// such as another call of this program, is done by then.
    static void waitWhile(const std::function<bool()>& isBusy);

    /// The refusal to detach a volume whose files are in use.
    [[nodiscard]] static Detached busy(const DiskRecord& record, const std::vector<VolumeUser>& users);

    [[nodiscard]] static std::optional<ReleaseOutcome> outcomeOf(const OpenFiles& files);

private:
    LinuxHost host_;
};

} // namespace ramdisk
