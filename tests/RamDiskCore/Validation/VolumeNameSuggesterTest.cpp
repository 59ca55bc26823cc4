#include "RamDiskCore/Validation/VolumeNameSuggester.h"

#include <gtest/gtest.h>

#include <vector>

namespace ramdisk {
namespace {

TEST(VolumeNameSuggesterTest, CountsOnFromTheUnchangedBase) {
    struct Row {
        std::vector<std::string> taken;
        const char* suggestion;
    };
    for (const auto& row : {
             Row{{}, "RAMDisk"},
             Row{{"Other"}, "RAMDisk"},
             Row{{"ramdisk", "RAMDisk 2"}, "RAMDisk 3"},
             Row{{"RÀMDISK "}, "RAMDisk 2"},
             Row{{"RAMDisk 2"}, "RAMDisk"},
             Row{{"RAMDisk", "RAMDisk 3"}, "RAMDisk 2"},
             Row{{"RAMDisk", "ramdisk 2", "RAMDisk 3"}, "RAMDisk 4"},
         }) {
        EXPECT_EQ(VolumeNameSuggester::suggest("RAMDisk", row.taken), row.suggestion);
    }
}

} // namespace
} // namespace ramdisk
