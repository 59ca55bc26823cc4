#include "tests/RamDiskInfrastructure/Linux/SavedContents/SavingMachine.h"

#include <csignal>

#include <sys/mount.h>
#include <unistd.h>

namespace ramdisk::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::IsEmpty;

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

TEST(SavedImage, LeavesNeitherMountNorDeviceWhenItsProcessIsKilled) {
    SKIP_UNLESS_ROOT();
    SavingMachine world;
    const auto disk = world.disk("A", "hfs+", "64M");
    plantBytes(disk, 40);
    const auto partial = SavedCopyNames{world.files}.partial();
    const auto mountsBefore = mountsWith("/");
    enum class Moment { begun, filling, filled };
    for (const auto moment : {Moment::begun, Moment::filling, Moment::filled}) {
        SCOPED_TRACE(static_cast<int>(moment));
        int ready[2] = {-1, -1};
        ASSERT_EQ(pipe(ready), 0);
        const pid_t child = fork();
        if (child == 0) {
            const auto reached = [&] {
                static_cast<void>(!write(ready[1], "r", 1));
                pause();
            };
            const auto wanted = world.request(disk);
            const auto source = world.tool.openSource(wanted);
            const auto image = source->begin(partial, wanted);
            if (moment == Moment::begun) {
                reached();
            }
            image->fill([&](const TransferProgress& progress) {
                if (moment == Moment::filling && progress.bytes > 0) {
                    reached();
                }
            });
            reached();
        }
        close(ready[1]);
        char byte = 0;
        EXPECT_EQ(read(ready[0], &byte, 1), 1);
        EXPECT_THAT(world.loopsUpon(world.images), testing::SizeIs(1));
        kill(child, SIGKILL);
        EXPECT_EQ(waitFor(child), 128 + SIGKILL);
        close(ready[0]);
        for (int tries = 0; tries < 200 && !world.loopsUpon(world.images).empty(); ++tries) {
            usleep(10000);
        }
        EXPECT_THAT(world.loopsUpon(world.images), IsEmpty());
        EXPECT_EQ(mountsWith("/"), mountsBefore);
        // Half an image is not taken for one.
        if (moment != Moment::filled) {
            fs::rename(partial, world.files.latest);
            EXPECT_EQ(failureOf([&] { world.restore(disk); }), "imageUnreadable");
            fs::remove(world.files.latest);
        }
        fs::remove(partial);
    }
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
