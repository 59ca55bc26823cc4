#include "RamDiskInfrastructure/Commands/ProcessCommandRunner.h"

#include "RamDiskInfrastructure/Commands/FileDescriptor.h"
#include "tests/support/TraceRecorder.h"

#include <cerrno>

namespace ramdisk::test {
namespace {

using namespace std::chrono_literals;

SystemCommand shell(std::string script) {
    return {"/bin/sh", {"-c", std::move(script)}, std::nullopt, std::nullopt};
}

CommandOutput runShell(std::string script) {
    return ProcessCommandRunner().run(shell(std::move(script)));
}

/// The errno and text of a launch that must fail.
std::system_error launchError(const SystemCommand& command) {
    try {
        (void)ProcessCommandRunner().run(command);
    } catch (const std::system_error& error) {
        return error;
    }
    ADD_FAILURE() << command.description() << " was started";
    return std::system_error(std::error_code());
}

TEST(ProcessCommandRunner, TellsHowTheChildEnded) {
    EXPECT_EQ(runShell("echo out; echo err >&2"), (CommandOutput{0, "out\n", "err\n", std::nullopt}));
    EXPECT_EQ(runShell("exit 255"), (CommandOutput{255, "", "", std::nullopt}));
    EXPECT_EQ(runShell("exit 143"), (CommandOutput{143, "", "", std::nullopt}));
    EXPECT_EQ(runShell("echo x; kill -TERM $$"), (CommandOutput{143, "x\n", "", SIGTERM}));
    EXPECT_EQ(runShell("kill -KILL $$").signal, SIGKILL);
    const auto output = runShell("printf 'a\\377\\000\\303('");
    EXPECT_EQ(output.standardOutput, std::string("a\xFF\0\xC3(", 5));
    EXPECT_EQ(output.standardOutputText(), std::string("a\uFFFD\0\uFFFD(", 9));
}

TEST(ProcessCommandRunner, PassesArgumentsAsTheyAre) {
    const auto output =
        ProcessCommandRunner().run({"/usr/bin/printf", {"<%s>", "", "a b", "$HOME", "*", "\"q'"}, {}, {}});
    EXPECT_EQ(output.standardOutput, "<><a b><$HOME><*><\"q'>");
    EXPECT_EQ(launchError({"/bin/echo", {std::string("a\0b", 3)}, {}, {}}).code().value(), EINVAL);
}

TEST(ProcessCommandRunner, TracesAndTellsTheCommandAndHowItEndedButNeverItsInput) {
    auto& recorder = test::TraceRecorder::shared();
    static_cast<void>(recorder.take());
    auto command = shell("cat; cat >&2; exit 3");
    command.standardInput = "secret";
    EXPECT_EQ(ProcessCommandRunner().run(command).exitCode, 3);
    const auto told = recorder.take();
    EXPECT_THAT(told, testing::ContainsRegex(
                          "^commands: /bin/sh -c cat; cat >&2; exit 3: exit status 3 in [0-9.]+ ms\n$"));
    const auto missing = launchError({"/no/such/tool", {"a"}, "secret", 1.0});
    EXPECT_EQ(missing.code(), std::errc::no_such_file_or_directory);
    EXPECT_STREQ(missing.what(), "could not start “/no/such/tool”: No such file or directory");
    EXPECT_EQ(recorder.take(), std::string("commands: /no/such/tool a: ") + missing.what() + "\n");
    EXPECT_EQ(launchError({"/etc/passwd", {}, {}, {}}).code(), std::errc::permission_denied);
    EXPECT_EQ(launchError({"/etc", {}, {}, {}}).code(), std::errc::permission_denied);
}

TEST(ProcessCommandRunner, FeedsInputWhileItCollectsHugeOutputOfBothStreams) {
    const auto output =
        runShell("head -c 30000000 /dev/zero & head -c 20000000 /dev/zero >&2; wait; printf end");
    EXPECT_TRUE(output.standardOutput == std::string(30'000'000, '\0') + "end");
    EXPECT_EQ(output.standardError.size(), 20'000'000U);
    std::string bytes(10 << 20, '\0');
    for (std::size_t index = 0; index < bytes.size(); ++index) {
        bytes[index] = static_cast<char>(index * 31 >> 3);
    }
    EXPECT_TRUE(ProcessCommandRunner().run({"/bin/cat", {}, bytes, 60.0}).standardOutput == bytes);
    EXPECT_EQ(ProcessCommandRunner().run({"/bin/cat", {}, "", {}}).standardOutput, "");
    EXPECT_EQ(runShell("cat; echo over").standardOutput, "over\n");
}

TEST(ProcessCommandRunner, InputThatNobodyReadsDoesNoHarm) {
    auto command = shell("exec <&-; echo done");
    command.standardInput = std::string(10 << 20, 'x');
    EXPECT_EQ(ProcessCommandRunner().run(command).standardOutput, "done\n");
    sigset_t pending;
    sigpending(&pending);
    EXPECT_FALSE(sigismember(&pending, SIGPIPE));
}

TEST(ProcessCommandRunner, KillsWhatIgnoresTheLimit) {
    static_cast<void>(test::TraceRecorder::shared().take());
    const auto start = std::chrono::steady_clock::now();
    auto command = shell("trap '' TERM; while :; do sleep 0.1; done").withTimeout(0.2);
    command.standardInput = "secret";
    try {
        (void)ProcessCommandRunner().run(command);
        ADD_FAILURE() << "the limit did not hold";
    } catch (const CommandTimeout& timeout) {
        EXPECT_STREQ(timeout.what(), "sh did not finish in 0 seconds");
        EXPECT_EQ(timeout.command().standardInput, std::nullopt);
        EXPECT_THAT(timeout.command().description(), Not(HasSubstr("secret")));
    }
    EXPECT_GE(std::chrono::steady_clock::now() - start, 2200ms);
    const auto told = test::TraceRecorder::shared().take();
    EXPECT_THAT(told, HasSubstr("commands: sh is not done in 0.2 seconds and gets signal 15\n"));
    EXPECT_THAT(told, HasSubstr("gets signal 9\n"));
    EXPECT_THAT(told, Not(HasSubstr("secret")));
}

TEST(ProcessCommandRunner, ReportsTheLimitEvenWhenTheChildFinishedItsWork) {
    EXPECT_THROW((void)ProcessCommandRunner().run(
                     shell("trap 'echo done; exit 0' TERM; while :; do sleep 0.05; done").withTimeout(0.3)),
                 CommandTimeout);
    EXPECT_THROW((void)ProcessCommandRunner().run(shell("exec sleep 60").withTimeout(0)), CommandTimeout);
    EXPECT_EQ(ProcessCommandRunner().run(shell("echo in time").withTimeout(60)).standardOutput, "in time\n");
}

TEST(ProcessCommandRunner, AGrandchildThatKeepsThePipeOpenHoldsNothingUp) {
    for (const std::optional<double> limit : {std::optional(0.6), std::optional<double>()}) {
        auto command = shell("sleep 60 & echo $!; while echo y; do sleep 0.02; done & exit 7");
        command.timeout = limit;
        const auto output = ProcessCommandRunner().run(command);
        EXPECT_EQ(output.exitCode, 7);
        EXPECT_EQ(kill(std::stoi(output.standardOutput), SIGKILL), 0);
        EXPECT_THAT(output.standardOutput, HasSubstr("y\n")); // The loop ends by its broken pipe.
    }
    const auto late = runShell("(sleep 0.3; echo late) & echo early");
    EXPECT_EQ(late.standardOutput, "early\nlate\n");
}

TEST(ProcessCommandRunner, ChildrenInheritNothingButTheirStreams) {
    std::vector<FileDescriptor> leaks;
    for (int index = 0; index < 20; ++index) {
        leaks.emplace_back(open("/dev/zero", O_RDONLY));
    }
    sigset_t blocked;
    sigset_t before;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &blocked, &before);
    const auto previous = std::signal(SIGPIPE, SIG_IGN);
    const auto descriptors = ProcessCommandRunner().run({"/bin/ls", {"/proc/self/fd"}, {}, {}});
    const auto signals = ProcessCommandRunner().run({"/bin/grep", {"^Sig[BI]", "/proc/self/status"}, {}, {}});
    std::signal(SIGPIPE, previous);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    // The fourth is the one that ls opens itself.
    EXPECT_EQ(descriptors.standardOutput, "0\n1\n2\n3\n");
    EXPECT_THAT(signals.standardOutput, HasSubstr("SigBlk:\t0000000000000000\nSigIgn:\t"));
    // The C library may leave its own two signals ignored.
    const auto ignored = signals.standardOutput.substr(signals.standardOutput.rfind('\t') + 1);
    EXPECT_EQ(std::stoull(ignored, nullptr, 16) & (1ULL << (SIGPIPE - 1)), 0U);
}

TEST(ProcessCommandRunner, ForcesTheLocaleAndPassesOnTheRestOfTheEnvironment) {
    setenv("LC_ALL", "de_DE.UTF-8", 1);
    setenv("LANGUAGE", "de", 1);
    setenv("RUNNER_TEST", "a=b", 1);
    const auto output = runShell("env | grep -E '^(LC_ALL|LANGUAGE|RUNNER_TEST)=' | sort");
    for (const auto* name : {"LC_ALL", "LANGUAGE", "RUNNER_TEST"}) {
        unsetenv(name);
    }
    EXPECT_EQ(output.standardOutput, "LC_ALL=C.UTF-8\nRUNNER_TEST=a=b\n");
}

TEST(ProcessCommandRunner, WorksWithTheStandardDescriptorsClosed) {
    std::array<FileDescriptor, 3> kept;
    for (int number = 0; number < 3; ++number) {
        kept[static_cast<std::size_t>(number)] = FileDescriptor(fcntl(number, F_DUPFD_CLOEXEC, 10));
        close(number);
    }
    auto command = shell("cat; echo err >&2");
    command.standardInput = "fed ";
    const auto fed = ProcessCommandRunner().run(command);
    const auto unfed = runShell("cat; echo err >&2");
    for (int number = 0; number < 3; ++number) {
        dup2(kept[static_cast<std::size_t>(number)].get(), number);
    }
    EXPECT_EQ(fed, (CommandOutput{0, "fed ", "err\n", std::nullopt}));
    EXPECT_EQ(unfed, (CommandOutput{0, "", "err\n", std::nullopt}));
}

TEST(ProcessCommandRunner, ManyRunsAtOnceDoNotMeet) {
    std::vector<std::future<void>> threads;
    for (int thread = 0; thread < 8; ++thread) {
        threads.push_back(std::async(std::launch::async, [thread] {
            for (int run = 0; run < 20; ++run) {
                const auto text = std::to_string(thread * 100 + run);
                auto command = shell("cat; exit " + std::to_string(run)).withTimeout(60);
                command.standardInput = text;
                EXPECT_EQ(ProcessCommandRunner().run(command), (CommandOutput{run, text, "", std::nullopt}));
            }
        }));
    }
}

} // namespace
} // namespace ramdisk::test
