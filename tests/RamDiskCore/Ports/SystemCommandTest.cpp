#include "tests/support/ScriptedRunner.h"

namespace ramdisk::test {
namespace {

const SystemCommand attach{"/usr/bin/hdiutil", {"attach", "a b", "-stdinpass"}, "open sesame", std::nullopt};

TEST(CommandOutputTest, SummaryIsTheLastLineThatSaysSomething) {
    const struct {
        CommandOutput output;
        const char* summary;
    } rows[] = {
        {{1, "", "hdiutil: attach failed - Resource busy\n"}, "hdiutil: attach failed - Resource busy"},
        {{1, "", "first\n second\t\n\n  \n"}, "second"},
        {{1, "out", "no such disk\nUSAGE: diskutil list\n  usage again\n"}, "no such disk"},
        {{1, "told on output\n", "Usage: tool\n"}, "told on output"},
        {{1, "", "one\vtwo\fthree\rfour"}, "four"},
        {{1, "", "one\u0085two\u2028three\u2029"}, "three"},
        {{1, "", "broken \xFF\r\n"}, "broken \uFFFD"},
        {{1, "", "us\n"}, "us"},
        {{3, " \n", ""}, "exit code 3"},
        {{-1, "", ""}, "exit code -1"},
        {{137, "", "", 9}, "ended by signal 9"},
        {{137, "", "killed by me\n", 9}, "killed by me"}};
    for (const auto& row : rows) {
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
    test::ScriptedRunner runner;
    runner.once(attach.description(), {0, "disk5", "a warning"});
    EXPECT_EQ(runner.runChecked(attach).standardOutput, "disk5");
    for (const auto& output : {CommandOutput{16, "", "busy\n"}, CommandOutput{0, "", "busy\n", 15}}) {
        runner.once(attach.description(), output);
        try {
            runner.runChecked(attach);
            ADD_FAILURE() << "did not throw";
        } catch (const CommandFailure& failure) {
            EXPECT_STREQ(failure.what(), "hdiutil: busy");
            EXPECT_EQ(failure.output(), output);
        }
    }
}

} // namespace
} // namespace ramdisk::test
