#include "RamDiskCore/Values/RamDiskError.h"
#include "RamDiskCore/Values/Text.h"
#include "RamDiskInfrastructure/Commands/ProcessCommandRunner.h"
#include "RamDiskInfrastructure/Linux/Host/SystemTools.h"
#include "RamDiskInfrastructure/Linux/Mounting/DmCrypt.h"
#include "RamDiskInfrastructure/Linux/Volumes/LinuxFormat.h"
#include "RamDiskInfrastructure/Linux/Volumes/LoopVolume.h"
#include "tests/support/Linux/TestMachine.h"

#include <gmock/gmock.h>

namespace ramdisk {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::Field;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr const char* secret = "correct horse";

/// Notes what it is asked to run; the tool called `failing` fails.
class RecordingRunner final : public CommandRunning {
public:
    CommandOutput run(const SystemCommand& command) override {
        commands.push_back(command);
        const bool fails = !failing.empty() && command.description().find(failing) != std::string::npos;
        return fails ? CommandOutput{1, "", "the device said no\n"} : CommandOutput{};
    }

    std::vector<SystemCommand> commands;
    std::string failing;
};

const std::string formatCommand =
    "/usr/sbin/cryptsetup luksFormat --batch-mode --type luks2 --luks2-metadata-size 16k "
    "--luks2-keyslots-size 256k --cipher aes-xts-plain64 --key-size 512 --pbkdf pbkdf2 "
    "--pbkdf-force-iterations 1000 --key-file - ";

TEST(DmCrypt, HasTheToolReadThePassphraseFromItsInputOnly) {
    RecordingRunner runner;
    DmCrypt crypt(runner);
    EXPECT_EQ(crypt.makeAndOpen("/dev/loop7", "ramdisk-X", VolumePassphrase(secret)),
              "/dev/mapper/ramdisk-X");
    crypt.closeWhenUnused("ramdisk-X");
    ASSERT_EQ(runner.commands.size(), 3U);
    EXPECT_EQ(runner.commands[0].description(), formatCommand + "/dev/loop7");
    EXPECT_EQ(runner.commands[1].description(),
              "/usr/sbin/cryptsetup open --type luks2 --key-file - /dev/loop7 ramdisk-X");
    EXPECT_EQ(runner.commands[2].description(), "/usr/sbin/cryptsetup close --deferred ramdisk-X");
    EXPECT_EQ(runner.commands[0].standardInput, secret);
    EXPECT_EQ(runner.commands[1].standardInput, secret);
    EXPECT_EQ(runner.commands[2].standardInput, std::nullopt);

    for (const std::string step : {"luksFormat", "open"}) {
        RecordingRunner bad;
        bad.failing = step;
        try {
            DmCrypt(bad).makeAndOpen("/dev/loop7", "ramdisk-X", VolumePassphrase(secret));
            ADD_FAILURE() << step;
        } catch (const CommandFailure& failure) {
            EXPECT_THAT(failure.what(), AllOf(HasSubstr("the device said no"), Not(HasSubstr(secret))))
                << step;
            EXPECT_EQ(failure.command().standardInput, std::nullopt);
        }
        EXPECT_EQ(bad.commands.size(), step == "open" ? 2U : 1U);
    }
}

TEST(DmCrypt, MakesContainersOnTheSmallestDiskThatOnlyThePassphraseOpens) {
    if (!findSystemTool("cryptsetup")) {
        GTEST_SKIP() << "cryptsetup is not installed";
    }
    const test::TestMachine machine;
    const auto disk = machine.folder() / "disk";
    test::writeFile(disk, "");
    std::filesystem::resize_file(disk, minimumSize(FileSystem::apfs).bytes);
    ProcessCommandRunner runner;
    const auto exitCode = [&](SystemCommand command, const std::string& input) {
        command.standardInput = input;
        return runner.run(command).exitCode;
    };
    ASSERT_EQ(exitCode(DmCrypt::formatCommand(disk), secret), 0);
    // Opening needs the device mapper; checking the passphrase does not.
    auto open = DmCrypt::openCommand(disk, "name");
    open.arguments.insert(open.arguments.begin() + 1, "--test-passphrase");
    open.arguments.pop_back();
    EXPECT_EQ(exitCode(open, secret), 0);
    EXPECT_EQ(exitCode(open, "wrong"), 2);
    constexpr std::uintmax_t offsetOfContents = std::uintmax_t{1} << 20U;
    const SystemCommand dump{*findSystemTool("cryptsetup"), {"luksDump", disk}, {}, 30.0};
    EXPECT_THAT(runner.runChecked(dump).standardOutput,
                HasSubstr(std::to_string(offsetOfContents) + " [bytes]"));
}

struct FormatRow {
    const char* name;
    FileSystem format;
    std::uint64_t mebibytes;
    EncryptionMeans encryption;
    std::vector<std::string> expected;
};

LinuxHost hostWith(const std::filesystem::path& sys) {
    LinuxHost host;
    host.owner = 501;
    host.ownerGroup = 20;
    host.sys = sys;
    return host;
}

DiskRecord recordOf(const FormatRow& row) {
    auto record = DiskRecord::draft();
    record.fileSystem = row.format;
    record.name = row.name;
    record.size = ByteCount::of(row.mebibytes, ByteCount::Unit::mebibyte);
    record.isEncrypted = row.encryption != EncryptionMeans::none;
    return record;
}

TEST(LinuxFormat, ArgumentsSuitTheFormatTheSizeAndTheEncryption) {
    using FS = FileSystem;
    using Means = EncryptionMeans;
    const std::string extended = "nodiscard,assume_storage_prezeroed=1,root_owner=501:20";
    const auto ext = [&](bool isSmall, const std::vector<std::string>& more) {
        std::vector<std::string> all{
            "-q", "-F",    "-m", "0", "-b", isSmall ? "1024" : "4096", "-J", isSmall ? "size=1" : "size=4",
            "-E", extended};
        all.insert(all.end(), more.begin(), more.end());
        all.emplace_back("DEVICE");
        return all;
    };
    const std::vector<FormatRow> rows{
        {"Scratch", FS::journaledHFSPlus, 63, Means::none, ext(true, {"-L", "Scratch"})},
        {"Scratch", FS::journaledHFSPlus, 64, Means::none, ext(false, {"-L", "Scratch"})},
        {"0123456789abcdef", FS::apfsCaseSensitive, 64, Means::none, ext(false, {"-L", "0123456789abcdef"})},
        {"0123456789abcdefg", FS::apfsCaseSensitive, 64, Means::none, ext(false, {"-L", "0123456789abcdef"})},
        // The last character would be cut in two: an accent that stands alone, a letter with two bytes.
        {"0123456789abcde\u0301x", FS::apfsCaseSensitive, 64, Means::none,
         ext(false, {"-L", "0123456789abcd"})},
        {"0123456789abcdeß", FS::apfsCaseSensitive, 64, Means::none, ext(false, {"-L", "0123456789abcde"})},
        {"Secret", FS::apfsCaseSensitive, 64, Means::luks, ext(false, {})},
        {"Secret", FS::apfsCaseSensitive, 64, Means::fscrypt, ext(false, {"-O", "encrypt"})},
        {"Scratch", FS::apfs, 64, Means::none, ext(false, {"-O", "casefold", "-L", "Scratch"})},
        {"Secret", FS::apfs, 64, Means::luks, ext(false, {"-O", "casefold"})},
        {"Secret", FS::apfs, 64, Means::fscrypt, ext(false, {"-O", "encrypt"})},
        {"STICK", FS::fat32, 64, Means::none, {"-F", "32", "-n", "STICK", "DEVICE"}},
        {"Stick", FS::exFAT, 64, Means::none, {"-q", "-L", "Stick", "DEVICE"}},
    };
    const test::TestMachine machine;
    std::filesystem::create_directories(machine.folder() / "fs/ext4/features/casefold");
    const auto host = hostWith(machine.folder());
    for (const auto& row : rows) {
        EXPECT_EQ(LinuxFormat::of(row.format).arguments(recordOf(row), row.encryption, "DEVICE", host),
                  row.expected)
            << row.name << row.mebibytes << rawValue(row.format) << static_cast<int>(row.encryption);
    }
    EXPECT_FALSE(foldsCase(recordOf(rows[8]), Means::none, hostWith("/nowhere")));
}

TEST(LinuxFormat, FileSystemsWithoutOwnersAreMountedForTheirUser) {
    using Options = std::vector<std::pair<std::string, std::string>>;
    const auto host = hostWith("/nowhere");
    DiskRecord record = DiskRecord::draft();
    EXPECT_THAT(LinuxFormat::of(FileSystem::apfs).mountOptions(record, host), IsEmpty());
    EXPECT_EQ(LinuxFormat::of(FileSystem::exFAT).mountOptions(record, host),
              (Options{{"uid", "501"}, {"gid", "20"}, {"umask", "0022"}}));
    record.access = VolumeAccess::onlyMe;
    EXPECT_EQ(LinuxFormat::of(FileSystem::fat32).mountOptions(record, host),
              (Options{{"uid", "501"}, {"gid", "20"}, {"umask", "0077"}, {"utf8", ""}}));
}

/// What a making with these means asks the tools to do, until the kernel lacks what only they can give.
struct Attempt {
    Attempt(FileSystem format, EncryptionMeans means, const std::string& failing) {
        const LoopVolume volume(machine.host(HostRung::kernel), runner, [means] { return means; });
        runner->failing = failing;
        RecordHold hold{DiskRecord::draft(), {}};
        hold.record.name = "Scratch";
        hold.record.kind = VolumeKind::loop;
        hold.record.fileSystem = format;
        hold.record.isEncrypted = means != EncryptionMeans::none;
        hold.record.size = ByteCount::of(64, ByteCount::Unit::mebibyte);
        VolumeProtection protection;
        protection.value = VolumeProtection::Encrypted{VolumePassphrase(secret)};
        const RamDiskSpecification specification;
        VolumeRequest making{hold, specification, protection, [] {}, [] { return MountFolders::Made{}; }};
        const auto steps = volume.makingSteps(making);
        for (const auto& step : steps) {
            plan += step.description + "\n";
        }
        try {
            perform(steps, {});
        } catch (const std::exception& failure) {
            error = failure.what();
        }
        tag = hold.record.volumeTag();
        device = LoopDevice::pathOf(hold.record.loop.value_or(999));
    }

