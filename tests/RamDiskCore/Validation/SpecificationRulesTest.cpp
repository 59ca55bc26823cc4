#include "RamDiskCore/Validation/SpecificationRules.h"

#include "RamDiskCore/Validation/RamDiskSpecificationValidator.h"
#include "tests/support/Testing.h"

namespace ramdisk {
namespace {

using ::testing::IsEmpty;
using Issue = ValidationIssue;
using Unit = ByteCount::Unit;

constexpr auto gibi(std::uint64_t count) {
    return ByteCount::of(count, Unit::gibibyte);
}
constexpr auto mebi(std::uint64_t count) {
    return ByteCount::of(count, Unit::mebibyte);
}
constexpr ByteCount plus(ByteCount size, std::int64_t more) {
    return ByteCount{size.bytes + static_cast<std::uint64_t>(more)};
}

ValidationContext roomyMachine() {
    return {SystemMemory{.physical = gibi(16), .available = gibi(16)},
            {"Café", "RAMDisk", "Both"},
            {"Both", "Start"}};
}

/// What all rules say of a request that is sound but for what `change` does to it.
template <typename Change>
std::vector<Issue> issuesAfter(Change change) {
    RamDiskSpecification specification{.name = "Sound"};
    auto context = roomyMachine();
    change(specification, context);
    return RamDiskSpecificationValidator().validate(specification, context).issues;
}

TEST(SpecificationRulesTest, Names) {
    struct Row {
        std::string name;
        FileSystem fileSystem;
        std::vector<Issue> issues;
    };
    const auto tooLong = [](FileSystem fileSystem, std::int64_t limit) {
        return std::vector<Issue>{{Issue::NameTooLong{limit, fileSystem}}};
    };
    const auto forbidden = [](const char* character) {
        return std::vector<Issue>{{Issue::ForbiddenCharacter{character}}};
    };
    std::string accents;
    std::string marks;
    for (int count = 0; count < 11; ++count) {
        accents += "e\u0301";
    }
    while (marks.size() < std::size_t{255} * 32) {
        marks += "\u0301";
    }
    for (const auto& row : {
             Row{"Build 2", FileSystem::apfs, {}},
             Row{" \u00A0\n", FileSystem::apfs, {{Issue::EmptyName{}}}},
             Row{"  .hidden ", FileSystem::apfs, {{Issue::NameStartsWithDot{}}}},
             Row{"-x:y", FileSystem::apfs, {{Issue::NameStartsWithHyphen{}}}},
             Row{"a:b/c", FileSystem::apfs, forbidden(":")},
             Row{"a\\b:c", FileSystem::apfs, forbidden("\\")},
             Row{"a/\u0301b", FileSystem::apfs, forbidden("/\u0301")}, // still a slash to every path
             Row{std::string(300, 'a') + "/", FileSystem::apfs, forbidden("/")},
             Row{std::string(11, 'a'), FileSystem::fat32, {}},
             Row{" " + accents + " ", FileSystem::fat32, {}},
             Row{std::string(12, 'a'), FileSystem::fat32, tooLong(FileSystem::fat32, 11)},
             Row{std::string(15, 'a'), FileSystem::exFAT, {}},
             Row{std::string(16, 'a'), FileSystem::exFAT, tooLong(FileSystem::exFAT, 15)},
             Row{std::string(255, 'a'), FileSystem::hfsPlus, {}},
             Row{std::string(256, 'a'), FileSystem::hfsPlus, tooLong(FileSystem::hfsPlus, 255)},
             Row{marks, FileSystem::hfsPlus, {}},
             Row{marks + "x", FileSystem::hfsPlus, tooLong(FileSystem::hfsPlus, 255)},
             Row{"a" + marks, FileSystem::fat32, tooLong(FileSystem::fat32, 11)}, // one character
             Row{" ramdisk ", FileSystem::apfs, {{Issue::NameInUse{"ramdisk"}}}},
             Row{"cafe", FileSystem::apfsCaseSensitive, {{Issue::NameInUse{"cafe"}}}},
             Row{"BOTH", FileSystem::apfs, {{Issue::NameInUse{"BOTH"}}}},
             Row{"stàrt", FileSystem::apfs, {{Issue::NameOfStartupDisk{"stàrt"}}}},
         }) {
        EXPECT_EQ(issuesAfter([&row](auto& specification, auto&) {
                      specification.name = row.name;
                      specification.fileSystem = row.fileSystem;
                  }),
                  row.issues)
            << row.name;
    }
}

TEST(SpecificationRulesTest, EveryFormatHasItsLeastSizeAndTheTwoModernOnesEncrypt) {
    const std::pair<FileSystem, ByteCount> rows[] = {
        {FileSystem::apfs, mebi(8)},    {FileSystem::apfsCaseSensitive, mebi(8)},
        {FileSystem::hfsPlus, mebi(4)}, {FileSystem::journaledHFSPlus, mebi(16)},
        {FileSystem::exFAT, mebi(4)},   {FileSystem::fat32, mebi(64)}};
    for (const auto& [fileSystem, minimum] : rows) {
        const auto issuesAt = [wanted = fileSystem](ByteCount size, bool isEncrypted) {
            return issuesAfter([&](auto& specification, auto&) {
                specification.fileSystem = wanted;
                specification.size = size;
                specification.isEncrypted = isEncrypted;
            });
        };
        EXPECT_THAT(issuesAt(minimum, false), IsEmpty()) << rawValue(fileSystem);
        const Issue tooSmall{Issue::BelowMinimumSize{minimum, fileSystem}};
        EXPECT_EQ(issuesAt(plus(minimum, -1), false), std::vector{tooSmall});
        if (fileSystem == FileSystem::apfs || fileSystem == FileSystem::apfsCaseSensitive) {
            EXPECT_THAT(issuesAt(minimum, true), IsEmpty());
        } else {
            const Issue noEncryption{Issue::EncryptionUnsupported{fileSystem}};
            EXPECT_EQ(issuesAt(minimum, true), std::vector{noEncryption});
        }
    }
}

TEST(SpecificationRulesTest, SizesAgainstTheMemory) {
    struct Row {
        ByteCount size;
        ByteCount available;
        std::vector<Issue> issues;
    };
    for (const auto& row : {
             Row{gibi(16), gibi(16), {{Issue::ExceedsPhysicalMemory{gibi(16), gibi(16)}}}},
             Row{plus(gibi(16), -1), gibi(16), {{Issue::ExceedsRecommendedShare{0.75}}}},
             Row{gibi(12), gibi(16), {}},
             Row{plus(gibi(12), 1), gibi(16), {{Issue::ExceedsRecommendedShare{0.75}}}},
             Row{plus(gibi(12), 1), gibi(12), {{Issue::ExceedsAvailableMemory{gibi(12)}}}},
             Row{gibi(2), gibi(2), {}},
             Row{plus(gibi(2), 1), gibi(2), {{Issue::ExceedsAvailableMemory{gibi(2)}}}},
         }) {
        EXPECT_EQ(issuesAfter([&row](auto& specification, auto& context) {
                      specification.size = row.size;
                      context.memory.available = row.available;
                  }),
                  row.issues)
            << row.size.bytes;
    }
    EXPECT_EQ(MemoryCapacityRule::recommendedLimit(ByteCount{2}).bytes, 2U); // 1.5, away from zero
    EXPECT_EQ(MemoryCapacityRule::recommendedLimit(ByteCount{3}).bytes, 2U);
    EXPECT_EQ(
        MemoryCapacityRule::recommendedLimit(ByteCount{std::numeric_limits<std::uint64_t>::max()}).bytes,
        13835058055282163712U);
}

TEST(RamDiskSpecificationValidatorTest, ReportsEveryFaultInTheOrderOfTheRules) {
    const RamDiskSpecification specification{
        .name = "ramdisk", .size = mebi(1), .fileSystem = FileSystem::exFAT, .isEncrypted = true};
    auto context = roomyMachine();
    context.memory.available = ByteCount{0};
    const auto report = RamDiskSpecificationValidator().validate(specification, context);
    const Issue inUse{Issue::NameInUse{"ramdisk"}};
    const Issue tooSmall{Issue::BelowMinimumSize{mebi(4), FileSystem::exFAT}};
    const Issue noMemory{Issue::ExceedsAvailableMemory{ByteCount{0}}};
    const Issue noEncryption{Issue::EncryptionUnsupported{FileSystem::exFAT}};
    EXPECT_EQ(report.issues, (std::vector{inUse, tooSmall, noMemory, noEncryption}));
    EXPECT_EQ(report.errors(), (std::vector{inUse, tooSmall, noEncryption}));
    EXPECT_EQ(report.warnings(), std::vector{noMemory});
    EXPECT_EQ(report.issuesFor(Issue::Field::size), (std::vector{tooSmall, noMemory}));
    EXPECT_EQ(report.issuesFor(Issue::Field::fileSystem), std::vector{noEncryption});
    EXPECT_FALSE(report.isValid());
    EXPECT_TRUE(ValidationReport{report.warnings()}.isValid());
}

} // namespace
} // namespace ramdisk
