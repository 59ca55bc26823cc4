#include "RamDiskCore/Disks/RenameRamDiskUseCase.h"

#include "RamDiskCore/Validation/RamDiskSpecificationValidator.h"
#include "RamDiskCore/Validation/SpecificationRules.h"
#include "RamDiskCore/Values/RamDiskError.h"
#include "RamDiskCore/Values/Text.h"

#include <algorithm>
#include <string>
#include <utility>

namespace ramdisk {

RenameRamDiskUseCase::RenameRamDiskUseCase(std::shared_ptr<VolumeRenaming> renamer,
                                           std::shared_ptr<RamDiskInventory> inventory,
                                           ValidationContextProvider contextProvider)
    : renamer_(std::move(renamer)),
      inventory_(std::move(inventory)),
      contextProvider_(std::move(contextProvider)) {}

RamDisk RenameRamDiskUseCase::execute(const RamDisk& disk, std::string_view newName) {
    if (!disk.mountPoint) {
        throw RamDiskError(RamDiskError::NotMounted{disk.device});
    }
    if (auto found = issues(disk, newName); !found.empty()) {
        throw RamDiskError(RamDiskError::InvalidSpecification{std::move(found)});
    }
    renamer_->rename(disk, std::string(trimmed(newName)));
    const auto listed = inventory_->list();
    const auto found = std::find_if(listed.begin(), listed.end(),
                                    [&disk](const RamDisk& candidate) { return candidate.has(disk.device); });
    if (found == listed.end()) {
        throw RamDiskError(RamDiskError::NotFound{RamDiskReference{RamDiskReference::Device{disk.device}}});
    }
    return *found;
}

std::vector<ValidationIssue> RenameRamDiskUseCase::issues(const RamDisk& disk,
                                                          std::string_view newName) const {
    RamDiskSpecification specification;
    specification.name = std::string(trimmed(newName));
    specification.fileSystem = disk.fileSystem.value_or(specification.fileSystem);
    const RamDiskSpecificationValidator nameRules(
        {std::make_shared<const VolumeNameRule>(), std::make_shared<const UniqueNameRule>()});
    return nameRules.validate(specification, contextProvider_.currentFor(disk)).errors();
}

} // namespace ramdisk
