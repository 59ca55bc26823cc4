#include "tests/RamDiskInfrastructure/Linux/SavedContents/SavingMachine.h"
#include "tests/support/Linux/KillLoop.h"

namespace ramdisk::test {
namespace {

/// Bytes that no file system stores in less.
void plantBytes(const RamDisk& disk, std::size_t mebibytes) {
    std::string bytes(mebibytes << 20U, '\0');
    unsigned state = 1;
    for (auto& byte : bytes) {
        state = state * 1664525U + 1013904223U;
        byte = static_cast<char>(state >> 24U);
    }
    writeFile(*disk.mountPoint / "large", bytes);
}

TEST(SavedImage, SaysSoWhenTheSystemDiskIsFull) {
    SKIP_UNLESS_ROOT();
    SavingMachine world;
    const auto disk = world.disk("A");
    plantBytes(disk, 16);
    struct Row {
        const char* size;
        /// Whether it could be told beforehand.
        bool isRefusedAtOnce;
    };
    for (const auto& row : {Row{"8m", true}, Row{"16500k", false}}) {
        SCOPED_TRACE(row.size);
        ASSERT_EQ(mount("small", world.images.c_str(), "tmpfs", 0, (std::string("size=") + row.size).c_str()),
                  0);
        const auto wanted = world.request(disk);
        {
            const auto source = world.tool.openSource(wanted);
            const auto partial = SavedCopyNames{world.files}.partial();
            std::unique_ptr<PartialImage> image;
            const auto refusal = failureOf([&] { image = source->begin(partial, wanted); });
            EXPECT_EQ(refusal != "none", row.isRefusedAtOnce) << refusal;
            const auto failure = row.isRefusedAtOnce ? refusal : failureOf([&] {
                image->fill({});
                image->close();
            });
            EXPECT_THAT(failure, HasSubstr("contentsTransferFailed: the system disk has only "));
        }
        EXPECT_THAT(world.loopsUpon(world.images), IsEmpty());
        EXPECT_EQ(umount2(world.images.c_str(), 0), 0) << "nothing has the image open";
    }
}

TEST(SavedImage, LeavesNeitherMountNorDeviceNorHalfAnImageWhenItsProcessIsKilled) {
    SKIP_UNLESS_ROOT();
    SavingMachine world;
    const auto disk = world.disk("A", "hfs+", "64M");
    plantBytes(disk, 40);
    fs::create_directory(*disk.mountPoint / "tree");
    const auto partial = SavedCopyNames{world.files}.partial();
    const auto mountsBefore = mountsWith("/");
    int whole = 0;
    const auto work = [&] {
        const auto wanted = world.request(disk);
        const auto source = world.tool.openSource(wanted);
        const auto image = source->begin(partial, wanted);
        image->fill({});
        _exit(source->takeStatus({}) == SaveSource::Status::unchanged ? (image->close(), 0) : 1);
    };
    const auto check = [&](std::optional<int> status) {
        EXPECT_EQ(status.value_or(0), 0);
        for (int tries = 0; tries < 200 && !world.loopsUpon(world.images).empty(); ++tries) {
            usleep(10000);
        }
        EXPECT_THAT(world.loopsUpon(world.images), IsEmpty());
        EXPECT_EQ(mountsWith("/"), mountsBefore);
        if (fs::exists(partial)) {
            fs::rename(partial, world.files.latest);
            const auto failure = failureOf([&] { world.tool.verify(world.files.latest, {}); });
            EXPECT_TRUE(failure != "none" || world.isUpToDate(disk)) << "half an image is none";
            whole += failure == "none" ? 1 : 0;
            fs::remove(world.files.latest);
        }
    };
    constexpr int points = 16;
    killAtEveryCall({[] {}, work, check, points});
    EXPECT_LT(whole, points) << "some were killed half way";
    world.save(disk);
    EXPECT_TRUE(world.isUpToDate(disk));
}

TEST(SavedImage, NeedsADiskThatIsThereAndTheRightToMount) {
    SKIP_UNLESS_ROOT();
    SavingMachine world;
    const auto disk = world.disk("A");
    auto other = disk;
    other.instance = UUID::random();
    auto away = disk;
    away.mountPoint = world.images;
    for (const auto& missing : {other, away}) {
        EXPECT_EQ(failureOf([&] { static_cast<void>(world.tool.openSource(world.request(missing))); }),
                  "diskEjected");
    }
    {
        const auto source = world.tool.openSource(world.request(disk));
        EXPECT_TRUE(source->isPresent());
        ASSERT_EQ(umount2(disk.mountPoint->c_str(), MNT_DETACH), 0);
        EXPECT_FALSE(source->isPresent());
    }
    LoopImageTool without(world.machine.host(HostRung::folder), std::make_shared<ProcessCommandRunner>());
    EXPECT_THAT(failureOf([&] { static_cast<void>(without.openSource(world.request(disk))); }),
                HasSubstr("keeping files needs the right to mount"));
    EXPECT_THAT(failureOf([&] {
                    without.restore({world.files.latest, world.files, disk}, {});
                }),
                HasSubstr("needs the right to mount"));
}

} // namespace
} // namespace ramdisk::test
