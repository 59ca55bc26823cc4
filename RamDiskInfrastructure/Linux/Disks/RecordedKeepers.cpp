#include "RamDiskInfrastructure/Linux/Disks/RecordedKeepers.h"

#include "RamDiskCore/Ports/Tracing.h"

namespace ramdisk {

void RecordedKeepers::note(const UUID& instance, const std::filesystem::path& folder) noexcept {
    try {
        for (const auto& record : context_->visibleRecords()) {
            if (record.instance != instance || record.keeper == folder) {
                continue;
            }
            const auto& store = context_->storeOf(record);
            if (auto hold = store.isOwn() ? store.hold(record) : std::nullopt) {
                hold->record.keeper = folder;
                store.update(*hold);
            }
        }
    } catch (const std::exception&) {
        traceCaught("records",
                    "commands with another home folder do not learn that the disk keeps its files");
    }
}

std::optional<std::filesystem::path> RecordedKeepers::folderOf(const UUID& instance) const {
    for (const auto& record : context_->visibleRecords()) {
        if (record.instance == instance && !record.keeper.empty()) {
            return record.keeper;
        }
    }
    return std::nullopt;
}

} // namespace ramdisk
