#include "RamDiskInfrastructure/MacTools/HDIUtilContentArchiver.h"

#include "RamDiskUI/PlatformWords.h"
#include "tests/RamDiskInfrastructure/MacTools/MacTest.h"

namespace ramdisk {
namespace {

namespace fs = std::filesystem;
using test::ScriptedMac;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr const char* passphrase = "hush-0-hush";

class HDIUtilContentArchiverTest : public test::MacTest {
protected:
    HDIUtilContentArchiverTest() {
        mac->secrets.emplace_back(passphrase);
        fill(onDisk());
    }

    static void write(const fs::path& path, const std::string& text) { std::ofstream(path) << text; }
    /// Of everything that the tool treats differently, something.
    static void fill(const fs::path& root) {
        fs::create_directories(root / "Folder" / "Inner");
        write(root / "file", "one");
        write(root / "Folder" / "Inner" / "line\nbreak", "two");
        write(root / "-readonly", "three");
        fs::create_symlink("/etc", root / "link");
        fs::create_hard_link(root / "file", root / "Folder" / "second name");
        ::mkfifo((root / "pipe").c_str(), 0600);
        fs::create_directory(root / ".fseventsd");
        write(root / ".fseventsd" / "log", "of the disk");
    }

    [[nodiscard]] fs::path onDisk() const { return *disk.mountPoint; }
    [[nodiscard]] SaveRequest saving() const {
        return {.disk = disk, .files = files, .previousCopies = 1, .protection = protection};
    }
    [[nodiscard]] RestoreRequest restoring(RestoreMode mode = RestoreMode::fill) const {
        return {.image = files.latest, .files = files, .disk = disk, .protection = protection, .mode = mode};
    }
    void encrypt() { protection.value = VolumeProtection::Encrypted{VolumePassphrase(passphrase)}; }

    /// Nothing that a save or a restore opened or made is left.
    void expectNothingLeft() const {
        EXPECT_TRUE(std::none_of(mac->images.begin(), mac->images.end(), [](const ScriptedMac::Image& image) {
            return image.path.find("sparseimage") != std::string::npos;
        }));
        expectNoMountPoints();
    }
    [[nodiscard]] std::set<std::string> saved() const { return folder.names(); }

