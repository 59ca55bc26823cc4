#pragma once

#include "RamDiskInfrastructure/Commands/FileDescriptor.h"
#include "RamDiskInfrastructure/Linux/Records/DiskRecord.h"

#include <filesystem>
#include <optional>
#include <vector>

namespace ramdisk {

/// A record that this process alone may change, for as long as this value lives. The kernel gives the hold up
/// when the process dies, which is how others can tell an abandoned disk from one that is being made.
struct RecordHold {
    DiskRecord record;
    FileDescriptor lock;
};

/// The folder of records of attached disks.
///
/// A record appears whole under a name that nobody else has, changes whole, and disappears whole: a process
/// killed at any point leaves either the old or the new record, and no temporary file. Readers take no lock.
/// Records are readable by root and by their owner's group only, so that no other user can hold one.
class DiskRecordStore {
public:
    explicit DiskRecordStore(std::filesystem::path folder);

    [[nodiscard]] const std::filesystem::path& folder() const noexcept { return folder_; }

    /// All records, ordered by device; none when the folder does not exist. Files that are not records, or
    /// that somebody else than root and the folder's owner wrote, are passed over; so is what another user
    /// than root claims beyond folders of his own.
    [[nodiscard]] std::vector<DiskRecord> readAll() const;

    /// The numbers of all records, readable or not.
    [[nodiscard]] std::vector<unsigned> usedNumbers() const;

    /// Writes `draft` under the lowest number that is free here and not in `alsoTaken`, and holds it. The
    /// draft's `device` is ignored.
    /// @throws SystemCallError with nothing written.
    [[nodiscard]] RecordHold claim(DiskRecord draft, const std::vector<unsigned>& alsoTaken,
                                   gid_t group) const;

    /// Holds the record if no other process does and it is still the same one, in its newest state.
    [[nodiscard]] std::optional<RecordHold> tryHold(const DiskRecord& record) const;

    /// As `tryHold`, waiting for another process that holds it, up to ten seconds. Absent when the record is
    /// gone.
    /// @throws std::runtime_error when the wait was in vain.
    [[nodiscard]] std::optional<RecordHold> hold(const DiskRecord& record) const;

    /// Replaces the stored record by `hold.record`.
    /// @throws SystemCallError with the former record still in place.
    void update(RecordHold& hold) const;

    /// Removes the record; its number is free again.
    void remove(RecordHold hold) const;

    /// Keeps every other process from comparing and taking names, for as long as the descriptor lives.
    /// @throws SystemCallError
    [[nodiscard]] FileDescriptor lockNames() const;

    /// Whether this process's user keeps the records here, so that it is theirs to put them in order.
    [[nodiscard]] bool isOwn() const;

private:
    [[nodiscard]] std::optional<uid_t> folderOwner() const;
    [[nodiscard]] FileDescriptor openRecord(const DeviceIdentifier& device) const;
    [[nodiscard]] std::filesystem::path pathOf(const DeviceIdentifier& device) const;
    [[nodiscard]] FileDescriptor writeUnnamed(const DiskRecord& record) const;
    void makeFolder() const;

    std::filesystem::path folder_;
};

} // namespace ramdisk
