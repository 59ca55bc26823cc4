#pragma once

#include "RamDiskInfrastructure/Linux/Disks/LinuxContext.h"

namespace ramdisk {

/// Brings a record back in line with the machine after a process was killed, a volume was unmounted by other
/// means, or the last file of a forcibly ejected volume was closed.
///
/// Changes only what is provably ours and what no process holds. A volume that somebody put files on is kept,
/// even if its maker died. Everything is checked again under the record's hold, so a listing that saw an old
/// state does no harm. Failures are silent: the next listing tries again.
class RecordHealer {
public:
    explicit RecordHealer(const LinuxContext& context) : context_(context) {}

    /// @returns the record as it stands now; absent when it is gone.
    [[nodiscard]] std::optional<DiskRecord> heal(const DiskRecord& record) const noexcept;

    /// Whether the record is valid. A complete disk that `mounts` shows is. Any other record is healed first.
    [[nodiscard]] bool stands(const DiskRecord& record, const MountTable& mounts) const noexcept;

    /// Removes what the record's volume may have left, unless a newer disk uses it by now.
    /// @throws SystemCallError
    void removeRemains(const DiskRecord& record) const;

    /// Tells the user of files that a program wrote to the mount folder after the volume was gone.
    void tellMovedAside(const DiskRecord& record, const std::optional<std::filesystem::path>& folder) const;

    /// Removes whatever the record's volume has left, and the record.
    /// @throws SystemCallError
    void discard(RecordHold hold) const;

    /// As `discard`, for a volume that nobody can see. If something still keeps its memory, the record stays,
    /// as the only trace of that memory.
    /// @throws SystemCallError
    void discardUnseen(RecordHold hold, const MountTable& mounts) const;

private:
    void healHeld(RecordHold hold) const;
    void noteHeld(RecordHold hold, const ReleaseOutcome& held) const;
    void healSettled(RecordHold hold, const MountTable& mounts) const;
    void finishRenaming(RecordHold hold, const MountTable& mounts) const;

    const LinuxContext& context_;
};

} // namespace ramdisk
