#include "RamDiskCore/Validation/VolumeNameSuggester.h"

#include "tests/support/Testing.h"

namespace ramdisk {
namespace {

TEST(VolumeNameSuggesterTest, CountsOnFromTheUnchangedBase) {
    const struct {
        std::vector<std::string> taken;
        const char* suggestion;
    } rows[] = {{{}, "RAMDisk"},
                {{"Other"}, "RAMDisk"},
                {{"ramdisk", "RAMDisk 2"}, "RAMDisk 3"},
                {{"RÀMDISK "}, "RAMDisk 2"},
                {{"RAMDisk 2"}, "RAMDisk"},
                {{"RAMDisk", "RAMDisk 3"}, "RAMDisk 2"},
                {{"RAMDisk", "ramdisk 2", "RAMDisk 3"}, "RAMDisk 4"}};
    for (const auto& row : rows) {
        EXPECT_EQ(VolumeNameSuggester::suggest("RAMDisk", row.taken), row.suggestion);
    }
}

} // namespace
} // namespace ramdisk
