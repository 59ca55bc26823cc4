#include "RamDiskCore/Validation/SpecificationRules.h"

namespace ramdisk {

std::vector<ValidationIssue> EncryptionSupportRule::check(const RamDiskSpecification& specification,
                                                          const ValidationContext& /*context*/) const {
    if (specification.isEncrypted && !supportsEncryption(specification.fileSystem)) {
        return {{ValidationIssue::EncryptionUnsupported{specification.fileSystem}}};
    }
    return {};
}

} // namespace ramdisk
