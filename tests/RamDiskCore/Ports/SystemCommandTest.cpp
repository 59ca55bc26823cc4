#include "RamDiskCore/Ports/CommandRunning.h"

#include <gtest/gtest.h>

namespace ramdisk {
namespace {

/// Ends every command in the same way.
class FixedRunner final : public CommandRunning {
public:
    explicit FixedRunner(CommandOutput output) : output_(std::move(output)) {}

    CommandOutput run(const SystemCommand& /*command*/) override { return output_; }

private:
    CommandOutput output_;
};

const SystemCommand attach{"/usr/bin/hdiutil", {"attach", "a b", "-stdinpass"}, "open sesame", std::nullopt};

TEST(CommandOutputTest, SummaryIsTheLastLineThatSaysSomething) {
    struct Row {
        CommandOutput output;
        const char* summary;
    };
    for (const auto& row : {
             Row{{1, "", "hdiutil: attach failed - Resource busy\n"},
                 "hdiutil: attach failed - Resource busy"},
             Row{{1, "", "first\n second\t\n\n  \n"}, "second"},
             Row{{1, "out", "no such disk\nUSAGE: diskutil list\n  usage again\n"}, "no such disk"},
             Row{{1, "told on output\n", "Usage: tool\n"}, "told on output"},
             Row{{1, "", "one\vtwo\fthree\rfour"}, "four"},
             Row{{1, "", "one\u0085two\u2028three\u2029"}, "three"},
             Row{{1, "", "broken \xFF\r\n"}, "broken \uFFFD"},
             Row{{1, "", "us\n"}, "us"},
             Row{{3, " \n", ""}, "exit code 3"},
             Row{{-1, "", ""}, "exit code -1"},
             Row{{137, "", "", 9}, "ended by signal 9"},
             Row{{137, "", "killed by me\n", 9}, "killed by me"},
         }) {
        EXPECT_EQ(row.output.summary(), row.summary);
    }
}

TEST(SystemCommandTest, DescriptionsAndErrorsNeverCarryTheInput) {
    EXPECT_EQ(attach.description(), "/usr/bin/hdiutil attach a b -stdinpass");
    EXPECT_EQ(CommandTimeout(attach).command().standardInput, std::nullopt);
    EXPECT_EQ(CommandFailure(attach, {1, "", ""}).command().standardInput, std::nullopt);
    EXPECT_EQ(CommandFailure(attach, {1, "", ""}).command().arguments, attach.arguments);
}

TEST(SystemCommandTest, TimeoutsNameTheToolAndWholeSeconds) {
    EXPECT_STREQ(CommandTimeout(attach.withTimeout(30)).what(), "hdiutil did not finish in 30 seconds");
    EXPECT_STREQ(CommandTimeout(attach.withTimeout(1.99)).what(), "hdiutil did not finish in 1 seconds");
    EXPECT_STREQ(CommandTimeout(attach).what(), "hdiutil did not finish in 0 seconds");
}

TEST(CommandRunningTest, ACheckedRunThrowsWhatTheToolSaid) {
    EXPECT_EQ(FixedRunner({0, "disk5", "a warning"}).runChecked(attach).standardOutput, "disk5");
    for (const auto& output : {CommandOutput{16, "", "busy\n"}, CommandOutput{0, "", "busy\n", 15}}) {
        try {
            FixedRunner(output).runChecked(attach);
            ADD_FAILURE() << "did not throw";
        } catch (const CommandFailure& failure) {
            EXPECT_STREQ(failure.what(), "hdiutil: busy");
            EXPECT_EQ(failure.output(), output);
        }
    }
}

} // namespace
} // namespace ramdisk
