#pragma once

#include "RamDiskCore/Values/ByteCount.h"
#include "RamDiskCore/Values/CaseName.h"
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
        static constexpr std::string_view caseName = "invalidSpecification";
        std::vector<ValidationIssue> issues;
        friend bool operator==(const InvalidSpecification&, const InvalidSpecification&) = default;
    };
    struct NotFound {
        static constexpr std::string_view caseName = "notFound";
        RamDiskReference reference;
        friend bool operator==(const NotFound&, const NotFound&) = default;
    };
    struct AmbiguousReference {
        static constexpr std::string_view caseName = "ambiguousReference";
        RamDiskReference reference;
        std::vector<DeviceIdentifier> matches;
        friend bool operator==(const AmbiguousReference&, const AmbiguousReference&) = default;
    };
    struct AllocationFailed {
        static constexpr std::string_view caseName = "allocationFailed";
        std::string reason;
        friend bool operator==(const AllocationFailed&, const AllocationFailed&) = default;
    };
    struct FormattingFailed {
        static constexpr std::string_view caseName = "formattingFailed";
        std::string reason;
        friend bool operator==(const FormattingFailed&, const FormattingFailed&) = default;
    };
    struct EjectFailed {
        static constexpr std::string_view caseName = "ejectFailed";
        DeviceIdentifier device;
        std::string reason;
        EjectObstacle obstacle = EjectObstacle::other;
        friend bool operator==(const EjectFailed&, const EjectFailed&) = default;
    };
    struct InventoryUnavailable {
        static constexpr std::string_view caseName = "inventoryUnavailable";
        std::string reason;
        friend bool operator==(const InventoryUnavailable&, const InventoryUnavailable&) = default;
    };
    struct NotMounted {
        static constexpr std::string_view caseName = "notMounted";
        DeviceIdentifier device;
        friend bool operator==(const NotMounted&, const NotMounted&) = default;
    };
    struct ContentsTransferFailed {
        static constexpr std::string_view caseName = "contentsTransferFailed";
        std::string reason;
        friend bool operator==(const ContentsTransferFailed&, const ContentsTransferFailed&) = default;
    };
    struct SavedContentsKeyMissing {
        static constexpr std::string_view caseName = "savedContentsKeyMissing";
        std::string name;
        friend bool operator==(const SavedContentsKeyMissing&, const SavedContentsKeyMissing&) = default;
    };
    struct SavedContentsNotRestored {
        static constexpr std::string_view caseName = "savedContentsNotRestored";
        std::string name;
        friend bool operator==(const SavedContentsNotRestored&, const SavedContentsNotRestored&) = default;
    };
    struct RedirectTaken {
        static constexpr std::string_view caseName = "redirectTaken";
        std::string folder;
        std::string by;
        friend bool operator==(const RedirectTaken&, const RedirectTaken&) = default;
    };
    struct RedirectNameTaken {
        static constexpr std::string_view caseName = "redirectNameTaken";
        std::string name;
        friend bool operator==(const RedirectNameTaken&, const RedirectNameTaken&) = default;
    };
    struct NewSizeTooSmall {
        static constexpr std::string_view caseName = "newSizeTooSmall";
        ByteCount minimum;
        friend bool operator==(const NewSizeTooSmall&, const NewSizeTooSmall&) = default;
    };
    struct ResizeFailed {
        static constexpr std::string_view caseName = "resizeFailed";
        std::string reason;
        /// Where the files were saved before the disk was made anew, when they were.
        std::optional<std::filesystem::path> savedImage;
        friend bool operator==(const ResizeFailed&, const ResizeFailed&) = default;
    };
    struct NotEnoughSpaceForBenchmark {
        static constexpr std::string_view caseName = "notEnoughSpaceForBenchmark";
        ByteCount needed;
        friend bool operator==(const NotEnoughSpaceForBenchmark&,
                               const NotEnoughSpaceForBenchmark&) = default;
    };
    struct EraseFailed {
        static constexpr std::string_view caseName = "eraseFailed";
        std::string reason;
        friend bool operator==(const EraseFailed&, const EraseFailed&) = default;
    };
    struct TemplateNotFound {
        static constexpr std::string_view caseName = "templateNotFound";
        std::string name;
        friend bool operator==(const TemplateNotFound&, const TemplateNotFound&) = default;
    };
    struct BuiltInTemplate {
        static constexpr std::string_view caseName = "builtInTemplate";
        std::string name;
        friend bool operator==(const BuiltInTemplate&, const BuiltInTemplate&) = default;
    };
    struct FolderNotCreated {
        static constexpr std::string_view caseName = "folderNotCreated";
        std::string folder;
        std::string reason;
        friend bool operator==(const FolderNotCreated&, const FolderNotCreated&) = default;
    };
    struct BeingFilled {
        static constexpr std::string_view caseName = "beingFilled";
        std::string name;
        friend bool operator==(const BeingFilled&, const BeingFilled&) = default;
    };
    struct PartlyFilled {
        static constexpr std::string_view caseName = "partlyFilled";
        std::string name;
        friend bool operator==(const PartlyFilled&, const PartlyFilled&) = default;
    };
    struct IncorrectPassphrase {
        static constexpr std::string_view caseName = "incorrectPassphrase";
        friend bool operator==(const IncorrectPassphrase&, const IncorrectPassphrase&) = default;
    };
    struct FilesKeptChanging {
        static constexpr std::string_view caseName = "filesKeptChanging";
        friend bool operator==(const FilesKeptChanging&, const FilesKeptChanging&) = default;
    };
    struct TemplateNameMissing {
        static constexpr std::string_view caseName = "templateNameMissing";
        friend bool operator==(const TemplateNameMissing&, const TemplateNameMissing&) = default;
    };
    struct ImageEjected {
        static constexpr std::string_view caseName = "imageEjected";
        friend bool operator==(const ImageEjected&, const ImageEjected&) = default;
    };
    struct DiskEjected {
        static constexpr std::string_view caseName = "diskEjected";
        friend bool operator==(const DiskEjected&, const DiskEjected&) = default;
    };
    struct ImageUnreadable {
        static constexpr std::string_view caseName = "imageUnreadable";
        friend bool operator==(const ImageUnreadable&, const ImageUnreadable&) = default;
    };
    struct NamesMerged {
        static constexpr std::string_view caseName = "namesMerged";
        friend bool operator==(const NamesMerged&, const NamesMerged&) = default;
    };
    struct ImageOpenAlready {
        static constexpr std::string_view caseName = "imageOpenAlready";
        friend bool operator==(const ImageOpenAlready&, const ImageOpenAlready&) = default;
    };
    struct ImageStateUnknown {
        static constexpr std::string_view caseName = "imageStateUnknown";
        friend bool operator==(const ImageStateUnknown&, const ImageStateUnknown&) = default;
    };
    struct ImageLeftOpen {
        static constexpr std::string_view caseName = "imageLeftOpen";
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
    [[nodiscard]] std::string_view caseName() const { return nameOfCase(value_); }

    /// The case's name, for logs and debuggers.
    [[nodiscard]] const char* what() const noexcept override { return caseName().data(); }

    friend bool operator==(const RamDiskError& left, const RamDiskError& right) {
        return left.value_ == right.value_;
    }

private:
    Case value_;
};

} // namespace ramdisk
