#include "RamDiskUI/ErrorText.h"

#include "RamDiskInfrastructure/Stores/CacheFolders.h"
#include "tests/support/Testing.h"

namespace ramdisk {
namespace {

using Error = RamDiskError;
using Issue = ValidationIssue;
using ::testing::AnyOf;
using ::testing::HasSubstr;

const DeviceIdentifier disk5 = DeviceIdentifier::wholeDisk(5);
/// Stands for every text that an error carries.
const std::string why = "Why.";
const RamDiskReference reference = RamDiskReference::parse(why);
constexpr ByteCount size = ByteCount::of(1536, ByteCount::Unit::mebibyte);

template <typename Value, typename... Cases>
std::vector<Value> all(Cases... cases) {
    return {Value(std::move(cases))...};
}

const auto errors = all<Error>(
    Error::InvalidSpecification{{{Issue::InvalidFolder{why}}}}, Error::NotFound{reference},
    Error::AmbiguousReference{reference, {disk5}}, Error::AllocationFailed{why}, Error::FormattingFailed{why},
    Error::EjectFailed{disk5, why}, Error::InventoryUnavailable{why}, Error::NotMounted{disk5},
    Error::ContentsTransferFailed{why}, Error::SavedContentsKeyMissing{why},
    Error::SavedContentsNotRestored{why}, Error::RedirectTaken{"F", why}, Error::RedirectNameTaken{why},
    Error::NewSizeTooSmall{size}, Error::ResizeFailed{why, std::nullopt},
    Error::NotEnoughSpaceForBenchmark{size}, Error::EraseFailed{why}, Error::TemplateNotFound{why},
    Error::BuiltInTemplate{why}, Error::FolderNotCreated{"F", why}, Error::BeingFilled{why},
    Error::PartlyFilled{why}, Error::IncorrectPassphrase{}, Error::FilesKeptChanging{},
    Error::TemplateNameMissing{}, Error::ImageEjected{}, Error::DiskEjected{}, Error::ImageUnreadable{why},
    Error::NamesMerged{}, Error::ImageOpenAlready{}, Error::ImageStateUnknown{why}, Error::ImageLeftOpen{});
const auto issues =
    all<Issue::Case>(Issue::ForbiddenCharacter{why}, Issue::NameTooLong{255, FileSystem::apfsCaseSensitive},
                     Issue::NameInUse{why}, Issue::NameOfStartupDisk{why},
                     Issue::BelowMinimumSize{size, FileSystem::journaledHFSPlus},
                     Issue::ExceedsPhysicalMemory{size, ByteCount{1024}}, Issue::ExceedsAvailableMemory{size},
                     Issue::ExceedsRecommendedShare{0.7599}, Issue::EncryptionUnsupported{FileSystem::exFAT},
                     Issue::InvalidFolder{why}, Issue::TooManyFolders{32}, Issue::EmptyName{},
                     Issue::NameStartsWithDot{}, Issue::NameStartsWithHyphen{});

/// A text is made of whole sentences, tells what its case carries and has nothing left to fill in.
void expectSentence(const std::string& text, bool isWithoutPayload) {
    EXPECT_GT(text.size(), 20U) << text;
    EXPECT_NE(std::string_view(".?!").find(text.back()), std::string_view::npos) << text;
    EXPECT_EQ(text.find_first_of("{}\""), std::string::npos) << text;
    if (!isWithoutPayload) {
        EXPECT_THAT(text, AnyOf(HasSubstr(why), HasSubstr("1.5 GB"), HasSubstr("disk5"), HasSubstr("255"),
                                HasSubstr("75%"), HasSubstr("ExFAT"), HasSubstr("32")));
    }
}

template <typename Case>
bool isWithoutPayload(const Case& value) {
    return std::visit([](const auto& one) { return std::is_empty_v<std::decay_t<decltype(one)>>; }, value);
}

TEST(ErrorTextTest, EveryCaseHasItsNameAndASentenceOfItsOwn) {
    std::string names;
    std::set<std::string> texts;
    for (const auto& error : errors) {
        names.append(error.caseName()).append(" ");
        expectSentence(errorText(error), isWithoutPayload(error.value()));
        EXPECT_TRUE(texts.insert(errorText(error)).second) << errorText(error);
    }
    EXPECT_EQ(
        names,
        "invalidSpecification notFound ambiguousReference allocationFailed formattingFailed ejectFailed "
        "inventoryUnavailable notMounted contentsTransferFailed savedContentsKeyMissing "
        "savedContentsNotRestored redirectTaken redirectNameTaken newSizeTooSmall resizeFailed "
        "notEnoughSpaceForBenchmark eraseFailed templateNotFound builtInTemplate folderNotCreated "
        "beingFilled partlyFilled incorrectPassphrase filesKeptChanging templateNameMissing "
        "imageEjected diskEjected imageUnreadable namesMerged imageOpenAlready imageStateUnknown "
        "imageLeftOpen ");
    EXPECT_EQ(errors.size(), std::variant_size_v<Error::Case>);

    names.clear();
    for (const auto& issue : issues) {
        const Issue one{issue};
        names.append(one.caseName()).append(":").append(rawValue(one.field()));
        names.append(one.severity() == Issue::Severity::warning ? ":warning " : " ");
        expectSentence(issueText(one), isWithoutPayload(issue));
        EXPECT_EQ(warningText({CreationWarning::Validation{one}}), issueText(one));
    }
    EXPECT_EQ(names,
              "forbiddenCharacter:name nameTooLong:name nameInUse:name nameOfStartupDisk:name "
              "belowMinimumSize:size exceedsPhysicalMemory:size exceedsAvailableMemory:size:warning "
              "exceedsRecommendedShare:size:warning encryptionUnsupported:fileSystem invalidFolder:folders "
              "tooManyFolders:folders emptyName:name nameStartsWithDot:name nameStartsWithHyphen:name ");
    EXPECT_EQ(issues.size(), std::variant_size_v<Issue::Case>);
}

TEST(ErrorTextTest, TextsAreComposedOfTheirParts) {
    const std::pair<Issue::Case, const char*> rows[] = {
        {issues[1], "APFS-CS volume names are limited to 255 characters."},
        {issues[4], "JHFS+ needs at least 1.5 GB."},
        {issues[5], "1.5 GB exceeds the installed memory (1 KB)."},
        {issues[7], "That is more than 75% of the installed memory."},
        {issues[8], "ExFAT can’t be encrypted. Choose APFS or turn encryption off."},
    };
    for (const auto& [issue, text] : rows) {
        EXPECT_EQ(issueText({issue}), text);
    }
    EXPECT_EQ(errorText(Error::InvalidSpecification{{{Issue::EmptyName{}}, {Issue::TooManyFolders{32}}}}),
              "Enter a name for the RAM disk.\nA disk makes 32 folders at most.");
    EXPECT_EQ(errorText(Error::FolderNotCreated{"F", "R"}), "The folder “F” could not be made: R");
    EXPECT_EQ(errorText(Error::ResizeFailed{"R.", "/image"}),
              homeLayout() == HomeLayout::library
                  ? "Could not resize the RAM disk: R. The files are kept on this Mac, and the main window "
                    "offers to put them back."
                  : "Could not resize the RAM disk: R. The files are kept on this computer.");
    EXPECT_EQ(warningText({CreationWarning::IndexingNotDisabled{"R"}}),
              homeLayout() == HomeLayout::library ? "Spotlight indexing could not be disabled: R"
                                                  : "Search indexing could not be disabled: R");
}

TEST(ErrorTextTest, AdviceIsGivenWhereThereIsSomeAndOtherErrorsSpeakForThemselves) {
    for (const auto& error : errors) {
        EXPECT_EQ(recoverySuggestion(error).has_value(), error.caseName() == "ambiguousReference");
    }
    EXPECT_EQ(recoverySuggestion(Error::EjectFailed{disk5, "R", EjectObstacle::busy}),
              "Close files and apps using the disk, or force the eject.");
    const auto textOf = [](const std::exception& error) { return errorText(error); };
    EXPECT_EQ(textOf(std::runtime_error("no such file")), "no such file");
    EXPECT_EQ(textOf(Error(Error::NotMounted{disk5})), "disk5 is not mounted.");
    EXPECT_EQ(textOf(ByteCountParsingError(ByteCountParsingError::Empty{})), "Size must not be empty.");
}

} // namespace
} // namespace ramdisk
