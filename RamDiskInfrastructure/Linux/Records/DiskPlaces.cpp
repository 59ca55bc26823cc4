#include "RamDiskInfrastructure/Linux/Records/DiskPlaces.h"

#include "RamDiskCore/Values/RamDiskError.h"
#include "RamDiskCore/Values/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <string>

namespace ramdisk {

void requireFreeName(const DiskRecordStore& store, const DiskRecord& own, std::string_view name) {
    for (const auto& other : store.readAll()) {
        if (other.uuid != own.uuid && other.state != RecordState::detaching && namesEqual(other.name, name)) {
            throw RamDiskError(RamDiskError::InvalidSpecification{
                {ValidationIssue{ValidationIssue::NameInUse{std::string(name)}}}});
        }
    }
}

bool isMountPointOfAnother(const DiskRecordStore& store, const DiskRecord& own,
                           const std::filesystem::path& folder) {
    const auto records = store.readAll();
    return std::any_of(records.begin(), records.end(), [&](const DiskRecord& other) {
        return other.uuid != own.uuid && other.mountPoint == folder;
    });
}

MountFolders::Made makeMountFolder(const LinuxHost& host, const DiskRecordStore& store, RecordHold& hold,
                                   const std::function<void(std::string)>& notice) {
    const auto announce = [&](const std::filesystem::path& path) {
        if (hold.record.mountPoint != path) {
            hold.record.mountPoint = path;
            store.update(hold);
        }
    };
    auto made = MountFolders(host).make(
        hold.record.name, hold.record.access, announce,
        [&](const std::filesystem::path& path) { return isMountPointOfAnother(store, hold.record, path); });
    const auto wanted = MountFolders::nameFor(hold.record.name);
    if (made.path.filename() != wanted) {
        notice(fmt::format("“{}” is mounted at {}, since {} is something else.", hold.record.name,
                           made.path.string(), (made.path.parent_path() / wanted).string()));
    }
    return made;
}

} // namespace ramdisk
