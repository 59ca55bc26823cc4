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
    RamDiskSpecification specification;
    specification.name = std::string(trimmed(newName));
    specification.fileSystem = disk.fileSystem.value_or(specification.fileSystem);
    const RamDiskSpecificationValidator nameRules(
        {std::make_shared<const VolumeNameRule>(), std::make_shared<const UniqueNameRule>()});
    const auto report = nameRules.validate(specification, contextProvider_.current(disk.mountPoint));
    if (!report.isValid()) {
        throw RamDiskError(RamDiskError::InvalidSpecification{report.errors()});
    }
    renamer_->rename(disk, specification.name);
    const auto listed = inventory_->list();
    const auto found = std::find_if(listed.begin(), listed.end(),
                                    [&disk](const RamDisk& candidate) { return candidate.has(disk.device); });
    if (found == listed.end()) {
        throw RamDiskError(RamDiskError::NotFound{RamDiskReference{RamDiskReference::Device{disk.device}}});
    }
    return *found;
}

} // namespace ramdisk
