#pragma once

#include "RamDiskInfrastructure/Commands/FileDescriptor.h"
#include "RamDiskInfrastructure/Linux/Records/DiskRecord.h"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace ramdisk {

/// A record that only this process may change, as long as this object exists. The kernel releases the hold
/// when the process dies. So others can tell an abandoned disk from one that is being made.
struct RecordHold {
    DiskRecord record;
    FileDescriptor lock;
};

/// A record that cannot be read although nobody else wrote it: its disk may still stand.
struct DamagedRecord {
    DeviceIdentifier device;
    /// What is left of it.
    std::string text;
    /// The folder that it was read from.
    std::filesystem::path folder;
};

/// The folder of records of attached disks.
///
/// A record appears, changes and disappears as a whole, under a name that no other record has. A process that
/// is killed at any point leaves either the old or the new record, and no temporary file. Readers take no
/// lock. Only root and the owner's group can read a record, so no other user can hold one.
class DiskRecordStore {
public:
    explicit DiskRecordStore(std::filesystem::path folder);

    [[nodiscard]] const std::filesystem::path& folder() const noexcept { return folder_; }

    /// All records, ordered by device; none when the folder does not exist. Files are skipped if they are not
    /// records, or if anybody but root and the folder's owner wrote them. A record of a user other than root
    /// is believed only about folders of this user.
    /// @param damaged gets the records that are damaged.
    [[nodiscard]] std::vector<DiskRecord> readAll(std::vector<DamagedRecord>* damaged = nullptr) const;

    /// The numbers of all records, readable or not.
    [[nodiscard]] std::vector<unsigned> usedNumbers() const;

    /// Writes `draft` under the lowest number that is free here and not in `alsoTaken`, and holds it. The
    /// `device` of the draft is ignored.
    /// @throws SystemCallError with nothing written.
    [[nodiscard]] RecordHold claim(DiskRecord draft, const std::vector<unsigned>& alsoTaken,
                                   gid_t group) const;

    /// Holds the record in its newest state, if no other process holds it and it is still the same one.
    [[nodiscard]] std::optional<RecordHold> tryHold(const DiskRecord& record) const;

    /// As `tryHold`, but waits up to ten seconds for another process that holds it. Absent when the record is
    /// gone.
    /// @throws std::runtime_error when the record is still held after that.
    [[nodiscard]] std::optional<RecordHold> hold(const DiskRecord& record) const;

    /// Replaces the stored record by `hold.record`.
    /// @throws SystemCallError with the former record still in place.
    void update(RecordHold& hold) const;

    /// Stores `record` in place of the damaged record of its device.
    /// @returns false when that is not damaged any more, or another process is at work on it.
    /// @throws SystemCallError with the damaged record still in place.
    bool replaceDamaged(DiskRecord record) const;

    /// Removes the record; its number is free again.
    void remove(RecordHold hold) const;

    /// Keeps other processes from comparing and taking names, until the descriptor is closed.
    /// @throws SystemCallError
    [[nodiscard]] FileDescriptor lockNames() const;

    /// Whether the records here belong to this process's user, who may then heal them.
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
