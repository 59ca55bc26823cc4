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

/// Every failure of a disk operation. The sentence that users read comes from `errorText`; a `reason` is
/// the text of the underlying failure and is inserted there as it is.
class RamDiskError : public std::exception {
public:
    /// A request for a disk, a new name or a list of folders broke a rule, before anything was changed.
    struct InvalidSpecification {
        static constexpr std::string_view caseName = "invalidSpecification";
        std::vector<ValidationIssue> issues;
        friend bool operator==(const InvalidSpecification&, const InvalidSpecification&) = default;
    };
    /// No disk is what was asked for; also when a disk that was just made is not listed.
    struct NotFound {
        static constexpr std::string_view caseName = "notFound";
        RamDiskReference reference;
        friend bool operator==(const NotFound&, const NotFound&) = default;
    };
    /// Several disks are what was asked for, and none of them was touched.
    struct AmbiguousReference {
        static constexpr std::string_view caseName = "ambiguousReference";
        RamDiskReference reference;
        std::vector<DeviceIdentifier> matches;
        friend bool operator==(const AmbiguousReference&, const AmbiguousReference&) = default;
    };
    /// No device could be had for a new disk. Nothing is left of it.
    struct AllocationFailed {
        static constexpr std::string_view caseName = "allocationFailed";
        std::string reason;
        friend bool operator==(const AllocationFailed&, const AllocationFailed&) = default;
    };
    /// The machine cannot lay the format, or laying, mounting or marking it failed.
    struct FormattingFailed {
        static constexpr std::string_view caseName = "formattingFailed";
        std::string reason;
        friend bool operator==(const FormattingFailed&, const FormattingFailed&) = default;
    };
    /// A disk could not be ejected, or not quite: it is still there, or its memory is.
    struct EjectFailed {
        static constexpr std::string_view caseName = "ejectFailed";
        DeviceIdentifier device;
        std::string reason;
        EjectObstacle obstacle = EjectObstacle::other;
        friend bool operator==(const EjectFailed&, const EjectFailed&) = default;
    };
    /// The disks could not be listed.
    struct InventoryUnavailable {
        static constexpr std::string_view caseName = "inventoryUnavailable";
        std::string reason;
        friend bool operator==(const InventoryUnavailable&, const InventoryUnavailable&) = default;
    };
    /// The disk has no mounted volume, which the operation needs.
    struct NotMounted {
        static constexpr std::string_view caseName = "notMounted";
        DeviceIdentifier device;
        friend bool operator==(const NotMounted&, const NotMounted&) = default;
    };
    /// Saving or restoring files failed; the saved copies are as they were.
    struct ContentsTransferFailed {
        static constexpr std::string_view caseName = "contentsTransferFailed";
        std::string reason;
        friend bool operator==(const ContentsTransferFailed&, const ContentsTransferFailed&) = default;
    };
    /// The saved copy is encrypted, and its passphrase is not in the secret store.
    struct SavedContentsKeyMissing {
        static constexpr std::string_view caseName = "savedContentsKeyMissing";
        std::string name;
        friend bool operator==(const SavedContentsKeyMissing&, const SavedContentsKeyMissing&) = default;
    };
    /// A save was refused: the saved files were never put onto this disk, and would be replaced by less.
    struct SavedContentsNotRestored {
        static constexpr std::string_view caseName = "savedContentsNotRestored";
        std::string name;
        friend bool operator==(const SavedContentsNotRestored&, const SavedContentsNotRestored&) = default;
    };
    /// Another disk, or another redirect, has the folder already.
    struct RedirectTaken {
        static constexpr std::string_view caseName = "redirectTaken";
        std::string folder;
        std::string by;
        friend bool operator==(const RedirectTaken&, const RedirectTaken&) = default;
    };
    /// Another redirect to the same disk has a folder of this name on it.
    struct RedirectNameTaken {
        static constexpr std::string_view caseName = "redirectNameTaken";
        std::string name;
        friend bool operator==(const RedirectNameTaken&, const RedirectNameTaken&) = default;
    };
    /// A smaller size was asked for than what is on the disk needs.
    struct NewSizeTooSmall {
        static constexpr std::string_view caseName = "newSizeTooSmall";
        ByteCount minimum;
        friend bool operator==(const NewSizeTooSmall&, const NewSizeTooSmall&) = default;
    };
    /// A disk could not be made anew in another size.
    struct ResizeFailed {
        static constexpr std::string_view caseName = "resizeFailed";
        std::string reason;
        /// Where the files were saved before the disk was made anew, when they were.
        std::optional<std::filesystem::path> savedImage;
        friend bool operator==(const ResizeFailed&, const ResizeFailed&) = default;
    };
    /// The disk has too little room for the files of a measurement.
    struct NotEnoughSpaceForBenchmark {
        static constexpr std::string_view caseName = "notEnoughSpaceForBenchmark";
        ByteCount needed;
        friend bool operator==(const NotEnoughSpaceForBenchmark&,
                               const NotEnoughSpaceForBenchmark&) = default;
    };
    /// The files of a disk could not be deleted, or not all of them.
    struct EraseFailed {
        static constexpr std::string_view caseName = "eraseFailed";
        std::string reason;
        friend bool operator==(const EraseFailed&, const EraseFailed&) = default;
    };
    /// No template has this name.
    struct TemplateNotFound {
        static constexpr std::string_view caseName = "templateNotFound";
        std::string name;
        friend bool operator==(const TemplateNotFound&, const TemplateNotFound&) = default;
    };
    /// A template of this system was to be changed or deleted.
    struct BuiltInTemplate {
        static constexpr std::string_view caseName = "builtInTemplate";
        std::string name;
        friend bool operator==(const BuiltInTemplate&, const BuiltInTemplate&) = default;
    };
    /// A folder could not be made on a new disk, which stands nevertheless.
    struct FolderNotCreated {
        static constexpr std::string_view caseName = "folderNotCreated";
        std::string folder;
        std::string reason;
        friend bool operator==(const FolderNotCreated&, const FolderNotCreated&) = default;
    };
    /// A save or restore was refused: saved files are being put onto the disk.
    struct BeingFilled {
        static constexpr std::string_view caseName = "beingFilled";
        std::string name;
        friend bool operator==(const BeingFilled&, const BeingFilled&) = default;
    };
    /// A save was refused: putting the saved files onto the disk failed half-way.
    struct PartlyFilled {
        static constexpr std::string_view caseName = "partlyFilled";
        std::string name;
        friend bool operator==(const PartlyFilled&, const PartlyFilled&) = default;
    };
    /// A saved copy could not be opened with the passphrase, or without one.
    struct IncorrectPassphrase {
        static constexpr std::string_view caseName = "incorrectPassphrase";
        friend bool operator==(const IncorrectPassphrase&, const IncorrectPassphrase&) = default;
    };
    /// A save gave up: the files changed again each time they were copied.
    struct FilesKeptChanging {
        static constexpr std::string_view caseName = "filesKeptChanging";
        friend bool operator==(const FilesKeptChanging&, const FilesKeptChanging&) = default;
    };
    /// A template was to be stored without a name.
    struct TemplateNameMissing {
        static constexpr std::string_view caseName = "templateNameMissing";
        friend bool operator==(const TemplateNameMissing&, const TemplateNameMissing&) = default;
    };
    /// The saved copy is not there, or went away while it was read.
    struct ImageEjected {
        static constexpr std::string_view caseName = "imageEjected";
        friend bool operator==(const ImageEjected&, const ImageEjected&) = default;
    };
    /// The disk went away before or while its files were saved.
    struct DiskEjected {
        static constexpr std::string_view caseName = "diskEjected";
        friend bool operator==(const DiskEjected&, const DiskEjected&) = default;
    };
    /// The saved copy is damaged, or none of ours.
    struct ImageUnreadable {
        static constexpr std::string_view caseName = "imageUnreadable";
        /// What the system said of it; empty when it said nothing.
        std::string reason{};
        friend bool operator==(const ImageUnreadable&, const ImageUnreadable&) = default;
    };
    /// A restore was refused: the copy has names that the disk cannot hold beside each other.
    struct NamesMerged {
        static constexpr std::string_view caseName = "namesMerged";
        friend bool operator==(const NamesMerged&, const NamesMerged&) = default;
    };
    /// Somebody else has the saved copy open.
    struct ImageOpenAlready {
        static constexpr std::string_view caseName = "imageOpenAlready";
        friend bool operator==(const ImageOpenAlready&, const ImageOpenAlready&) = default;
    };
    /// Whether the saved copy is open elsewhere cannot be told.
    struct ImageStateUnknown {
        static constexpr std::string_view caseName = "imageStateUnknown";
        /// What the system said; empty when it said nothing.
        std::string reason{};
        friend bool operator==(const ImageStateUnknown&, const ImageStateUnknown&) = default;
    };
    /// The image could not be closed again; a new copy in it does not count.
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