    test::TestMachine machine;
    std::shared_ptr<RecordingRunner> runner = std::make_shared<RecordingRunner>();
    std::string plan;
    std::string error;
    std::string tag;
    std::string device;
};

TEST(LoopVolume, LaysTheFileSystemIntoTheOpenContainer) {
    SKIP_UNLESS_ROOT();
    const Attempt attempt(FileSystem::apfsCaseSensitive, EncryptionMeans::luks, "mkfs");
    ASSERT_EQ(attempt.runner->commands.size(), 3U);
    EXPECT_EQ(attempt.runner->commands[0].description(), formatCommand + attempt.device);
    EXPECT_EQ(attempt.runner->commands[2].arguments.back(), "/dev/mapper/" + attempt.tag);
    EXPECT_EQ(attempt.runner->commands[2].standardInput, std::nullopt);
    EXPECT_EQ(attempt.error, "mkfs.ext4: the device said no");
    EXPECT_THAT(attempt.plan, AllOf(HasSubstr("cryptsetup luksFormat"), HasSubstr("close --deferred"),
                                    Not(HasSubstr(secret))));
    const Attempt refused(FileSystem::apfs, EncryptionMeans::luks, "luksFormat");
    EXPECT_EQ(refused.error, "cryptsetup: the device said no");
    EXPECT_EQ(refused.runner->commands.size(), 1U) << "nothing may be laid onto the bare device";
}

TEST(LoopVolume, LaysForeignFileSystems) {
    SKIP_UNLESS_ROOT();
    const Attempt exfat(FileSystem::exFAT, EncryptionMeans::none, "mkfs");
    EXPECT_THAT(exfat.runner->commands, ElementsAre(Field(&SystemCommand::arguments,
                                                          ElementsAre("-q", "-L", "Scratch", exfat.device))));
    EXPECT_EQ(exfat.error, "mkfs.exfat: the device said no");
    const Attempt fat(FileSystem::fat32, EncryptionMeans::none, "mkfs");
    EXPECT_THAT(
        fat.runner->commands,
        ElementsAre(Field(&SystemCommand::arguments, ElementsAre("-F", "32", "-n", "Scratch", fat.device))));
}

TEST(LoopVolume, LoadsAMissingDriverOnlyWhenADiskIsMade) {
    const test::TestMachine machine;
    auto host = machine.host(HostRung::kernel);
    host.proc = machine.folder() / "proc";
    std::filesystem::create_directories(host.proc);
    test::writeFile(host.proc / "filesystems", "\text4\n");
    const auto runner = std::make_shared<RecordingRunner>();
    const LoopVolume volume(host, runner, [] { return EncryptionMeans::none; });
    RamDiskSpecification specification;
    specification.fileSystem = FileSystem::fat32;
    const auto refusalOf = [](const auto& work) -> std::string {
        try {
            work();
        } catch (const RamDiskError& error) {
            return std::get<RamDiskError::FormattingFailed>(error.value()).reason;
        }
        return "none";
    };
    const auto arguments = [](const auto&... expected) {
        return Field(&SystemCommand::arguments, ElementsAre(expected...));
    };
    const auto noDriver = "this kernel has no vfat file system, which MS-DOS (FAT32) needs.";
    const auto require = [&] { volume.requireSupport(specification); };

    runner->failing = "--dry-run";
    EXPECT_EQ(refusalOf(require), noDriver);
    EXPECT_THAT(runner->commands, ElementsAre(arguments("-q", "--dry-run", "vfat")));

    runner->failing.clear();
    runner->commands.clear();
    EXPECT_NE(refusalOf(require), noDriver);
    const auto steps = volume.preparingSteps(specification);
    EXPECT_THAT(descriptions(steps), ElementsAre("modprobe vfat"));
    EXPECT_THAT(runner->commands, ElementsAre(arguments("-q", "--dry-run", "vfat")))
        << "a dry run ends here, with nothing loaded";
    EXPECT_EQ(refusalOf([&] { perform(steps, {}); }), noDriver) << "loaded in vain";
    EXPECT_THAT(runner->commands.back(), arguments("-q", "vfat"));

    test::writeFile(host.proc / "filesystems", "\text4\n\tvfat\n");
    EXPECT_EQ(refusalOf([&] { perform(steps, {}); }), "none");
    runner->commands.clear();
    EXPECT_NE(refusalOf(require), noDriver);
    EXPECT_THAT(descriptions(volume.preparingSteps(specification)), IsEmpty());
    EXPECT_THAT(runner->commands, IsEmpty());
}

} // namespace
} // namespace ramdisk
