#include "RamDiskInfrastructure/Linux/LinuxPlatform.h"
#include "RamDiskInfrastructure/Linux/Mounting/Fscrypt.h"
#include "tests/support/Linux/TestMachine.h"

#include <fmt/ranges.h>

#include <regex>

#include <sched.h>
#include <sys/statvfs.h>

namespace ramdisk::test {
namespace {

constexpr const char* makerIsGone = "healed: its maker is gone (process ended)";

/// Begins to make a disk on a tmpfs and is killed before a step. @returns whether there were so many steps.
bool abandonDisk(const TestMachine& machine, const std::string& name, std::size_t killedBefore) {
    auto context = std::make_shared<LinuxContext>(machine.host(HostRung::kernel));
    std::size_t step = 0;
    context->observer = [&](std::string_view) {
        if (step++ == killedBefore) {
            raise(SIGKILL);
        }
    };
    const auto services = makeLinuxServices(context);
    const int status = inChild(geteuid(), [&] {
        RamDiskSpecification specification;
        specification.name = name;
        specification.size = ByteCount::of(16, ByteCount::Unit::mebibyte);
        services.eject->eject(services.create->execute(specification).ramDisk, Force::no);
        return 0;
    });
    machine.remember();
    return status != 0;
}

/// Every line is one of a trace, and none can steer a terminal.
void expectTraceLines(const std::string& text) {
    static const std::regex line(R"(\[ *[0-9]+\.[0-9]{3}\] [a-z]+: [^\n]+)");
    std::istringstream lines(text);
    for (std::string each; std::getline(lines, each);) {
        EXPECT_TRUE(std::regex_match(each, line)) << each;
        EXPECT_TRUE(std::none_of(each.begin(), each.end(), [](char c) {
            return (c >= 0 && c < ' ') || c == 0x7f;
        })) << each;
    }
}

TEST(Trace, TellsWhatAKilledCreationLeftAndWhatBecameOfIt) {
    SKIP_UNLESS_ROOT();
    std::size_t killedBefore = 1;
    for (;; ++killedBefore) {
        const TestMachine machine;
        // A name that would clear the screen.
        if (!abandonDisk(machine, "Scratch\x1b[2J\n\x7f", killedBefore)) {
            break;
        }
        const auto traced = machine.run({"--trace", "list", "--json"});
        EXPECT_EQ(traced.json(), nlohmann::json::array()) << killedBefore;
        EXPECT_THAT(traced.err, HasSubstr("] records: disk1 “")) << killedBefore;
        EXPECT_THAT(traced.err, HasSubstr(makerIsGone)) << killedBefore;
        expectTraceLines(traced.err);
        const auto again = machine.run({"list", "--trace"});
        EXPECT_THAT(again.err, Not(HasSubstr("healed"))) << killedBefore;
        EXPECT_THAT(machine.traces(), IsEmpty());
    }
    EXPECT_GT(killedBefore, 4U);
}

TEST(Trace, OfACreationDoesNotTakeItsOwnDiskForAnothers) {
    SKIP_UNLESS_ROOT();
    const TestMachine machine;
    const auto traced = machine.run({"--trace", "create", "--name", "Work", "--size", "8M"});
    EXPECT_EQ(traced.status, 0);
    EXPECT_THAT(traced.err, HasSubstr("“Work”: left alone: it is being made"));
}

TEST(Trace, IsPrintedOnlyWhereItIsWanted) {
    const std::vector<std::string> plan{"create", "--dry-run", "--size", "8M"};
    const auto with = [&](const char* first, const char* last) {
        auto arguments = plan;
        if (first != nullptr) {
            arguments.insert(arguments.begin(), first);
        }
        if (last != nullptr) {
            arguments.emplace_back(last);
        }
        return arguments;
    };
    const struct {
        std::vector<std::string> arguments;
        const char* variable;
        bool isTraced;
    } rows[] = {{with(nullptr, nullptr), nullptr, false},  {with("--trace", nullptr), nullptr, true},
                {with(nullptr, "--trace"), nullptr, true}, {with(nullptr, nullptr), "1", true},
                {with("--quiet", nullptr), "1", true},     {with(nullptr, nullptr), "0", false},
                {with(nullptr, nullptr), "", false}};
    for (const auto& row : rows) {
        TestMachine asked;
        if (row.variable != nullptr) {
            asked.environment["TRAMDISK_TRACE"] = row.variable;
        }
        const auto outcome = asked.run(row.arguments);
        const auto shown = fmt::format("{}, {}", fmt::join(row.arguments, " "),
                                       row.variable == nullptr ? "-" : row.variable);
        EXPECT_EQ(outcome.status, 0) << shown;
        if (row.isTraced) {
            EXPECT_THAT(outcome.err, HasSubstr("] ladder: ")) << shown;
            expectTraceLines(outcome.err);
        } else {
            EXPECT_EQ(outcome.err, "") << shown;
        }
    }
}

TEST(Trace, IsNotForWhoeverStartsAProgramWithMoreRights) {
    SKIP_UNLESS_ROOT();
    const TestMachine machine;
    struct statvfs around {};
    if (statvfs(machine.folder().c_str(), &around) != 0 || (around.f_flag & ST_NOSUID) != 0) {
        GTEST_SKIP() << "programs gain no rights here";
    }
    const auto program = machine.folder() / "program";
    fs::copy_file(TRAMDISK_EXECUTABLE, program);
    for (const mode_t mode : {0755, 04755}) {
        ASSERT_EQ(chmod(program.c_str(), mode), 0);
        const auto errors = machine.folder() / fmt::format("errors{:o}", mode);
        const int file = open(errors.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
        static_cast<void>(inChild(nobody, [&] {
            std::array<const char*, 3> variables{"TRAMDISK_TRACE=1", "HOME=/", nullptr};
            std::array<const char*, 6> arguments{program.c_str(), "create", "--dry-run",
                                                 "--size",        "8M",     nullptr};
            dup2(file, STDERR_FILENO);
            dup2(open("/dev/null", O_WRONLY), STDOUT_FILENO);
            execve(program.c_str(), const_cast<char**>(arguments.data()),
                   const_cast<char**>(variables.data()));
            return 127;
        }));
        close(file);
        EXPECT_EQ(readFile(errors).find("] ladder: ") != std::string::npos, mode == 0755) << readFile(errors);
    }
}

TEST(Trace, TellsOfARefusedMountAndWhatIsDoneInstead) {
    SKIP_UNLESS_ROOT();
    const TestMachine machine;
    const auto errors = machine.folder() / "errors";
    // All rights in a namespace of users of its own, and none over the mounts.
    const int status = inChild(geteuid(), [&] {
        if (unshare(CLONE_NEWUSER) != 0) {
            return 100;
        }
        writeFile("/proc/self/uid_map", "0 0 1");
        writeFile("/proc/self/setgroups", "deny");
        writeFile("/proc/self/gid_map", "0 0 1");
        const auto outcome = machine.run({"--trace", "create", "--size", "8M", "--name", "Refused"});
        writeFile(errors, outcome.err);
        return outcome.status;
    });
    if (status == 100) {
        GTEST_SKIP() << "no namespace of users here";
    }
    EXPECT_EQ(status, 0);
    EXPECT_THAT(readFile(errors), HasSubstr("] ladder: kernel: this process may mount\n"));
    EXPECT_THAT(readFile(errors),
                HasSubstr("] ladder: the kernel refuses, so the disk becomes a folder: could not "
                          "mount a tmpfs: Operation not permitted\n"));
    machine.remember();
}

/// The ways in which a key could be written down.
std::vector<std::string> formsOf(const std::string& key) {
    static constexpr std::string_view digits =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string lower;
    std::string upper;
    std::string numbers;
    std::string base64;
    unsigned bits = 0;
    int count = 0;
    for (const char character : key) {
        const auto byte = static_cast<unsigned char>(character);
        lower += fmt::format("{:02x}", byte);
        upper += fmt::format("{:02X}", byte);
        numbers += fmt::format("{}, ", byte);
        bits = bits << 8U | byte;
        for (count += 8; count >= 6; count -= 6) {
            base64 += digits[bits >> static_cast<unsigned>(count - 6) & 63U];
        }
    }
    return {key, lower, upper, numbers, base64};
}

/// Also not in part: no run of ten bytes of any form.
void expectNoPartOf(const std::string& key, const std::string& text) {
    ASSERT_GT(key.size(), 20U);
    for (const auto& form : formsOf(key)) {
        for (std::size_t start = 0; start + 10 <= form.size(); ++start) {
            ASSERT_EQ(text.find(form.substr(start, 10)), std::string::npos) << "a key is in the trace";
        }
    }
}

TEST(Trace, TellsOfTheKeyringAndTheToolsAndNeverASecret) {
    SKIP_UNLESS_ROOT();
    if (!Fscrypt::isSupported()) {
        GTEST_SKIP() << "this kernel's ext4 does not encrypt";
    }
    TestMachine machine;
    machine.environment["TRAMDISK_TRACE"] = "1";
    ASSERT_EQ(machine.run({"settings", "set", "allowsKeyFile", "true"}).status, 0);
    const auto made = machine.run({"create", "--json", "--name", "Vault", "--size", "64M", "--format", "apfs",
                                   "--encrypt", "--at-launch", "--keep-files"});
    ASSERT_EQ(made.status, 0) << made.err;
    EXPECT_THAT(made.err,
                testing::ContainsRegex("] commands: /[a-z/]*mkfs.ext4 .*: exit status 0 in [0-9.]+ ms\n"));
    const std::string content = "what nobody else may read";
    writeFile(fs::path(made.json().at("ramDisk").at("mountPoint")) / "file", content);
    const auto saved = machine.run({"save", "--verify", "Vault"});
    ASSERT_EQ(saved.status, 0) << saved.err;
    EXPECT_THAT(saved.err, HasSubstr("] keyring: the key is kept in a file: "));
    EXPECT_THAT(saved.err, HasSubstr("] save: starting with an empty image of "));
    const auto ejected = machine.run({"eject", "Vault"});
    const auto back = machine.run({"startup", "create", "Vault"});
    EXPECT_EQ(back.status, 0) << back.err;
    const auto told = made.err + saved.err + ejected.err + back.err;
    expectTraceLines(told);
    EXPECT_THAT(told, Not(HasSubstr(content)));
    int keys = 0;
    for (const auto& entry :
         fs::recursive_directory_iterator(machine.folder() / "home/data/Tavrin RamDisk")) {
        if (entry.path().extension() == ".key") {
            expectNoPartOf(readFile(entry.path()), told);
            ++keys;
        }
    }
    EXPECT_EQ(keys, 1);
    machine.run({"eject"});
}

TEST(Trace, StandsInTheLogOfASessionUnlessItIsToBeQuiet) {
    SKIP_UNLESS_ROOT();
    for (const bool isQuiet : {false, true}) {
        const TestMachine machine;
        ASSERT_TRUE(abandonDisk(machine, "Scratch", 3));
        auto session = std::async(std::launch::async, [&] {
            return machine.run(isQuiet ? std::vector<std::string>{"--quiet", "session"}
                                       : std::vector<std::string>{"session"});
        });
        pid_t process = 0;
        while (process == 0 && session.wait_for(std::chrono::milliseconds(10)) != std::future_status::ready) {
            const auto state = machine.run({"session", "status", "--json"}).json();
            process = state.value("phase", "") == "running" ? state.at("processID").get<pid_t>() : 0;
        }
        ASSERT_NE(process, 0) << session.get().err;
        kill(process, SIGTERM);
        const auto outcome = session.get();
        EXPECT_EQ(outcome.status, 0) << outcome.err;
        if (isQuiet) {
            EXPECT_THAT(outcome.err, Not(HasSubstr("trace: ")));
        } else {
            EXPECT_THAT(outcome.err,
                        testing::ContainsRegex("tramdisk: trace: \\[ *[0-9.]+\\] records: disk1 "));
            EXPECT_THAT(outcome.err, HasSubstr(makerIsGone));
        }
    }
}

} // namespace
} // namespace ramdisk::test
