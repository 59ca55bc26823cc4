#include "RamDiskCore/Values/RamDiskError.h"
#include "RamDiskInfrastructure/Commands/ProcessCommandRunner.h"
#include "RamDiskInfrastructure/Linux/Disks/LinuxDeviceAllocator.h"
#include "RamDiskInfrastructure/Linux/Disks/LinuxVolumeFormatter.h"
#include "RamDiskInfrastructure/Linux/Host/SystemTools.h"
#include "RamDiskInfrastructure/Linux/Mounting/DetachedMount.h"
#include "RamDiskInfrastructure/Linux/Mounting/Fscrypt.h"
#include "RamDiskInfrastructure/Linux/Mounting/LoopDevice.h"
#include "RamDiskInfrastructure/Linux/Volumes/LoopVolumeRoot.h"
#include "tests/support/Linux/TestMachine.h"
#include "tests/support/TraceRecorder.h"

#include <gmock/gmock.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace ramdisk {
namespace {

using testing::IsEmpty;

namespace fs = std::filesystem;

#define SKIP_UNLESS_FSCRYPT()                                                                                \
    SKIP_UNLESS_ROOT();                                                                                      \
    if (!Fscrypt::isSupported()) {                                                                           \
        GTEST_SKIP() << "this kernel's ext4 does not encrypt";                                               \
    }                                                                                                        \
    static_assert(true)

/// An ext4 in an ordinary file, mounted out of sight for as long as this lives.
class Mounted {
public:
    explicit Mounted(const fs::path& image)
        : loop_(LoopDevice::attach(FileDescriptor(open(image.c_str(), O_RDWR | O_CLOEXEC)), "test",
                                   ByteCount{fs::file_size(image)})),
          mount_({"ext4", loop_.path().string(), {}}, MountInterface::descriptors) {}

    [[nodiscard]] const FileDescriptor& root() const { return mount_.root(); }
    [[nodiscard]] FileDescriptor folder() const {
        return FileDescriptor(openat(root().get(), "volume", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    }

private:
    LoopDevice loop_;
    DetachedMount mount_;
};

std::string below(int folder, const std::string& name) {
    return "/proc/self/fd/" + std::to_string(folder) + "/" + name;
}

TEST(Fscrypt, OnlyTheRightPassphraseReadsAFolderThatIsMountedAnew) {
    SKIP_UNLESS_FSCRYPT();
    const test::TestMachine machine;
    const auto image = machine.folder() / "image";
    test::writeFile(image, "");
    fs::resize_file(image, std::uintmax_t{16} << 20U);
    ProcessCommandRunner runner;
    runner.runChecked({*findSystemTool("mkfs.ext4"), {"-q", "-F", "-O", "encrypt", image}, {}, 60.0});
    const VolumePassphrase right("right");
    {
        const Mounted mounted(image);
        const auto folder =
            LoopVolumeRoot(mounted.root()).makeEncryptedFolder(right, machine.host(HostRung::kernel));
        test::writeFile(below(folder.get(), "name"), "contents");
        syncfs(folder.get());
    }
    const Mounted mounted(image);
    const auto folder = mounted.folder();
    const auto isLocked = [&] { return !fs::exists(below(folder.get(), "name")); };
    EXPECT_TRUE(isLocked());
    for (const char* wrong : {"wrong", "", "right "}) {
        try {
            Fscrypt::unlock(mounted.root().get(), folder.get(), VolumePassphrase(wrong));
            ADD_FAILURE() << wrong;
        } catch (const RamDiskError& error) {
            EXPECT_EQ(error, RamDiskError(RamDiskError::IncorrectPassphrase{}));
        }
        EXPECT_TRUE(isLocked()) << wrong;
    }
    Fscrypt::unlock(mounted.root().get(), folder.get(), right);
    EXPECT_EQ(test::readFile(below(folder.get(), "name")), "contents");
    EXPECT_THROW(Fscrypt::unlock(mounted.root().get(), mounted.root().get(), right), std::runtime_error)
        << "a folder that is not encrypted has nothing to unlock";
}

TEST(EncryptedDisk, NeverShowsItsPassphraseNorItsFilesOnItsDevice) {
    SKIP_UNLESS_FSCRYPT();
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
} // namespace ramdisk
