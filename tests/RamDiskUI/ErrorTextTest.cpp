#include "RamDiskUI/ErrorText.h"

#include <gtest/gtest.h>

#include <set>
#include <stdexcept>

namespace ramdisk {
namespace {

using Error = RamDiskError;
using Issue = ValidationIssue;

const DeviceIdentifier disk5 = DeviceIdentifier::wholeDisk(5);
const RamDiskReference reference = RamDiskReference::parse("RAMDisk");
constexpr ByteCount size = ByteCount::of(1536, ByteCount::Unit::mebibyte);

TEST(ErrorTextTest, EveryErrorHasItsNameAndItsWords) {
    struct Row {
        Error error;
        const char* name;
        const char* text;
    };
    const std::vector<Row> rows{
        {Error::InvalidSpecification{{{Issue::EmptyName{}}, {Issue::TooManyFolders{32}}}},
         "invalidSpecification", "Enter a name for the RAM disk.\nA disk makes 32 folders at most."},
        {Error::NotFound{reference}, "notFound", "No RAM disk matches “RAMDisk”."},
        {Error::AmbiguousReference{reference, {disk5}}, "ambiguousReference",
         "“RAMDisk” matches several RAM disks."},
        {Error::AllocationFailed{"R"}, "allocationFailed", "Could not allocate memory for the RAM disk: R"},
        {Error::FormattingFailed{"R"}, "formattingFailed", "Could not format the RAM disk: R"},
        {Error::EjectFailed{disk5, "R"}, "ejectFailed", "The disk is in use: R"},
        {Error::InventoryUnavailable{"R"}, "inventoryUnavailable", "Could not read the list of RAM disks: R"},
        {Error::NotMounted{disk5}, "notMounted", "disk5 is not mounted."},
        {Error::ContentsTransferFailed{"R"}, "contentsTransferFailed", "Could not copy the contents: R"},
        {Error::SavedContentsKeyMissing{"N"}, "savedContentsKeyMissing",
         "The key for the saved contents of “N” is missing from the keychain."},
        {Error::SavedContentsNotRestored{"N"}, "savedContentsNotRestored",
         "The saved files of “N” were not put back on it, so they are not saved over. Try again, or keep the "
         "current files, in the main window."},
        {Error::RedirectTaken{"F", "N"}, "redirectTaken", "It is already kept on “N”."},
        {Error::RedirectNameTaken{"N"}, "redirectNameTaken",
         "Another folder kept on this disk is also named “N”: rename one of them first."},
        {Error::NewSizeTooSmall{size}, "newSizeTooSmall", "The files on the disk need at least 1.5 GB."},
        {Error::ResizeFailed{"R", "/image"}, "resizeFailed",
         "Could not resize the RAM disk: R The files are kept on this Mac, and the main window offers to put "
         "them "
         "back."},
        {Error::NotEnoughSpaceForBenchmark{size}, "notEnoughSpaceForBenchmark",
         "Measuring the speed needs 1.5 GB of free space."},
        {Error::EraseFailed{"R"}, "eraseFailed", "Could not delete the files: R"},
        {Error::TemplateNotFound{"N"}, "templateNotFound", "There is no template named “N”."},
        {Error::BuiltInTemplate{"N"}, "builtInTemplate", "“N” is built in and cannot be removed."},
        {Error::FolderNotCreated{"F", "R"}, "folderNotCreated", "The folder “F” could not be made: R"},
        {Error::BeingFilled{"N"}, "beingFilled",
         "Saved files are still being copied onto “N”. Try again when that is done."},
        {Error::PartlyFilled{"N"}, "partlyFilled",
         "Only part of the saved files are on “N”, which could not be ejected. Eject it before using it."},
        {Error::IncorrectPassphrase{}, "incorrectPassphrase", "The password is incorrect."},
        {Error::FilesKeptChanging{}, "filesKeptChanging",
         "Files on the disk kept changing while they were copied. Quit the apps that write to it and try "
         "again."},
        {Error::TemplateNameMissing{}, "templateNameMissing", "Give the template a name."},
        {Error::ImageEjected{}, "imageEjected",
         "The disk image was ejected before all its files were copied."},
        {Error::DiskEjected{}, "diskEjected",
         "The RAM disk was ejected before all its files were saved. The copy saved before is kept."},
        {Error::ImageUnreadable{}, "imageUnreadable", "The disk image holds no volume that can be read."},
        {Error::NamesMerged{}, "namesMerged",
         "The new disk took the names of some files for one another, so not all of them could be kept."},
        {Error::ImageOpenAlready{}, "imageOpenAlready",
         "The disk image is open already. Eject it, then try again."},
        {Error::ImageStateUnknown{}, "imageStateUnknown",
         "Whether the disk image is open already could not be told. Try again in a moment."},
        {Error::ImageLeftOpen{}, "imageLeftOpen",
         "The disk image could not be closed after its files were copied. Eject it in Finder or Disk "
         "Utility."},
    };
    EXPECT_EQ(rows.size(), std::variant_size_v<Error::Case>);
    for (const auto& row : rows) {
        EXPECT_EQ(row.error.caseName(), row.name);
        EXPECT_EQ(errorText(row.error), row.text);
        EXPECT_EQ(errorText(static_cast<const std::exception&>(row.error)), row.text);
    }
    EXPECT_EQ(errorText(Error(Error::ResizeFailed{"R", std::nullopt})), "Could not resize the RAM disk: R");
}

TEST(ErrorTextTest, EveryIssueHasItsNameAndItsWords) {
    struct Row {
        Issue::Case issue;
        const char* name;
        Issue::Field field;
        const char* text;
    };
    using Field = Issue::Field;
    const std::vector<Row> rows{
        {Issue::ForbiddenCharacter{":"}, "forbiddenCharacter", Field::name, "The name must not contain “:”."},
        {Issue::NameTooLong{255, FileSystem::apfsCaseSensitive}, "nameTooLong", Field::name,
         "APFS-CS volume names are limited to 255 characters."},
        {Issue::NameInUse{"N"}, "nameInUse", Field::name, "A volume named “N” is already mounted."},
        {Issue::NameOfStartupDisk{"N"}, "nameOfStartupDisk", Field::name,
         "“N” is the name of a disk RamDisk creates at launch. Choose another name."},
        {Issue::BelowMinimumSize{minimumSize(FileSystem::journaledHFSPlus), FileSystem::journaledHFSPlus},
         "belowMinimumSize", Field::size, "JHFS+ needs at least 16 MB."},
        {Issue::ExceedsPhysicalMemory{size, ByteCount{1024}}, "exceedsPhysicalMemory", Field::size,
         "1.5 GB exceeds the installed memory (1 KB)."},
        {Issue::ExceedsAvailableMemory{ByteCount{0}}, "exceedsAvailableMemory", Field::size,
         "Only 0 bytes is free right now. Filling the disk will push apps into swap."},
        {Issue::ExceedsRecommendedShare{0.75}, "exceedsRecommendedShare", Field::size,
         "That is more than 75% of the installed memory."},
        {Issue::EncryptionUnsupported{FileSystem::exFAT}, "encryptionUnsupported", Field::fileSystem,
         "ExFAT can’t be encrypted. Choose APFS or turn encryption off."},
        {Issue::InvalidFolder{".."}, "invalidFolder", Field::folders,
         "“..” is not a folder to make on the disk. Give a path below its top folder, like Temp or "
         "Cache/Chrome."},
        {Issue::TooManyFolders{32}, "tooManyFolders", Field::folders, "A disk makes 32 folders at most."},
        {Issue::EmptyName{}, "emptyName", Field::name, "Enter a name for the RAM disk."},
        {Issue::NameStartsWithDot{}, "nameStartsWithDot", Field::name, "The name must not start with a dot."},
        {Issue::NameStartsWithHyphen{}, "nameStartsWithHyphen", Field::name,
         "The name must not start with a hyphen."},
    };
    EXPECT_EQ(rows.size(), std::variant_size_v<Issue::Case>);
    std::set<std::string_view> warnings;
    for (const auto& row : rows) {
        const Issue issue{row.issue};
        EXPECT_EQ(issue.caseName(), row.name);
        EXPECT_EQ(issue.field(), row.field) << row.name;
        EXPECT_EQ(issueText(issue), row.text);
        EXPECT_EQ(warningText({CreationWarning::Validation{issue}}), row.text);
        if (issue.severity() == Issue::Severity::warning) {
            warnings.insert(row.name);
        }
    }
    EXPECT_EQ(warnings, (std::set<std::string_view>{"exceedsAvailableMemory", "exceedsRecommendedShare"}));
    EXPECT_EQ(warningText({CreationWarning::IndexingNotDisabled{"R"}}),
              "Spotlight indexing could not be disabled: R");
}

TEST(ErrorTextTest, AdviceWhereThereIsSome) {
    EXPECT_EQ(recoverySuggestion(Error::AmbiguousReference{reference, {disk5}}),
              "Run `tramdisk list` to see device names.");
    EXPECT_EQ(recoverySuggestion(Error::EjectFailed{disk5, "R", EjectObstacle::busy}),
              "Close files and apps using the disk, or force the eject.");
    EXPECT_EQ(recoverySuggestion(Error::EjectFailed{disk5, "R", EjectObstacle::other}), std::nullopt);
    EXPECT_EQ(recoverySuggestion(Error::NotFound{reference}), std::nullopt);
}

TEST(ErrorTextTest, OtherErrorsSpeakForThemselves) {
    EXPECT_EQ(errorText(std::runtime_error("no such file")), "no such file");
    const ByteCountParsingError parsing(ByteCountParsingError::Empty{});
    EXPECT_EQ(errorText(static_cast<const std::exception&>(parsing)), "Size must not be empty.");
}

} // namespace
} // namespace ramdisk
