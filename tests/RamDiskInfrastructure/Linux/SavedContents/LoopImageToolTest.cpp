#include "RamDiskInfrastructure/Linux/Mounting/DetachedMount.h"
#include "RamDiskInfrastructure/Linux/Mounting/Fscrypt.h"
#include "RamDiskInfrastructure/Linux/Mounting/VolumeMarkLinux.h"
#include "RamDiskInfrastructure/Linux/SavedContents/ExtSuperblock.h"
#include "RamDiskInfrastructure/Trees/WriteWatch.h"
#include "tests/RamDiskInfrastructure/Linux/SavedContents/SavingMachine.h"
#include "tests/support/Linux/FullDisk.h"

namespace ramdisk::test {
namespace {

const VolumeProtection withKey{VolumeProtection::Encrypted{VolumePassphrase("right")}};

/// Files of many kinds below "tree".
void plant(const fs::path& volume) {
    const auto tree = volume / "tree";
    fs::create_directories(tree / "a folder\nof two lines");
    writeFile(tree / "text with a Known Name", "known contents, word for word");
    writeFile(tree / "large", std::string((3U << 20U) + 17, 'x'));
    writeFile(tree / "sparse", "");
    fs::resize_file(tree / "sparse", 9U << 20U);
    fs::create_hard_link(tree / "large", tree / "a folder\nof two lines/second name");
    fs::create_symlink("/nowhere at all", tree / "link");
    fs::create_directory(tree / std::string(255, 'n'));
    ASSERT_EQ(mkfifo((tree / "fifo").c_str(), 0640), 0);
    ASSERT_EQ(lchown((tree / "link").c_str(), 12, 34), 0);
    ASSERT_EQ(chmod((tree / "large").c_str(), 04710), 0);
}

/// A file that is copied in parts, and ends in the middle of a page.
void plantInParts(const fs::path& path) {
    std::string bytes((35U << 20U) + 17, '\0');
    std::mt19937 random(5); // NOLINT: the same every time
    for (std::size_t place = 0; place + sizeof(std::uint32_t) < bytes.size(); place += 512) {
        const auto number = static_cast<std::uint32_t>(random());
        std::memcpy(bytes.data() + place, &number, sizeof number);
    }
    bytes.back() = '!';
    writeFile(path, bytes);
}

/// Changes a byte in a way that no date tells.
void changeUnseen(const fs::path& file) {
    Mapping mapping(file);
    const auto date = fs::last_write_time(file);
    mapping.write('?');
    fs::last_write_time(file, date);
}

/// Which file system it is: files of it may come and go.
std::string identityOf(const fs::path& image) {
    return ExtSuperblock::read(FileDescriptor(open(image.c_str(), O_RDONLY | O_CLOEXEC)))->seal.substr(0, 32);
}

TEST(SavedImage, GivesBackWhatWasSavedOntoAnyDisk) {
    SKIP_UNLESS_ROOT();
    for (const bool isEncrypted : {false, true}) {
        for (const char* format : {"hfs+", "jhfs+"}) {
            if (isEncrypted && !Fscrypt::isSupported()) {
                continue;
            }
            SCOPED_TRACE(format);
            SavingMachine world;
            world.protection = isEncrypted ? withKey : VolumeProtection{};
            const auto from = world.disk("From", format);
            const auto onto = world.disk("Onto", format);
            plant(*from.mountPoint);
            plantInParts(*from.mountPoint / "copied in parts");
            world.save(from);
            world.tool.verify(world.files.latest, world.protection);
            const auto described = world.tool.describe(world.files.latest, world.protection);
            EXPECT_EQ(described.name, "From");
            EXPECT_EQ(described.capacity, from.capacity);
            EXPECT_FALSE(described.mergesNames || described.openAt);
            EXPECT_EQ(fs::status(world.files.latest).permissions(), fs::perms(0600));

            writeFile(*onto.mountPoint / "of the new disk", "");
            EXPECT_EQ(world.restore(onto), SavedImageTool::Closing::closed);
            EXPECT_EQ(SavingMachine::difference(from, onto), "");
            EXPECT_TRUE(fs::exists(*onto.mountPoint / "of the new disk"));
            EXPECT_EQ(readVolumeMark(*onto.mountPoint).instance, onto.instance);
            world.restore(onto, RestoreMode::replace);
            EXPECT_FALSE(fs::exists(*onto.mountPoint / "of the new disk"));
            auto renamed = onto;
            EXPECT_FALSE(world.isUpToDate(renamed));
            renamed.name = "From";
            EXPECT_TRUE(world.isUpToDate(renamed)) << "another disk's mark is no change";
            EXPECT_THAT(world.loopsUpon(world.images), IsEmpty());
        }
    }
}

TEST(SavedImage, SaysWhetherADiskWithRoomForARestoreCouldHoldIt) {
    SKIP_UNLESS_ROOT();
    for (const char* format : {"jhfs+", "hfs+"}) {
        for (const char* size : {"24M", "16M"}) {
            SavingMachine world;
            const auto from = world.disk("From", format, "24M");
            const auto onto = world.disk("Onto", format, size);
            fillUp(*from.mountPoint / "tree", 1U << 30U);
            writeFile(*onto.mountPoint / "in the way", std::string(3U << 20U, 'x'));
            world.save(from);
            bool couldHold = false;
            EXPECT_THAT(failureOf([&] {
                            try {
                                world.restore(onto);
                            } catch (const CopyNeedsRoom&) {
                                couldHold = true;
                                throw;
                            }
                        }),
                        HasSubstr("No space left"));
            EXPECT_EQ(couldHold, std::string_view(format) == "jhfs+" && onto.capacity == from.capacity);
        }
    }
}

TEST(SavedImage, IsPutBackOnlyAfterThatWasAnnounced) {
    SKIP_UNLESS_ROOT();
    SavingMachine world;
    const auto disk = world.disk("A");
    writeFile(*disk.mountPoint / "saved", "saved");
    world.save(disk);
    fs::remove(*disk.mountPoint / "saved");
    writeFile(*disk.mountPoint / "new", "new");
    const auto stop = [](const TransferProgress&) { throw std::runtime_error("not noted"); };
    EXPECT_ANY_THROW(world.tool.restore(
        {world.files.latest, world.files, disk, world.protection, RestoreMode::replace}, stop));
    EXPECT_TRUE(fs::exists(*disk.mountPoint / "new"));
    EXPECT_FALSE(fs::exists(*disk.mountPoint / "saved"));
}

TEST(SavedImage, IsLeftAloneWhileNothingChangedAndKnowsWhatNoDateTells) {
    SKIP_UNLESS_ROOT();
    SavingMachine world;
    const auto disk = world.disk("A");
    plant(*disk.mountPoint);
    world.save(disk);
    const auto state = [&] {
        return std::pair(readFile(world.files.latest), fs::last_write_time(world.files.latest));
    };
    const auto before = state();
    EXPECT_TRUE(world.isUpToDate(disk));
    EXPECT_TRUE(state() == before);
    changeUnseen(*disk.mountPoint / "tree/large");
    EXPECT_FALSE(world.isUpToDate(disk));
    world.save(disk);
    EXPECT_TRUE(world.isUpToDate(disk));
    fs::remove(world.files.latest);
    EXPECT_FALSE(world.isUpToDate(disk));
}

TEST(SavedImage, StartsFromASpareOnlyWhenThatIsSound) {
    SKIP_UNLESS_ROOT();
    enum class Spare { sound, changed, link, copyStill, garbage };
    for (const auto kind : {Spare::sound, Spare::changed, Spare::link, Spare::copyStill, Spare::garbage}) {
        SCOPED_TRACE(static_cast<int>(kind));
        SavingMachine world;
        const auto disk = world.disk("A");
        plant(*disk.mountPoint);
        world.save(disk);
        const auto spare = SavedCopyNames{world.files}.spare();
        writeFile(*disk.mountPoint / "tree/second", "2");
        world.save(disk);
        ASSERT_TRUE(fs::exists(spare));
        const auto identity = identityOf(spare);
        const auto precious = world.machine.folder() / "precious";
        if (kind == Spare::changed) {
            const FileDescriptor file(open(spare.c_str(), O_RDWR | O_CLOEXEC));
            auto loop = LoopDevice::attach(file, "test", {});
            const DetachedMount mount({"ext4", loop.path(), {}}, MountInterface::descriptors);
            const FileDescriptor text(openat(mount.root().get(), "saved/contents/tree/large", O_WRONLY));
            ASSERT_EQ(pwrite(text.get(), "foreign", 7, 100), 7);
        } else if (kind == Spare::link) {
            fs::rename(spare, precious);
            fs::create_symlink(precious, spare);
        } else if (kind == Spare::copyStill) {
            fs::create_hard_link(spare, precious);
        } else if (kind == Spare::garbage) {
            writeFile(spare, std::string(1U << 20U, 'g'));
        }
        const auto kept = fs::exists(precious) ? readFile(precious) : "";
        writeFile(*disk.mountPoint / "tree/text with a Known Name", "third");
        fs::remove(*disk.mountPoint / "tree/link");
        world.save(disk);
        world.tool.verify(world.files.latest, {});
        EXPECT_TRUE(world.isUpToDate(disk));
        EXPECT_EQ(identityOf(world.files.latest) == identity, kind == Spare::sound);
        EXPECT_TRUE((fs::exists(precious) ? readFile(precious) : "") == kept);
        EXPECT_THAT(world.loopsUpon(world.images), IsEmpty());
    }
}

TEST(SavedImage, TellsNothingOfAnEncryptedDiskWithoutItsKey) {
    SKIP_UNLESS_ROOT();
    if (!Fscrypt::isSupported()) {
        GTEST_SKIP() << "this kernel's ext4 does not encrypt";
    }
    SavingMachine world;
    world.protection = withKey;
    const auto disk = world.disk("Secret Disk");
    plant(*disk.mountPoint);
    world.save(disk);
    const auto bytes = readFile(world.files.latest);
    for (const char* text : {"known contents", "Known Name", "Secret Disk", "nowhere at all", "xxxxxxxx"}) {
        EXPECT_EQ(bytes.find(text), std::string::npos) << text;
    }
    for (const auto& wrong :
         {VolumeProtection{VolumeProtection::Encrypted{VolumePassphrase("wrong")}}, VolumeProtection{}}) {
        world.protection = wrong;
        EXPECT_EQ(failureOf([&] { static_cast<void>(world.isUpToDate(disk)); }), "incorrectPassphrase");
        EXPECT_EQ(failureOf([&] { world.restore(disk, RestoreMode::replace); }), "incorrectPassphrase");
        EXPECT_EQ(failureOf([&] { world.tool.verify(world.files.latest, wrong); }), "incorrectPassphrase");
        EXPECT_EQ(failureOf([&] { static_cast<void>(world.tool.describe(world.files.latest, wrong)); }),
                  "incorrectPassphrase");
    }
    EXPECT_TRUE(fs::exists(*disk.mountPoint / "tree/large"));
    EXPECT_TRUE(readFile(world.files.latest) == bytes);
}

TEST(SavedImage, OfSomebodyElsesMakingIsRefused) {
    SKIP_UNLESS_ROOT();
    SavingMachine world;
    const auto disk = world.disk("A");
    plant(*disk.mountPoint);
    world.save(disk);
    const auto latest = world.files.latest;
    const auto good = world.images / "good";
    fs::rename(latest, good);
    const auto copy = [&] { fs::copy_file(good, latest); };
    struct Row {
        const char* name;
        std::function<void()> make;
        const char* error = "imageUnreadable";
    };
    const Row rows[] = {
        {"nothing", [] {}, "imageEjected"},
        {"a link", [&] { fs::create_symlink(good, latest); }},
        {"another user's",
         [&] {
             copy();
             ASSERT_EQ(chown(latest.c_str(), nobody, nobody), 0);
         }},
        {"a pipe", [&] { ASSERT_EQ(mkfifo(latest.c_str(), 0600), 0); }},
        {"a folder", [&] { fs::create_directory(latest); }},
        {"an empty file", [&] { writeFile(latest, ""); }},
        {"garbage", [&] { writeFile(latest, std::string(2U << 20U, '\xEF')); }},
        {"cut short",
         [&] {
             copy();
             fs::resize_file(latest, fs::file_size(latest) / 2);
         }},
        {"a damaged head",
         [&] {
             copy();
             const FileDescriptor file(open(latest.c_str(), O_WRONLY | O_CLOEXEC));
             ASSERT_EQ(pwrite(file.get(), "damage", 6, 1024 + 0x78), 6);
         }},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        row.make();
        EXPECT_EQ(failureOf([&] { world.restore(disk, RestoreMode::replace); }), row.error);
        EXPECT_EQ(failureOf([&] { static_cast<void>(world.tool.describe(latest, {})); }), row.error);
        EXPECT_FALSE(world.isUpToDate(disk));
        fs::remove_all(latest);
    }
    EXPECT_TRUE(fs::exists(*disk.mountPoint / "tree/large"));
    fs::rename(good, latest);
    EXPECT_TRUE(world.isUpToDate(disk));
    EXPECT_EQ(failureOf([&] { world.tool.verify(latest, withKey); }), "imageUnreadable");
}

TEST(SavedImage, ThatSomebodyHasOpenIsLeftToHim) {
    SKIP_UNLESS_ROOT();
    SavingMachine world;
    const auto disk = world.disk("A");
    plant(*disk.mountPoint);
    world.save(disk);
    const auto place = world.machine.folder() / "place";
    fs::create_directory(place);
    {
        const FileDescriptor file(open(world.files.latest.c_str(), O_RDWR | O_CLOEXEC));
        auto loop = LoopDevice::attach(file, "test", {});
        EXPECT_EQ(failureOf([&] { static_cast<void>(world.tool.describe(world.files.latest, {})); }),
                  "imageOpenAlready");
        DetachedMount mount({"ext4", loop.path(), {}}, MountInterface::descriptors);
        mount.attach(place, requireFolder(place));
    }
    EXPECT_EQ(failureOf([&] { world.restore(disk); }), "imageOpenAlready");
    EXPECT_EQ(world.tool.describe(world.files.latest, {}).openAt, place);
    EXPECT_FALSE(world.isUpToDate(disk));
    writeFile(place / "saved/contents/tree/by hand", "added");
    ASSERT_EQ(umount2(place.c_str(), 0), 0);
    const auto onto = world.disk("Onto");
    world.restore(onto);
    EXPECT_EQ(readFile(*onto.mountPoint / "tree/by hand"), "added") << "what is in the image counts";
}

TEST(SavedImage, TheSecondLookAtADiskReadsOnlyWhatMayHaveBeenWritten) {
    SKIP_UNLESS_ROOT();
    SavingMachine world;
    const auto disk = world.disk("A", "hfs+", "192M");
    if (!WriteWatch::begin(openFolder(AT_FDCWD, disk.mountPoint->c_str()))) {
        GTEST_SKIP() << "this kernel offers no watch";
    }
    plant(*disk.mountPoint);
    auto source = world.tool.openSource(world.request(disk));
    const auto look = [&] {
        const auto before = bytesReadSoFar();
        const auto status = source->takeStatus({});
        return std::pair{status, (bytesReadSoFar() - before) >> 20U};
    };
    EXPECT_EQ(look(), (std::pair{SaveSource::Status::changed, std::uint64_t{3}}));
    EXPECT_EQ(look(), (std::pair{SaveSource::Status::unchanged, std::uint64_t{3}}))
        << "a watch for so little";

    writeFile(*disk.mountPoint / "tree/larger", std::string(70U << 20U, 'x'));
    source = world.tool.openSource(world.request(disk));
    EXPECT_EQ(look(), (std::pair{SaveSource::Status::changed, std::uint64_t{73}}));
    changeUnseen(*disk.mountPoint / "tree/large");
    EXPECT_EQ(look(), (std::pair{SaveSource::Status::changed, std::uint64_t{3}}));
    EXPECT_EQ(look(), (std::pair{SaveSource::Status::unchanged, std::uint64_t{3}}));
}

TEST(SavedImage, FollowsADiskThatChangesAndGrowsWhileItIsSaved) {
    SKIP_UNLESS_ROOT();
    SavingMachine world;
    auto disk = world.disk("A", "hfs+", "192M");
    disk.capacity = ByteCount{1U << 20U};
    const auto onto = world.disk("Onto", "hfs+", "192M");
    plant(*disk.mountPoint);
    const auto wanted = world.request(disk);
    const auto source = world.tool.openSource(wanted);
    const auto image = source->begin(world.files.latest, wanted);
    for (const auto& [name, size] : {std::pair{"first", 1U}, {"second", 150U << 20U}, {"third", 9U}}) {
        writeFile(*disk.mountPoint / "tree/changing", name);
        writeFile(*disk.mountPoint / "tree" / name, std::string(size, 'x'));
        EXPECT_EQ(source->takeStatus({}), SaveSource::Status::changed);
        image->fill({});
    }
    EXPECT_EQ(source->takeStatus({}), SaveSource::Status::unchanged);
    image->close();
    world.tool.verify(world.files.latest, {});
    EXPECT_TRUE(world.isUpToDate(disk));
    world.restore(onto);
    EXPECT_EQ(SavingMachine::difference(disk, onto), "");
}

} // namespace
} // namespace ramdisk::test
