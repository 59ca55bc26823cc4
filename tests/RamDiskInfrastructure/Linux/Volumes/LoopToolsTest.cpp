#include "RamDiskCore/Values/RamDiskError.h"
#include "RamDiskInfrastructure/Commands/ProcessCommandRunner.h"
#include "RamDiskInfrastructure/Linux/Host/SystemTools.h"
#include "RamDiskInfrastructure/Linux/Mounting/DmCrypt.h"
#include "RamDiskInfrastructure/Linux/Volumes/LinuxFormat.h"
#include "RamDiskInfrastructure/Linux/Volumes/LoopVolume.h"
#include "tests/support/Linux/TestMachine.h"
#include "tests/support/ScriptedRunner.h"

#include <regex>

namespace ramdisk::test {
namespace {

constexpr const char* secret = "correct horse";

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

DiskRecord recordOf(const std::string& name, FileSystem format,
                    EncryptionMeans means = EncryptionMeans::none) {
    auto record = DiskRecord::draft();
    record.kind = VolumeKind::loop;
    record.fileSystem = format;
    record.name = name;
    record.size = ByteCount::of(64, ByteCount::Unit::mebibyte);
    record.isEncrypted = means != EncryptionMeans::none;
    return record;
}

TEST(LinuxFormat, LabelsAreCutBetweenCharacters) {
    EXPECT_EQ(LinuxFormat::extLabel("0123456789abcdefg"), "0123456789abcdef");
    EXPECT_EQ(LinuxFormat::extLabel("0123456789abcdeß"), "0123456789abcde");
}

/// What a disk of this kernel can have depends on it; here it is one that can all.
TEST(LinuxFormat, OnlyVolumesThatCanFoldCaseDoAndTheEncryptedHaveNoLabel) {
    using Means = EncryptionMeans;
    const test::TestMachine machine;
    LinuxHost host;
    host.sys = machine.folder();
    const auto folding = recordOf("Scratch", FileSystem::apfs);
    EXPECT_FALSE(foldsCase(folding, Means::none, host));
    std::filesystem::create_directories(machine.folder() / "fs/ext4/features/casefold");
    EXPECT_TRUE(foldsCase(folding, Means::none, host));
    for (const auto format : {FileSystem::apfs, FileSystem::apfsCaseSensitive}) {
        for (const auto means : {Means::none, Means::luks, Means::fscrypt}) {
            const auto arguments =
                LinuxFormat::of(format).arguments(recordOf("Scratch", format, means), means, "DEVICE", host);
            const bool folds = format == FileSystem::apfs && means != Means::fscrypt;
            EXPECT_THAT(arguments, Contains("casefold").Times(folds ? 1 : 0));
            EXPECT_THAT(arguments, Contains("encrypt").Times(means == Means::fscrypt ? 1 : 0));
            EXPECT_THAT(arguments, Contains("Scratch").Times(means == Means::none ? 1 : 0));
            EXPECT_EQ(arguments.back(), "DEVICE");
        }
    }
}

TEST(LinuxFormat, FileSystemsWithoutOwnersAreMountedForTheirUser) {
    using Options = std::vector<std::pair<std::string, std::string>>;
    LinuxHost host;
    host.owner = 501;
    host.ownerGroup = 20;
    DiskRecord record = DiskRecord::draft();
    EXPECT_THAT(LinuxFormat::of(FileSystem::apfs).mountOptions(record, host), IsEmpty());
    EXPECT_EQ(LinuxFormat::of(FileSystem::exFAT).mountOptions(record, host),
              (Options{{"uid", "501"}, {"gid", "20"}, {"umask", "0022"}}));
    record.access = VolumeAccess::onlyMe;
    EXPECT_EQ(LinuxFormat::of(FileSystem::fat32).mountOptions(record, host),
              (Options{{"uid", "501"}, {"gid", "20"}, {"umask", "0077"}, {"utf8", ""}}));
}

/// A making on a real loop device with scripted tools, of which the last one fails. DEVICE and TAG stand for
/// the disk's own.
void expectMaking(FileSystem format, EncryptionMeans means, std::vector<std::string> lines) {
    SCOPED_TRACE(lines.back());
    const test::TestMachine machine;
    const auto runner = std::make_shared<test::ScriptedRunner>();
    runner->secrets = {secret};
    const LoopVolume volume(machine.host(HostRung::kernel), runner, [means] { return means; });
    RecordHold hold{recordOf("Scratch", format, means), {}};
    // The record is saved when the device is known.
    const auto script = [&] {
        for (auto& line : lines) {
            line = std::regex_replace(line, std::regex("DEVICE"),
                                      LoopDevice::pathOf(*hold.record.loop).string());
            line = std::regex_replace(line, std::regex("TAG"), hold.record.volumeTag());
            runner->once(line, &line == &lines.back() ? CommandOutput{1, "", "no\n"} : CommandOutput{});
        }
    };
    const VolumeProtection protection{VolumeProtection::Encrypted{VolumePassphrase(secret)}};
    const RamDiskSpecification specification;
    VolumeRequest request{hold, specification, protection, script, [] { return MountFolders::Made{}; }};
    const auto steps = volume.makingSteps(request);
    for (const auto& step : steps) {
        EXPECT_THAT(step.description, Not(HasSubstr(secret)));
    }
    try {
        perform(steps, {});
        ADD_FAILURE() << "the tool failed, and nobody minded";
    } catch (const CommandFailure& failure) {
        EXPECT_EQ(failure.command().description(), lines.back());
        EXPECT_EQ(failure.command().standardInput, std::nullopt);
    }
    for (const auto& command : runner->commands) {
        EXPECT_EQ(command.standardInput.has_value(), command.toolName() == "cryptsetup");
        EXPECT_EQ(command.standardInput.value_or(secret), secret);
    }
}

TEST(LoopVolume, LaysTheFileSystemOntoTheDeviceOrIntoItsOpenContainer) {
    SKIP_UNLESS_ROOT();
    using FS = FileSystem;
    using Means = EncryptionMeans;
    const auto tool = [](const char* name) { return findSystemTool(name).value_or(name).string(); };
    const auto formatting = DmCrypt::formatCommand("DEVICE").description();
    // A key that is typed nowhere, and a header that leaves room on the smallest disk.
    EXPECT_THAT(formatting, AllOf(HasSubstr("--luks2-metadata-size 16k --luks2-keyslots-size 256k"),
                                  EndsWith("--key-file - DEVICE")));
    const std::string opening = "/usr/sbin/cryptsetup open --type luks2 --key-file - DEVICE TAG";
    const auto making =
        tool("mkfs.ext4")
        + " -q -F -m 0 -b 4096 -J size=4 -N 16384 -I 256 "
          "-O ^resize_inode,large_dir -E nodiscard,assume_storage_prezeroed=1,root_owner=0:0 /dev/mapper/TAG";
    expectMaking(FS::apfsCaseSensitive, Means::luks, {formatting});
    expectMaking(FS::apfsCaseSensitive, Means::luks, {formatting, opening});
    expectMaking(FS::apfsCaseSensitive, Means::luks, {formatting, opening, making});
    expectMaking(FS::apfsCaseSensitive, Means::fscrypt,
                 {std::regex_replace(making, std::regex("/dev/mapper/TAG"), "-O encrypt DEVICE")});
    expectMaking(FS::exFAT, Means::none, {tool("mkfs.exfat") + " -q -L Scratch DEVICE"});
    expectMaking(FS::fat32, Means::none, {tool("mkfs.vfat") + " -F 32 -n Scratch DEVICE"});

    test::ScriptedRunner closing;
    closing.once("/usr/sbin/cryptsetup close --deferred TAG");
    DmCrypt(closing).closeWhenUnused("TAG");
}

TEST(LoopVolume, LoadsAMissingDriverOnlyWhenADiskIsMade) {
    const test::TestMachine machine;
    auto host = machine.host(HostRung::kernel);
    host.proc = machine.folder() / "proc";
    std::filesystem::create_directories(host.proc);
    test::writeFile(host.proc / "filesystems", "\text4\n");
    const auto runner = std::make_shared<test::ScriptedRunner>();
    const LoopVolume volume(host, runner, [] { return EncryptionMeans::none; });
    const auto modprobe = findSystemTool("modprobe").value_or("/sbin/modprobe").string();
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
    const auto noDriver = "this kernel has no vfat file system, which MS-DOS (FAT32) needs.";
    const auto require = [&] { volume.requireSupport(specification); };

    runner->once(modprobe + " -q --dry-run vfat", CommandOutput{1, "", ""});
    EXPECT_EQ(refusalOf(require), noDriver);

    runner->once(modprobe + " -q --dry-run vfat");
    EXPECT_NE(refusalOf(require), noDriver);
    const auto steps = volume.preparingSteps(specification);
    EXPECT_THAT(descriptions(steps), testing::ElementsAre("modprobe vfat"));
    EXPECT_THAT(runner->commands, testing::SizeIs(2)) << "a dry run ends here, with nothing loaded";
    runner->once(modprobe + " -q vfat");
    EXPECT_EQ(refusalOf([&] { perform(steps, {}); }), noDriver) << "loaded in vain";

    test::writeFile(host.proc / "filesystems", "\text4\n\tvfat\n");
    runner->once(modprobe + " -q vfat");
    EXPECT_EQ(refusalOf([&] { perform(steps, {}); }), "none");
    runner->commands.clear();
    EXPECT_NE(refusalOf(require), noDriver);
    EXPECT_THAT(descriptions(volume.preparingSteps(specification)), IsEmpty());
    EXPECT_THAT(runner->commands, IsEmpty());
}

} // namespace
} // namespace ramdisk::test