    SavedCopyFiles files{folder.path() / "A.sparseimage"};
    RamDisk disk = mac->makeRamDisk("Work", folder.path() / "disk", 1572864000);
    VolumeProtection protection;
    HDIUtilContentArchiver archiver{
        {.runner = mac,
         .media = mac,
         .volumeAt = [this](const fs::path& location) { return mac->mountedVolume(location); },
         .detachPause = {},
         .mountFolder = mounts},
        adapters.statistics};
};

TEST_F(HDIUtilContentArchiverTest, ASaveRunsTheToolsInTheirOrder) {
    EXPECT_EQ(archiver.save(saving(), {}), SaveOutcome::saved);
    const std::string create =
        "create -quiet -size 1500m -type SPARSE -fs Case-sensitive APFS -volname Work ";
    const std::string attach = "attach -nobrowse -noautoopen -owners on -mountpoint mounts/RamDisk- ";
    const std::string hdiutil = "hdiutil ";
    EXPECT_THAT(ran(),
                ElementsAre(hdiutil + create + ".A.partial-.sparseimage",
                            hdiutil + attach + ".A.partial-.sparseimage", hdiutil + "info -plist",
                            "ditto disk/Folder mounts/RamDisk-/Folder",
                            "ditto disk/-readonly disk/file mounts/RamDisk-", hdiutil + "detach /dev/disk5"));
    encrypt();
    archiver.save(saving(), {});
    EXPECT_THAT(ran(), testing::IsSupersetOf(
                           {hdiutil + create + "-encryption AES-256 -stdinpass .A.partial-.sparseimage",
                            hdiutil + attach + "-stdinpass -verbose .A.partial-.sparseimage"}));
    EXPECT_EQ(mac->imageFile(files.latest)->passphrase, passphrase);
    archiver.restore(restoring(), {});
    EXPECT_THAT(ran(),
                testing::IsSupersetOf({hdiutil + "isencrypted -plist A.sparseimage",
                                       hdiutil + attach + "-readonly -stdinpass -verbose A.sparseimage"}));
    EXPECT_EQ(archiver.copies(files).size(), 2U);
    expectNothingLeft();
}

TEST_F(HDIUtilContentArchiverTest, WhatWasSavedComesBack) {
    auto request = saving();
    request.verification = Verification::yes;
    TransferProgress last;
    archiver.save(request, [&last](const TransferProgress& progress) { last = progress; });
    EXPECT_EQ(last, (TransferProgress{14, 14, 8, 8}));
    fs::remove_all(onDisk() / "Folder");
    fs::remove(onDisk() / "link");
    // A link in the place of a folder must not lead the copy off the disk.
    const auto outside = folder.path() / "outside";
    fs::create_directory(outside);
    fs::create_symlink(outside, onDisk() / "Folder");
    write(onDisk() / "file", "changed");
    write(onDisk() / "new", "new");

    EXPECT_FALSE(archiver.restore(restoring(), {}).isImageLeftOpen);
    EXPECT_EQ(test::readFile(onDisk() / "file"), "one");
    EXPECT_EQ(test::readFile(onDisk() / "Folder" / "Inner" / "line\nbreak"), "two");
    EXPECT_EQ(test::readFile(onDisk() / "-readonly"), "three");
    EXPECT_EQ(fs::read_symlink(onDisk() / "link"), "/etc");
    EXPECT_TRUE(fs::is_fifo(onDisk() / "pipe"));
    EXPECT_TRUE(fs::equivalent(onDisk() / "file", onDisk() / "Folder" / "second name"));
    EXPECT_EQ(test::readFile(onDisk() / ".fseventsd" / "log"), "of the disk");
    EXPECT_TRUE(fs::is_empty(outside));
    EXPECT_TRUE(fs::exists(onDisk() / "new"));

    // Who keeps account of it is told before anything is removed.
    const auto stop = [](const TransferProgress&) { throw std::runtime_error("not noted"); };
    EXPECT_ANY_THROW(archiver.restore(restoring(RestoreMode::replace), stop));
    EXPECT_TRUE(fs::exists(onDisk() / "new"));
    archiver.restore(restoring(RestoreMode::replace), {});
    EXPECT_FALSE(fs::exists(onDisk() / "new"));
    EXPECT_EQ(test::readFile(onDisk() / ".fseventsd" / "log"), "of the disk");
    expectNothingLeft();
}

TEST_F(HDIUtilContentArchiverTest, WhatTheLatestCopyHoldsIsNotWrittenAgain) {
    struct Row {
        const char* what;
        std::function<void()> change;
        SaveOutcome outcome;
    };
    const auto inImage = [&] { return mac->imageFile(files.latest)->files; };
    const auto date = [&](const fs::path& file) { return fs::last_write_time(file); };
    const Row rows[] = {
        {"nothing", [] {}, SaveOutcome::nothingChanged},
        {"a file", [&] { write(onDisk() / "file", "two"); }, SaveOutcome::saved},
        {"only a mode", [&] { fs::permissions(onDisk() / "file", fs::perms(0640)); }, SaveOutcome::saved},
        {"a file less", [&] { fs::remove(onDisk() / "-readonly"); }, SaveOutcome::saved},
        {"contents of which no date tells",
         [&] {
             // As the disk would look in the copy before somebody wrote through a mapping.
             const auto former = date(inImage() / "file");
             write(inImage() / "file", "eno");
             fs::last_write_time(inImage() / "file", former);
         },
         SaveOutcome::saved},
        {"the disk", [&] { disk.instance = UUID::random(); }, SaveOutcome::saved},
        {"no manifest", [&] { fs::remove(inImage() / ".ramdisk-manifest"); }, SaveOutcome::saved},
        {"encryption", [&] { encrypt(); }, SaveOutcome::saved},
        {"nothing, encrypted and verified", [] {}, SaveOutcome::nothingChanged},
    };
    disk.instance = UUID::random();
    const auto settle = [] { std::this_thread::sleep_for(std::chrono::milliseconds(40)); };
    settle();
    archiver.save(saving(), {});
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        row.change();
        settle();
        auto request = saving();
        request.verification = row.outcome == SaveOutcome::saved ? Verification::no : Verification::yes;
        EXPECT_EQ(archiver.save(request, {}), row.outcome);
        expectNothingLeft();
    }
    fs::remove_all(onDisk() / "Folder");
    archiver.restore(restoring(RestoreMode::replace), {});
    EXPECT_TRUE(fs::exists(onDisk() / "Folder"));
    EXPECT_FALSE(fs::exists(onDisk() / ".ramdisk-manifest"));
}

TEST_F(HDIUtilContentArchiverTest, AFailedSaveLeavesTheCopyBeforeIt) {
    encrypt();
    archiver.save(saving(), {});
    const auto before = saved();
    struct Row {
        std::string text;
        std::function<void()> arrange;
    };
    for (
        const auto& row : std::vector<Row>{
            {"Files on the disk kept changing while they were copied. Quit the apps that write to it and try "
             "again.",
             [&] { mac->whileCopying = [&] { write(onDisk() / "file", "changed"); }; }},
            {"Files on the disk kept changing while they were copied. Quit the apps that write to it and try "
             "again.",
             [&] {
                 mac->meanwhile = [&] {
                     if (!mac->commands.empty() && mac->commands.back().executable.filename() == "ditto") {
                         fs::remove(onDisk() / "-readonly");
                     }
                 };
             }},
            {"The RAM disk was ejected before all its files were saved. The copy saved before is kept.",
             [&] { mac->whileCopying = [&] { mac->detachForeign(4); }; }}}) {
        SCOPED_TRACE(row.text);
        mac->commands.clear();
        row.arrange();
        EXPECT_EQ(textOf([&] { archiver.save(saving(), {}); }), row.text);
        mac->whileCopying = {};
        mac->meanwhile = {};
        EXPECT_EQ(saved(), before);
        expectNothingLeft();
    }
}

TEST_F(HDIUtilContentArchiverTest, AToolThatFailsFailsTheSave) {
    archiver.save(saving(), {});
    const auto before = saved();
    mac->attaching = ScriptedMac::Attaching::fails;
    EXPECT_EQ(textOf([&] { archiver.save(saving(), {}); }),
              "The disk image holds no volume that can be read: hdiutil: hdiutil: attach failed - no "
              "mountable file systems");
    EXPECT_THAT(ran(), Contains("hdiutil detach -quiet -force mounts/RamDisk-"));
    mac->attaching = ScriptedMac::Attaching::mountsNothing;
    EXPECT_EQ(
        textOf([&] { archiver.save(saving(), {}); }),
        "The disk image holds no volume that can be read: hdiutil attached it, and no volume was mounted.");
    mac->attaching = ScriptedMac::Attaching::works;
    mac->detachingOfImages = ScriptedMac::Detaching::busy;
    EXPECT_EQ(
        textOf([&] { archiver.save(saving(), {}); }),
        withPlatformWords(
            "The disk image could not be closed after its files were copied. Eject it in Finder or Disk "
            "Utility."));
    EXPECT_THAT(ran(), Contains("hdiutil detach -force /dev/disk5"));
    mac->creation = CommandOutput{1, "", "hdiutil: create failed - No space left on device\n"};
    EXPECT_THAT(textOf([&] { archiver.save(saving(), {}); }),
                HasSubstr("hdiutil: create failed - No space left on device"));
    EXPECT_EQ(saved(), before);
    expectNothingLeft();
}

TEST_F(HDIUtilContentArchiverTest, ARestoreSaysWhyItFailed) {
    encrypt();
    archiver.save(saving(), {});
    const auto open = [&] { return archiver.restore(restoring(), {}); };

    protection.value = VolumeProtection::Encrypted{VolumePassphrase("another")};
    EXPECT_EQ(textOf(open), withPlatformWords("The password is incorrect."));
    protection.value = VolumeProtection::None{};
    EXPECT_EQ(textOf(open),
              withPlatformWords("The key for the saved contents of “Work” is missing from the keychain."));
    encrypt();

    mac->script("/usr/bin/hdiutil info -plist", {1, "", "hdiutil: info failed\n"});
    EXPECT_EQ(
        textOf(open),
        "Whether the disk image is open already could not be told: hdiutil: hdiutil: info failed. Try again "
        "in a moment.");
    auto& foreign = mac->attachForeign(files.latest.string(), "Work");
    EXPECT_EQ(textOf(open), "The disk image is open already. Eject it, then try again.");
    EXPECT_EQ(archiver.describe(files.latest, protection).openAt, foreign.volume->mountPoint);
    mac->detachForeign(foreign.disk);

    mac->whileCopying = [&] { mac->images.pop_back(); };
    EXPECT_EQ(textOf(open), "The disk image was ejected before all its files were copied.");
    mac->whileCopying = {};
    write(files.latest, "no image");
    EXPECT_EQ(textOf(open), "The disk image holds no volume that can be read: hdiutil: hdiutil: isencrypted "
                            "failed - image not recognized");
    fs::remove(files.latest);
    EXPECT_EQ(textOf(open), "The disk image was ejected before all its files were copied.");
}

TEST_F(HDIUtilContentArchiverTest, AnImageThatStaysOpenIsToldAndClosedByTheNextRestore) {
    archiver.save(saving(), {});
    mac->detachingOfImages = ScriptedMac::Detaching::busyAtFirst;
    EXPECT_FALSE(archiver.restore(restoring(), {}).isImageLeftOpen);
    mac->detachingOfImages = ScriptedMac::Detaching::leavesTheList;
    EXPECT_TRUE(archiver.restore(restoring(), {}).isImageLeftOpen);
    mac->images.back().isListed = true;
    mac->images.back().detaching = ScriptedMac::Detaching::works;
    mac->detachingOfImages = ScriptedMac::Detaching::busy;
    EXPECT_TRUE(archiver.restore(restoring(), {}).isImageLeftOpen);
    EXPECT_EQ(mac->images.size(), 2U);

    mac->detachingOfImages = ScriptedMac::Detaching::worksButSaysItFailed;
    EXPECT_FALSE(archiver.restore(restoring(), {}).isImageLeftOpen);
    expectNothingLeft();
}

TEST_F(HDIUtilContentArchiverTest, ASaveClosesAndRemovesWhatADeadOneLeft) {
    archiver.save(saving(), {});
    const auto before = saved();
    // The save that dies is another process's in life; its image stays open.
    const auto partial = folder.path() / ".A.partial-6C0E1E7A-0D9C-4E26-9C53-4C2F0B3B9A11.sparseimage";
    fs::copy_file(files.latest, partial);
    const auto mountPoint = mounts / "RamDisk-6C0E1E7A-0D9C-4E26-9C53-4C2F0B3B9A12";
    fs::create_directory(mountPoint);
    static_cast<void>(mac->run({"/usr/bin/hdiutil",
                                {"attach", "-nobrowse", "-noautoopen", "-owners", "on", "-mountpoint",
                                 mountPoint.string(), partial.string()},
                                std::nullopt,
                                std::nullopt}));
    archiver.save(saving(), {});
    EXPECT_EQ(saved().size(), before.size() + 1);
    EXPECT_FALSE(fs::exists(partial));
    expectNothingLeft();
}

TEST_F(HDIUtilContentArchiverTest, DescribesAnImageAndClosesIt) {
    archiver.save(saving(), {});
    const auto volume = archiver.describe(files.latest, {});
    EXPECT_EQ(volume.name, "Work");
    EXPECT_EQ(volume.capacity.bytes, 1000U);
    EXPECT_EQ(volume.used.bytes, 100U);
    EXPECT_FALSE(volume.mergesNames);
    EXPECT_FALSE(volume.openAt);
    expectNothingLeft();
}

TEST_F(HDIUtilContentArchiverTest, AVerifiedSaveComparesEveryByte) {
    auto request = saving();
    request.verification = Verification::yes;
    // What a broken tool might do, right before the copy is read back.
    mac->meanwhile = [&] {
        const auto& last = mac->commands.empty() ? SystemCommand{} : mac->commands.back();
        if (last.arguments.size() == 2 && last.arguments[0] == "detach") {
            for (const auto& entry : fs::directory_iterator(folder.path())) {
                auto* image = entry.is_regular_file() ? mac->imageFile(entry.path()) : nullptr;
                if (image != nullptr && fs::exists(image->files)) {
                    write(image->files / "Folder" / "Inner" / "line\nbreak", "twO");
                }
            }
        }
    };
    EXPECT_THAT(textOf([&] { archiver.save(request, {}); }),
                HasSubstr("“Folder/Inner/line\nbreak” in the copy is not what it is on the disk."));
    EXPECT_FALSE(fs::exists(files.latest));
}

} // namespace
} // namespace ramdisk
