#include "RamDiskInfrastructure/Stores/FileProfileRepository.h"
#include "tests/support/Linux/TestMachine.h"
#include "tests/support/Linux/TestMount.h"
#include "tests/support/ScratchFolder.h"

#include <gtest/gtest.h>

#include <system_error>

namespace ramdisk::test {
namespace {

using List = std::vector<RamDiskProfile>;

List profiles(std::size_t count) {
    return List(count, RamDiskProfile{.id = UUID::random(), .name = "A", .size = {1024}});
}

TEST(FullDisk, LeavesTheOldListAndNothingElse) {
    SKIP_UNLESS_ROOT();
    const TestMachine machine;
    const ScratchFolder scratch;
    const TmpfsMount small(scratch.path(), "size=64k");
    FileProfileRepository repository(scratch.path());
    const auto list = profiles(3);
    repository.update([&](const List&) { return list; });
    const auto names = scratch.names();
    for (const bool isDamaged : {false, true}) {
        if (isDamaged) {
            scratch.write("Startup Disks.json", "damaged");
        }
        try {
            repository.update([](const List&) { return profiles(2000); });
            ADD_FAILURE() << "there was room";
        } catch (const std::system_error& error) {
            EXPECT_EQ(error.code(), std::errc::no_space_on_device);
        }
        if (isDamaged) {
            EXPECT_EQ(scratch.read("Startup Disks.json"), "damaged");
        } else {
            EXPECT_EQ(repository.load(), list);
        }
        EXPECT_EQ(scratch.names(), names);
    }
    repository.update([&](const List&) { return list; });
    EXPECT_EQ(scratch.names().size(), names.size() + 1) << "what was damaged is set aside";
}

} // namespace
} // namespace ramdisk::test
