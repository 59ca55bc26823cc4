#pragma once

#include "RamDiskCore/Values/ByteCount.h"
#include "RamDiskCore/Values/DeviceIdentifier.h"
#include "RamDiskCore/Values/RamDiskReference.h"
#include "RamDiskCore/Values/ValidationIssue.h"

#include <exception>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

namespace ramdisk {

/// What kept a device from being released, as far as it decides what to advise the user.
enum class EjectObstacle { busy, other };

/// Every failure of a disk operation. The text that users read comes from `errorText` alone; a `reason` is
/// the text of the underlying failure and is inserted there as it is.
class RamDiskError : public std::exception {
public:
    struct InvalidSpecification {
        std::vector<ValidationIssue> issues;
        friend bool operator==(const InvalidSpecification&, const InvalidSpecification&) = default;
    };
    struct NotFound {
        RamDiskReference reference;
        friend bool operator==(const NotFound&, const NotFound&) = default;
    };
    struct AmbiguousReference {
        RamDiskReference reference;
        std::vector<DeviceIdentifier> matches;
        friend bool operator==(const AmbiguousReference&, const AmbiguousReference&) = default;
    };
    struct AllocationFailed {
        std::string reason;
        friend bool operator==(const AllocationFailed&, const AllocationFailed&) = default;
    };
    struct FormattingFailed {
        std::string reason;
        friend bool operator==(const FormattingFailed&, const FormattingFailed&) = default;
    };
    struct EjectFailed {
        DeviceIdentifier device;
        std::string reason;
        EjectObstacle obstacle = EjectObstacle::other;
        friend bool operator==(const EjectFailed&, const EjectFailed&) = default;
    };
    struct InventoryUnavailable {
        std::string reason;
        friend bool operator==(const InventoryUnavailable&, const InventoryUnavailable&) = default;
    };
    struct NotMounted {
        DeviceIdentifier device;
        friend bool operator==(const NotMounted&, const NotMounted&) = default;
    };
    struct ContentsTransferFailed {
        std::string reason;
        friend bool operator==(const ContentsTransferFailed&, const ContentsTransferFailed&) = default;
    };
    struct SavedContentsKeyMissing {
        std::string name;
        friend bool operator==(const SavedContentsKeyMissing&, const SavedContentsKeyMissing&) = default;
    };
    struct SavedContentsNotRestored {
        std::string name;
        friend bool operator==(const SavedContentsNotRestored&, const SavedContentsNotRestored&) = default;
    };
    struct RedirectTaken {
        std::string folder;
        std::string by;
        friend bool operator==(const RedirectTaken&, const RedirectTaken&) = default;
    };
    struct RedirectNameTaken {
        std::string name;
        friend bool operator==(const RedirectNameTaken&, const RedirectNameTaken&) = default;
    };
    struct NewSizeTooSmall {
        ByteCount minimum;
        friend bool operator==(const NewSizeTooSmall&, const NewSizeTooSmall&) = default;
    };
    struct ResizeFailed {
        std::string reason;
        /// Where the files were saved before the disk was made anew, when they were.
        std::optional<std::filesystem::path> savedImage;
        friend bool operator==(const ResizeFailed&, const ResizeFailed&) = default;
    };
    struct NotEnoughSpaceForBenchmark {
        ByteCount needed;
        friend bool operator==(const NotEnoughSpaceForBenchmark&,
                               const NotEnoughSpaceForBenchmark&) = default;
    };
    struct EraseFailed {
        std::string reason;
        friend bool operator==(const EraseFailed&, const EraseFailed&) = default;
    };
    struct TemplateNotFound {
        std::string name;
        friend bool operator==(const TemplateNotFound&, const TemplateNotFound&) = default;
    };
    struct BuiltInTemplate {
        std::string name;
        friend bool operator==(const BuiltInTemplate&, const BuiltInTemplate&) = default;
    };
    struct FolderNotCreated {
        std::string folder;
        std::string reason;
        friend bool operator==(const FolderNotCreated&, const FolderNotCreated&) = default;
    };
    struct BeingFilled {
        std::string name;
        friend bool operator==(const BeingFilled&, const BeingFilled&) = default;
    };
    struct PartlyFilled {
        std::string name;
        friend bool operator==(const PartlyFilled&, const PartlyFilled&) = default;
    };
    struct IncorrectPassphrase {
        friend bool operator==(const IncorrectPassphrase&, const IncorrectPassphrase&) = default;
    };
    struct FilesKeptChanging {
        friend bool operator==(const FilesKeptChanging&, const FilesKeptChanging&) = default;
    };
    struct TemplateNameMissing {
        friend bool operator==(const TemplateNameMissing&, const TemplateNameMissing&) = default;
    };
    struct ImageEjected {
        friend bool operator==(const ImageEjected&, const ImageEjected&) = default;
    };
    struct DiskEjected {
        friend bool operator==(const DiskEjected&, const DiskEjected&) = default;
    };
    struct ImageUnreadable {
        friend bool operator==(const ImageUnreadable&, const ImageUnreadable&) = default;
    };
    struct NamesMerged {
        friend bool operator==(const NamesMerged&, const NamesMerged&) = default;
    };
    struct ImageOpenAlready {
        friend bool operator==(const ImageOpenAlready&, const ImageOpenAlready&) = default;
    };
    struct ImageStateUnknown {
        friend bool operator==(const ImageStateUnknown&, const ImageStateUnknown&) = default;
    };
    struct ImageLeftOpen {
        friend bool operator==(const ImageLeftOpen&, const ImageLeftOpen&) = default;
    };

    using Case =
        std::variant<InvalidSpecification, NotFound, AmbiguousReference, AllocationFailed, FormattingFailed,
                     EjectFailed, InventoryUnavailable, NotMounted, ContentsTransferFailed,
                     SavedContentsKeyMissing, SavedContentsNotRestored, RedirectTaken, RedirectNameTaken,
                     NewSizeTooSmall, ResizeFailed, NotEnoughSpaceForBenchmark, EraseFailed, TemplateNotFound,
                     BuiltInTemplate, FolderNotCreated, BeingFilled, PartlyFilled, IncorrectPassphrase,
                     FilesKeptChanging, TemplateNameMissing, ImageEjected, DiskEjected, ImageUnreadable,
                     NamesMerged, ImageOpenAlready, ImageStateUnknown, ImageLeftOpen>;

    /// Whether `T` is one of the cases.
    template <typename T>
    static constexpr bool isOneCase =
        std::conjunction_v<std::negation<std::is_same<T, RamDiskError>>, std::negation<std::is_same<T, Case>>,
                           std::is_constructible<Case, T>>;

    // Implicit, so that a case stands for its error: `throw RamDiskError(RamDiskError::ImageEjected{})`.
    RamDiskError(Case value) : value_(std::move(value)) {} // NOLINT(google-explicit-constructor)
    template <typename OneCase>
    requires isOneCase<std::remove_cvref_t<OneCase>> RamDiskError(
        OneCase&& value) // NOLINT(google-explicit-constructor,bugprone-forwarding-reference-overload)
        : value_(std::forward<OneCase>(value)) {}

    [[nodiscard]] const Case& value() const noexcept { return value_; }

    /// The name of the case as scripts read it, such as "notFound".
    [[nodiscard]] std::string_view caseName() const noexcept;

    /// The case's name, for logs and debuggers.
    [[nodiscard]] const char* what() const noexcept override;

    friend bool operator==(const RamDiskError& left, const RamDiskError& right) {
        return left.value_ == right.value_;
    }

private:
    Case value_;
};

} // namespace ramdisk
