#pragma once

#include "RamDiskCore/Values/ByteCount.h"
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
        /// One character (grapheme cluster).
        std::string character;
        friend bool operator==(const ForbiddenCharacter&, const ForbiddenCharacter&) = default;
    };
    struct NameTooLong {
        std::int64_t limit;
        FileSystem fileSystem;
        friend bool operator==(const NameTooLong&, const NameTooLong&) = default;
    };
    struct NameInUse {
        std::string name;
        friend bool operator==(const NameInUse&, const NameInUse&) = default;
    };
    struct NameOfStartupDisk {
        std::string name;
        friend bool operator==(const NameOfStartupDisk&, const NameOfStartupDisk&) = default;
    };
    struct BelowMinimumSize {
        ByteCount minimum;
        FileSystem fileSystem;
        friend bool operator==(const BelowMinimumSize&, const BelowMinimumSize&) = default;
    };
    struct ExceedsPhysicalMemory {
        ByteCount size;
        ByteCount physical;
        friend bool operator==(const ExceedsPhysicalMemory&, const ExceedsPhysicalMemory&) = default;
    };
    struct ExceedsAvailableMemory {
        ByteCount available;
        friend bool operator==(const ExceedsAvailableMemory&, const ExceedsAvailableMemory&) = default;
    };
    struct ExceedsRecommendedShare {
        /// A fraction, such as 0.75.
        double share;
        friend bool operator==(const ExceedsRecommendedShare&, const ExceedsRecommendedShare&) = default;
    };
    struct EncryptionUnsupported {
        FileSystem fileSystem;
        friend bool operator==(const EncryptionUnsupported&, const EncryptionUnsupported&) = default;
    };
    struct InvalidFolder {
        std::string folder;
        friend bool operator==(const InvalidFolder&, const InvalidFolder&) = default;
    };
    struct TooManyFolders {
        std::int64_t limit;
        friend bool operator==(const TooManyFolders&, const TooManyFolders&) = default;
    };
    struct EmptyName {
        friend bool operator==(const EmptyName&, const EmptyName&) = default;
    };
    struct NameStartsWithDot {
        friend bool operator==(const NameStartsWithDot&, const NameStartsWithDot&) = default;
    };
    struct NameStartsWithHyphen {
        friend bool operator==(const NameStartsWithHyphen&, const NameStartsWithHyphen&) = default;
    };

    using Case = std::variant<ForbiddenCharacter, NameTooLong, NameInUse, NameOfStartupDisk, BelowMinimumSize,
                              ExceedsPhysicalMemory, ExceedsAvailableMemory, ExceedsRecommendedShare,
                              EncryptionUnsupported, InvalidFolder, TooManyFolders, EmptyName,
                              NameStartsWithDot, NameStartsWithHyphen>;

    Case value;

    [[nodiscard]] Severity severity() const noexcept;
    [[nodiscard]] Field field() const noexcept;

    /// The name of the case as scripts read it, such as "nameInUse".
    [[nodiscard]] std::string_view caseName() const noexcept;

    friend bool operator==(const ValidationIssue&, const ValidationIssue&) = default;
};

[[nodiscard]] std::string_view rawValue(ValidationIssue::Severity severity);
[[nodiscard]] std::string_view rawValue(ValidationIssue::Field field);

} // namespace ramdisk
