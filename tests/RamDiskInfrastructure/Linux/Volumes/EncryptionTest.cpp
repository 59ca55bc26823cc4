#include "RamDiskInfrastructure/Linux/Disks/LinuxDeviceAllocator.h"
#include "RamDiskInfrastructure/Linux/Disks/LinuxVolumeFormatter.h"
#include "RamDiskInfrastructure/Linux/Mounting/Fscrypt.h"
#include "RamDiskInfrastructure/Linux/Mounting/LoopDevice.h"
#include "tests/support/Linux/TestMachine.h"
#include "tests/support/TraceRecorder.h"

namespace ramdisk::test {
namespace {

TEST(EncryptedDisk, NeverShowsItsPassphraseNorItsFilesOnItsDevice) {
    SKIP_UNLESS_ROOT();
    if (!Fscrypt::isSupported()) {
        GTEST_SKIP() << "this kernel's ext4 does not encrypt";
    }
    const std::string secret = "5e0c2b17-passphrase-of-the-test";
    const std::string content =
        "known content that fills more than an inode: " + std::string(5000, '#') + "end";
    auto& trace = test::TraceRecorder::shared();
    static_cast<void>(trace.take());
    for (const bool isEncrypted : {true, false}) {
        const test::TestMachine machine;
        auto context = std::make_shared<LinuxContext>(machine.host(HostRung::kernel));
        const auto making = std::make_shared<PendingRecords>();
        LinuxDeviceAllocator allocator(context, making);
        LinuxVolumeFormatter formatter(context, making);
        RamDiskSpecification specification;
        specification.name = "Label-of-the-test";
        specification.size = minimumSize(FileSystem::apfs);
        specification.fileSystem = FileSystem::apfs;
        specification.isEncrypted = isEncrypted;
        VolumeProtection protection;
        if (isEncrypted) {
            protection.value = VolumeProtection::Encrypted{VolumePassphrase(secret)};
        }
        const auto device = allocator.allocate(specification.size);
        const auto volume = formatter.format(device, specification, protection);
        allocator.settle(device);
        const auto traced = trace.take();
        EXPECT_THAT(traced, testing::HasSubstr("mkfs.ext4"));
        EXPECT_THAT(traced, testing::Not(testing::HasSubstr(secret)));

        test::writeFile(volume / "name-of-the-test", content);
        fs::create_symlink("target-of-the-test", volume / "link");
        FileDescriptor root(open(volume.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        ASSERT_EQ(syncfs(root.get()), 0);
        const auto loop = DiskRecordStore(machine.records()).readAll().at(0).loop;
        const auto raw = test::readFile(LoopDevice::pathOf(loop.value()));
        ASSERT_GE(raw.size(), specification.size.bytes);
        for (const std::string text :
             {"known content that fills", "name-of-the-test", "target-of-the-test", "Label-of-the-test"}) {
            EXPECT_EQ(raw.find(text) == std::string::npos, isEncrypted) << text;
        }
        EXPECT_EQ(raw.find(secret), std::string::npos);
        root.reset();
        EXPECT_EQ(allocator.release(device, Force::no, std::nullopt), ReleaseOutcome{});
        EXPECT_THAT(machine.traces(), IsEmpty());
    }
}

} // namespace
} // namespace ramdisk::test
