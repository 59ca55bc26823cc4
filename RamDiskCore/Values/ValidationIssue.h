#pragma once

#include "RamDiskCore/Values/ByteCount.h"
#include "RamDiskCore/Values/CaseName.h"
#include "RamDiskCore/Values/EnumerationTable.h"
#include "RamDiskCore/Values/FileSystem.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>

namespace ramdisk {

/// One fault in a request for a disk, or one warning about it. Its text comes from `issueText`.
struct ValidationIssue {
    /// An error keeps the disk from being made. A warning is only shown.
    enum class Severity { warning, error };
    /// The field of a form that the issue is shown under.
    enum class Field { name, size, fileSystem, folders };

    struct ForbiddenCharacter {
        static constexpr std::string_view caseName = "forbiddenCharacter";
        static constexpr auto severity = Severity::error;
        static constexpr auto field = Field::name;
        /// One character (grapheme cluster).
        std::string character;
        friend bool operator==(const ForbiddenCharacter&, const ForbiddenCharacter&) = default;
    };
    struct NameTooLong {
        static constexpr std::string_view caseName = "nameTooLong";
        static constexpr auto severity = Severity::error;
        static constexpr auto field = Field::name;
        std::int64_t limit;
        FileSystem fileSystem;
        friend bool operator==(const NameTooLong&, const NameTooLong&) = default;
    };
    struct NameInUse {
        static constexpr std::string_view caseName = "nameInUse";
        static constexpr auto severity = Severity::error;
        static constexpr auto field = Field::name;
        std::string name;
        friend bool operator==(const NameInUse&, const NameInUse&) = default;
    };
    struct NameOfStartupDisk {
        static constexpr std::string_view caseName = "nameOfStartupDisk";
        static constexpr auto severity = Severity::error;
        static constexpr auto field = Field::name;
        std::string name;
        friend bool operator==(const NameOfStartupDisk&, const NameOfStartupDisk&) = default;
    };
    struct BelowMinimumSize {
        static constexpr std::string_view caseName = "belowMinimumSize";
        static constexpr auto severity = Severity::error;
        static constexpr auto field = Field::size;
        ByteCount minimum;
        FileSystem fileSystem;
        friend bool operator==(const BelowMinimumSize&, const BelowMinimumSize&) = default;
    };
    struct ExceedsPhysicalMemory {
        static constexpr std::string_view caseName = "exceedsPhysicalMemory";
        static constexpr auto severity = Severity::error;
        static constexpr auto field = Field::size;
        ByteCount size;
        ByteCount physical;
        friend bool operator==(const ExceedsPhysicalMemory&, const ExceedsPhysicalMemory&) = default;
    };
    struct ExceedsAvailableMemory {
        static constexpr std::string_view caseName = "exceedsAvailableMemory";
        static constexpr auto severity = Severity::warning;
        static constexpr auto field = Field::size;
        ByteCount available;
        friend bool operator==(const ExceedsAvailableMemory&, const ExceedsAvailableMemory&) = default;
    };
    struct ExceedsRecommendedShare {
        static constexpr std::string_view caseName = "exceedsRecommendedShare";
        static constexpr auto severity = Severity::warning;
        static constexpr auto field = Field::size;
        /// A fraction, such as 0.75.
        double share;
        friend bool operator==(const ExceedsRecommendedShare&, const ExceedsRecommendedShare&) = default;
    };
    struct EncryptionUnsupported {
        static constexpr std::string_view caseName = "encryptionUnsupported";
        static constexpr auto severity = Severity::error;
        static constexpr auto field = Field::fileSystem;
        FileSystem fileSystem;
        friend bool operator==(const EncryptionUnsupported&, const EncryptionUnsupported&) = default;
    };
    struct InvalidFolder {
        static constexpr std::string_view caseName = "invalidFolder";
        static constexpr auto severity = Severity::error;
        static constexpr auto field = Field::folders;
        std::string folder;
        friend bool operator==(const InvalidFolder&, const InvalidFolder&) = default;
    };
    struct TooManyFolders {
        static constexpr std::string_view caseName = "tooManyFolders";
        static constexpr auto severity = Severity::error;
        static constexpr auto field = Field::folders;
        std::int64_t limit;
        friend bool operator==(const TooManyFolders&, const TooManyFolders&) = default;
    };
    struct EmptyName {
        static constexpr std::string_view caseName = "emptyName";
        static constexpr auto severity = Severity::error;
        static constexpr auto field = Field::name;
        friend bool operator==(const EmptyName&, const EmptyName&) = default;
    };
    struct NameStartsWithDot {
        static constexpr std::string_view caseName = "nameStartsWithDot";
        static constexpr auto severity = Severity::error;
        static constexpr auto field = Field::name;
        friend bool operator==(const NameStartsWithDot&, const NameStartsWithDot&) = default;
    };
    struct NameStartsWithHyphen {
        static constexpr std::string_view caseName = "nameStartsWithHyphen";
        static constexpr auto severity = Severity::error;
        static constexpr auto field = Field::name;
        friend bool operator==(const NameStartsWithHyphen&, const NameStartsWithHyphen&) = default;
    };

    using Case = std::variant<ForbiddenCharacter, NameTooLong, NameInUse, NameOfStartupDisk, BelowMinimumSize,
                              ExceedsPhysicalMemory, ExceedsAvailableMemory, ExceedsRecommendedShare,
                              EncryptionUnsupported, InvalidFolder, TooManyFolders, EmptyName,
                              NameStartsWithDot, NameStartsWithHyphen>;

    Case value;

    [[nodiscard]] Severity severity() const {
        return std::visit([](const auto& oneCase) { return oneCase.severity; }, value);
    }
    [[nodiscard]] Field field() const {
        return std::visit([](const auto& oneCase) { return oneCase.field; }, value);
    }

    /// The name of the case as scripts read it, such as "nameInUse".
    [[nodiscard]] std::string_view caseName() const { return nameOfCase(value); }

    friend bool operator==(const ValidationIssue&, const ValidationIssue&) = default;
};

template <>
inline constexpr auto enumerators<ValidationIssue::Severity> =
    enumerationTable<Named<ValidationIssue::Severity>>({{ValidationIssue::Severity::warning, "warning"},
                                                        {ValidationIssue::Severity::error, "error"}});

template <>
inline constexpr auto enumerators<ValidationIssue::Field> =
    enumerationTable<Named<ValidationIssue::Field>>({{ValidationIssue::Field::name, "name"},
                                                     {ValidationIssue::Field::size, "size"},
                                                     {ValidationIssue::Field::fileSystem, "fileSystem"},
                                                     {ValidationIssue::Field::folders, "folders"}});

} // namespace ramdisk
