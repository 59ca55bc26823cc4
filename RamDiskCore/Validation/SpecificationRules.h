#pragma once

#include "RamDiskCore/Validation/SpecificationRule.h"

#include <cstdint>

namespace ramdisk {

/// The name must work with every format and every shell. Reports only the first fault.
class VolumeNameRule final : public SpecificationRule {
public:
    /// How many bytes a character may have on average: one can have any number of marks, but what is kept of
    /// a disk has an end. No character that people write is longer.
    static constexpr std::int64_t bytesPerCharacter = 32;

    [[nodiscard]] std::vector<ValidationIssue> check(const RamDiskSpecification& specification,
                                                     const ValidationContext& context) const override;
};

/// No mounted volume and no startup disk may have the same name. A mounted volume is reported first.
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

/// A disk as large as the machine's memory is refused. A disk that would leave too little for applications
/// gets a warning. Too little free memory takes precedence over too large a share, so there is never more
/// than one of the two warnings.
class MemoryCapacityRule final : public SpecificationRule {
public:
    /// The share of the installed memory up to which there is no warning.
    static constexpr double recommendedShare = 0.75;

    /// `recommendedShare` of `physical`, in bytes, rounded to the nearest whole number.
    [[nodiscard]] static ByteCount recommendedLimit(ByteCount physical);

    [[nodiscard]] std::vector<ValidationIssue> check(const RamDiskSpecification& specification,
                                                     const ValidationContext& context) const override;
};

/// Only some formats can be encrypted.
class EncryptionSupportRule final : public SpecificationRule {
public:
    [[nodiscard]] std::vector<ValidationIssue> check(const RamDiskSpecification& specification,
                                                     const ValidationContext& context) const override;
};

} // namespace ramdisk
