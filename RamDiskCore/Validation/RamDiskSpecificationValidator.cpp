#include "RamDiskCore/Validation/RamDiskSpecificationValidator.h"

#include "RamDiskCore/Validation/SpecificationRules.h"

#include <iterator>
#include <utility>

namespace ramdisk {

namespace {

const RamDiskSpecificationValidator::Rules& defaultRules() {
    static const RamDiskSpecificationValidator::Rules rules{
        std::make_shared<VolumeNameRule>(), std::make_shared<UniqueNameRule>(),
        std::make_shared<MinimumSizeRule>(), std::make_shared<MemoryCapacityRule>(),
        std::make_shared<EncryptionSupportRule>()};
    return rules;
}

} // namespace

RamDiskSpecificationValidator::RamDiskSpecificationValidator() : rules_(defaultRules()) {}

RamDiskSpecificationValidator::RamDiskSpecificationValidator(Rules rules) : rules_(std::move(rules)) {}

ValidationReport RamDiskSpecificationValidator::validate(const RamDiskSpecification& specification,
                                                         const ValidationContext& context) const {
    ValidationReport report;
    for (const auto& rule : rules_) {
        auto issues = rule->check(specification, context);
        report.issues.insert(report.issues.end(), std::move_iterator(issues.begin()),
                             std::move_iterator(issues.end()));
    }
    return report;
}

} // namespace ramdisk
