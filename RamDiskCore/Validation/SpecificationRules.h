#pragma once

#include "RamDiskCore/Validation/SpecificationRule.h"

namespace ramdisk {

/// The name must be one that every format and every shell can live with. Reports the first fault only.
class VolumeNameRule final : public SpecificationRule {
public:
    [[nodiscard]] std::vector<ValidationIssue> check(const RamDiskSpecification& specification,
                                                     const ValidationContext& context) const override;
};

/// No mounted volume and no startup disk may go by the same name. A mounted volume is reported first.
class UniqueNameRule final : public SpecificationRule {
public:
    [[nodiscard]] std::vector<ValidationIssue> check(const RamDiskSpecification& specification,
                                                     const ValidationContext& context) const override;
};

/// The format must fit onto the disk.
class MinimumSizeRule final : public SpecificationRule {
public:
    [[nodiscard]] std::vector<ValidationIssue> check(const RamDiskSpecification& specification,
                                                     const ValidationContext& context) const override;
};

/// A disk as large as the machine's memory is refused; one that would crowd out the applications is told.
/// Too little free memory takes precedence over too large a share, so the two warnings never come together.
class MemoryCapacityRule final : public SpecificationRule {
public:
    /// The share of the installed memory up to which a disk draws no warning.
    static constexpr double recommendedShare = 0.75;

    /// `recommendedShare` of `physical`, in bytes, rounded to the nearest whole number.
    [[nodiscard]] static ByteCount recommendedLimit(ByteCount physical);

    [[nodiscard]] std::vector<ValidationIssue> check(const RamDiskSpecification& specification,
                                                     const ValidationContext& context) const override;
};

/// Encryption needs one of the formats that have it.
class EncryptionSupportRule final : public SpecificationRule {
public:
    [[nodiscard]] std::vector<ValidationIssue> check(const RamDiskSpecification& specification,
                                                     const ValidationContext& context) const override;
};

} // namespace ramdisk
