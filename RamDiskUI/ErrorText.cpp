#include "RamDiskUI/ErrorText.h"

#include "RamDiskCore/Ports/ContentArchiving.h"
#include "RamDiskCore/Values/ByteCountFormat.h"
#include "RamDiskUI/PlatformWords.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <iterator>
#include <vector>

namespace ramdisk {

namespace {

using Error = RamDiskError;
using Issue = ValidationIssue;

struct IssueText {
    std::string operator()(const Issue::ForbiddenCharacter& issue) const {
        return fmt::format("The name must not contain “{}”.", issue.character);
    }
    std::string operator()(const Issue::NameTooLong& issue) const {
        return fmt::format("{} volume names are limited to {} characters.", shortLabel(issue.fileSystem),
                           issue.limit);
    }
    std::string operator()(const Issue::NameInUse& issue) const {
        return fmt::format("A volume named “{}” is already mounted.", issue.name);
    }
    std::string operator()(const Issue::NameOfStartupDisk& issue) const {
        return fmt::format("“{}” is the name of a disk RamDisk creates at launch. Choose another name.",
                           issue.name);
    }
    std::string operator()(const Issue::BelowMinimumSize& issue) const {
        return fmt::format("{} needs at least {}.", shortLabel(issue.fileSystem), format(issue.minimum));
    }
    std::string operator()(const Issue::ExceedsPhysicalMemory& issue) const {
        return fmt::format("{} exceeds the installed memory ({}).", format(issue.size),
                           format(issue.physical));
    }
    std::string operator()(const Issue::ExceedsAvailableMemory& issue) const {
        return fmt::format("Only {} is free right now. Filling the disk will push apps into swap.",
                           format(issue.available));
    }
    std::string operator()(const Issue::ExceedsRecommendedShare& issue) const {
        return fmt::format("That is more than {}% of the installed memory.",
                           static_cast<int>(issue.share * 100));
    }
    std::string operator()(const Issue::EncryptionUnsupported& issue) const {
        return fmt::format("{} can’t be encrypted. Choose APFS or turn encryption off.",
                           displayName(issue.fileSystem));
    }
    std::string operator()(const Issue::InvalidFolder& issue) const {
        return fmt::format("“{}” is not a folder to make on the disk. Give a path below its top folder, like "
                           "Temp or Cache/Chrome.",
                           issue.folder);
    }
    std::string operator()(const Issue::TooManyFolders& issue) const {
        return fmt::format("A disk makes {} folders at most.", issue.limit);
    }
    std::string operator()(const Issue::EmptyName&) const { return "Enter a name for the RAM disk."; }
    std::string operator()(const Issue::NameStartsWithDot&) const {
        return "The name must not start with a dot.";
    }
    std::string operator()(const Issue::NameStartsWithHyphen&) const {
        return "The name must not start with a hyphen.";
    }
};

struct ErrorText {
    std::string operator()(const Error::InvalidSpecification& error) const {
        return fmt::format("{}", fmt::join(errorSentences(error), "\n"));
    }
    std::string operator()(const Error::NotFound& error) const {
        return fmt::format("No RAM disk matches “{}”.", error.reference.text());
    }
    std::string operator()(const Error::AmbiguousReference& error) const {
        return fmt::format("“{}” matches several RAM disks.", error.reference.text());
    }
    std::string operator()(const Error::AllocationFailed& error) const {
        return "Could not allocate memory for the RAM disk: " + error.reason;
    }
    std::string operator()(const Error::FormattingFailed& error) const {
        return "Could not format the RAM disk: " + error.reason;
    }
    std::string operator()(const Error::EjectFailed& error) const {
        return "The disk is in use: " + error.reason;
    }
    std::string operator()(const Error::InventoryUnavailable& error) const {
        return "Could not read the list of RAM disks: " + error.reason;
    }
    std::string operator()(const Error::NotMounted& error) const {
        return error.device.bsdName() + " is not mounted.";
    }
    std::string operator()(const Error::ContentsTransferFailed& error) const {
        return "Could not copy the contents: " + error.reason;
    }
    std::string operator()(const Error::SavedContentsKeyMissing& error) const {
        return fmt::format("The key for the saved contents of “{}” is missing from {}.", error.name,
                           withPlatformWords("the keychain"));
    }
    std::string operator()(const Error::SavedContentsNotRestored& error) const {
        return fmt::format("The saved files of “{}” were not put back on it, so they are not saved over.{}",
                           error.name,
                           withPlatformWords(" Try again, or keep the current files, in the main window."));
    }
    std::string operator()(const Error::RedirectTaken& error) const {
        return fmt::format("It is already kept on “{}”.", error.by);
    }
    std::string operator()(const Error::RedirectNameTaken& error) const {
        return fmt::format("Another folder kept on this disk is also named “{}”: rename one of them first.",
                           error.name);
    }
    std::string operator()(const Error::NewSizeTooSmall& error) const {
        return fmt::format("The files on the disk need at least {}.", format(error.minimum));
    }
    std::string operator()(const Error::ResizeFailed& error) const {
        static const auto kept = withPlatformWords(
            " The files are kept on this Mac, and the main window offers to put them back.");
        return "Could not resize the RAM disk: " + error.reason + (error.savedImage ? kept : "");
    }
    std::string operator()(const Error::NotEnoughSpaceForBenchmark& error) const {
        return fmt::format("Measuring the speed needs {} of free space.", format(error.needed));
    }
    std::string operator()(const Error::EraseFailed& error) const {
        return "Could not delete the files: " + error.reason;
    }
    std::string operator()(const Error::TemplateNotFound& error) const {
        return fmt::format("There is no template named “{}”.", error.name);
    }
    std::string operator()(const Error::BuiltInTemplate& error) const {
        return fmt::format("“{}” is built in and cannot be removed.", error.name);
    }
    std::string operator()(const Error::FolderNotCreated& error) const {
        return fmt::format("The folder “{}” could not be made: {}", error.folder, error.reason);
    }
    std::string operator()(const Error::BeingFilled& error) const {
        return fmt::format("Saved files are still being copied onto “{}”. Try again when that is done.",
                           error.name);
    }
    std::string operator()(const Error::PartlyFilled& error) const {
        return fmt::format("Only part of the saved files are on “{}”, which could not be ejected. Eject it "
                           "before using it.",
                           error.name);
    }
    std::string operator()(const Error::IncorrectPassphrase&) const {
        return withPlatformWords("The password is incorrect.");
    }
    std::string operator()(const Error::FilesKeptChanging&) const {
        return "Files on the disk kept changing while they were copied. Quit the apps that write to it and "
               "try "
               "again.";
    }
    std::string operator()(const Error::TemplateNameMissing&) const { return "Give the template a name."; }
    std::string operator()(const Error::ImageEjected&) const {
        return "The disk image was ejected before all its files were copied.";
    }
    std::string operator()(const Error::DiskEjected&) const {
        return "The RAM disk was ejected before all its files were saved. The copy saved before is kept.";
    }
    std::string operator()(const Error::ImageUnreadable& error) const {
        constexpr const char* text = "The disk image holds no volume that can be read";
        return error.reason.empty() ? fmt::format("{}.", text) : fmt::format("{}: {}", text, error.reason);
    }
    std::string operator()(const Error::NamesMerged&) const {
        return "The new disk took the names of some files for one another, so not all of them could be kept.";
    }
    std::string operator()(const Error::ImageOpenAlready&) const {
        return "The disk image is open already. Eject it, then try again.";
    }
    std::string operator()(const Error::ImageStateUnknown& error) const {
        constexpr const char* text = "Whether the disk image is open already could not be told";
        return fmt::format("{}{}{}. Try again in a moment.", text, error.reason.empty() ? "" : ": ",
                           error.reason);
    }
    std::string operator()(const Error::ImageLeftOpen&) const {
        return withPlatformWords(
            "The disk image could not be closed after its files were copied. Eject it in Finder or Disk "
            "Utility.");
    }
};

struct ParsingErrorText {
    std::string operator()(const ByteCountParsingError::Malformed& error) const {
        return fmt::format("“{}” is not a valid size. Use values like 512M, 2G or 1.5GB.", error.text);
    }
    std::string operator()(const ByteCountParsingError::UnknownUnit& error) const {
        return fmt::format("Unknown size unit “{}”. Use K, M, G or T.", error.unit);
    }
    std::string operator()(const ByteCountParsingError::TooLarge& error) const {
        return fmt::format("“{}” is too large.", error.text);
    }
    std::string operator()(const ByteCountParsingError::Empty&) const { return "Size must not be empty."; }
};

struct WarningText {
    std::string operator()(const CreationWarning::Validation& warning) const {
        return issueText(warning.issue);
    }
    std::string operator()(const CreationWarning::IndexingNotDisabled& warning) const {
        return withPlatformWords("Spotlight indexing could not be disabled: ") + warning.reason;
    }
};

} // namespace

std::string errorText(const RamDiskError& error) {
    return std::visit(ErrorText{}, error.value());
}

std::vector<std::string> errorSentences(const RamDiskError& error) {
    const auto* invalid = std::get_if<Error::InvalidSpecification>(&error.value());
    if (invalid == nullptr) {
        return {errorText(error)};
    }
    std::vector<std::string> texts;
    std::transform(invalid->issues.begin(), invalid->issues.end(), std::back_inserter(texts), issueText);
    return texts;
}

std::string errorText(const ByteCountParsingError& error) {
    return std::visit(ParsingErrorText{}, error.value());
}

std::string errorText(const std::exception& error) {
    if (const auto* ours = dynamic_cast<const RamDiskError*>(&error)) {
        return errorText(*ours);
    }
    if (const auto* ours = dynamic_cast<const ByteCountParsingError*>(&error)) {
        return errorText(*ours);
    }
    return error.what();
}

std::optional<std::string> recoverySuggestion(const RamDiskError& error) {
    if (std::holds_alternative<Error::AmbiguousReference>(error.value())) {
        return "Run `tramdisk list` to see device names.";
    }
    if (dynamic_cast<const SomeFilesDamaged*>(&error) != nullptr) {
        return "`tramdisk load REF --copy N` puts an earlier copy on the disk. `tramdisk save REF "
               "--keep-current` makes what is on it now the saved files.";
    }
    const auto* eject = std::get_if<Error::EjectFailed>(&error.value());
    if (eject != nullptr && eject->obstacle == EjectObstacle::busy) {
        return "Close files and apps using the disk, or force the eject.";
    }
    return std::nullopt;
}

std::string issueText(const ValidationIssue& issue) {
    return std::visit(IssueText{}, issue.value);
}

std::string failureText(const RedirectFailure& failure) {
    const auto* const error = std::get_if<RamDiskError>(&failure.message);
    return error != nullptr ? errorText(*error) : std::get<std::string>(failure.message);
}

std::string warningText(const CreationWarning& warning) {
    return std::visit(WarningText{}, warning.value);
}

} // namespace ramdisk
