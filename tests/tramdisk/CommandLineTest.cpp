#include "tests/support/Linux/TestMachine.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdlib>
#include <sstream>

#include <fcntl.h>
#include <unistd.h>

namespace ramdisk::test {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

using Arguments = std::vector<std::string>;

namespace fs = std::filesystem;

struct BadInput {
    Arguments arguments;
    int status;
    /// What stands after "tramdisk: ".
    std::string text;
};

std::ostream& operator<<(std::ostream& stream, const BadInput& input) {
    for (const auto& argument : input.arguments) {
        stream << "'" << argument << "' ";
    }
    return stream;
}

class CommandLine : public testing::Test {
protected:
    CommandLine() { machine.environment["TRAMDISK_HOST"] = "folder"; }

    TestMachine machine;
};

TEST_F(CommandLine, ToldWrongSaysWhatAndDoesNothing) {
    const std::vector<BadInput> table{
        {{"create", "--size", ""}, 2, "Size must not be empty."},
        {{"create", "--size="}, 2, "Size must not be empty."},
        {{"create", "--size", "much"}, 2, "“much” is not a valid size. Use values like 512M, 2G or 1.5GB."},
        {{"create", "--size", "-5M"}, 2, "“-5M” is not a valid size. Use values like 512M, 2G or 1.5GB."},
        {{"create", "--size", "5Q"}, 2, "Unknown size unit “Q”. Use K, M, G or T."},
        {{"create", "--size", "99999999999T"}, 2, "“99999999999T” is too large."},
        {{"create", "--size", "1"}, 1, "HFS+ needs at least 4 MB."},
        {{"create", "--format", "ntfs"},
         2,
         "“ntfs” is not a format. Use apfs, apfsx, hfs+, jhfs+, exfat or fat32."},
        {{"create", "--access", "all"}, 2, "“all” is not an access. Use everyone or onlyMe."},
        {{"create", "--size", "8M", "--folder", "../x"},
         1,
         "“../x” is not a folder to make on the disk. Give a path below its top folder, like Temp or "
         "Cache/Chrome."},
        {{"create", "--dry-run", "--size", "8M", "--folder", "../x"},
         1,
         "“../x” is not a folder to make on the disk. Give a path below its top folder, like Temp or "
         "Cache/Chrome."},
        {{"create", "--size", "8M", "--redirect", "folder:../x"},
         1,
         "“../x” is not a folder to make on the disk. Give a path below its top folder, like Temp or "
         "Cache/Chrome."},
        {{"create", "--dry-run", "--size", "8M", "--redirect", "folder:../x"},
         1,
         "“../x” is not a folder to make on the disk. Give a path below its top folder, like Temp or "
         "Cache/Chrome."},
        {{"create", "--size", "8M", "--seed", "/nope"},
         1,
         "Could not copy the contents: could not open “/nope”: No such file or directory"},
        {{"create", "--dry-run", "--size", "8M", "--seed", "/nope"},
         1,
         "Could not copy the contents: could not open “/nope”: No such file or directory"},
        {{"create", "--size", "8M", "--seed", ""}, 2, "A folder has no name. Give its path."},
        {{"create", "--size", "8M", "--name", "a/b", "--folder", "../x"},
         1,
         "The name must not contain “/”.\n“../x” is not a folder to make on the disk. Give a path below its "
         "top folder, like Temp or Cache/Chrome."},
        {{"create", "--dry-run", "--size", "8M", "--folder", std::string(256, 'x')},
         1,
         "“" + std::string(256, 'x')
             + "” is not a folder to make on the disk. Give a path below its top folder, like Temp or "
               "Cache/Chrome."},
        {{"create", "--name", ""}, 1, "Enter a name for the RAM disk."},
        {{"create", "--name="}, 1, "Enter a name for the RAM disk."},
        {{"create", "--name", " \n "}, 1, "Enter a name for the RAM disk."},
        {{"create", "--name", ".hidden"}, 1, "The name must not start with a dot."},
        {{"create", "--name=-rf"}, 1, "The name must not start with a hyphen."},
        {{"create", "--name", "a/b"}, 1, "The name must not contain “/”."},
        {{"create", "--name", "/", "--size", "1"},
         1,
         "The name must not contain “/”.\nHFS+ needs at least 4 MB."},
        {{"create", "extra"}, 2, "`tramdisk create` takes no further argument “extra”."},
        {{"create", "[a,b]"}, 2, "`tramdisk create` takes no further argument “[a,b]”."},
        {{"create", "--name=[a/b]"}, 1, "The name must not contain “/”."},
        {{"create", "--folder", "a", "b"}, 2, "`tramdisk create` takes no further argument “b”."},
        {{"create", "--frob"}, 2, "“--frob” is not an option of `tramdisk create`."},
        {{"--frob", "list"}, 2, "“--frob” is not an option of `tramdisk list`."},
        {{"frobnicate"}, 2, "“frobnicate” is not a subcommand. Run `tramdisk --help` to see them."},
        {{"eject"}, 2, "Name the disks to eject, or give --all."},
        {{"eject", "x", "--all"}, 2, "Name the disks to eject, or give --all."},
        {{"eject", "nothing"}, 1, "No RAM disk matches “nothing”."},
        {{"eject", ""}, 1, "No RAM disk matches “”."},
        {{"eject", "[a,b]"}, 1, "No RAM disk matches “[a,b]”."},
        {{"eject", "[]"}, 1, "No RAM disk matches “[]”."},
        {{"save", "[a,b]"}, 1, "No RAM disk matches “[a,b]”."},
        {{"eject", "list"}, 1, "No RAM disk matches “list”."},
        {{"show", "/dev/disk7"}, 1, "No RAM disk matches “disk7”."},
        {{"users", "/nowhere"}, 1, "No RAM disk matches “/nowhere”."},
    };
    for (const auto& row : table) {
        const auto outcome = machine.run(row.arguments);
        EXPECT_EQ(outcome.status, row.status) << row;
        EXPECT_EQ(outcome.err, "tramdisk: " + row.text + "\n") << row;
        EXPECT_EQ(outcome.out, "") << row;
        // The same as one document, wherever the option stands.
        for (const bool isFirst : {true, false}) {
            auto arguments = row.arguments;
            arguments.insert(isFirst ? arguments.begin() : arguments.end(), "--json");
            const auto json = machine.run(arguments);
            EXPECT_EQ(json.status, row.status) << row;
            EXPECT_EQ(json.json().at("error").at("text"), row.text) << row;
        }
    }
    EXPECT_THAT(machine.traces(), IsEmpty());
    EXPECT_THAT(machine.run({}).err, HasSubstr("Disks:"));
    EXPECT_EQ(machine.run({}).status, 2);
}

TEST_F(CommandLine, MemoryBoundsASize) {
    const auto physical = static_cast<std::uint64_t>(sysconf(_SC_PHYS_PAGES))
                          * static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
    for (const auto& size : {std::to_string(physical / 1024 + 1024) + "K", std::string("16777215T")}) {
        const auto outcome = machine.run({"create", "--size", size});
        EXPECT_EQ(outcome.status, 1) << size;
        EXPECT_THAT(outcome.err, HasSubstr(" exceeds the installed memory (")) << size;
        EXPECT_EQ(machine.run({"validate", "--size", size, "--json"}).json().at("issues")[0].at("case"),
                  "exceedsPhysicalMemory");
    }
    EXPECT_THAT(machine.traces(), IsEmpty());
}

TEST_F(CommandLine, AHostThatCannotBeMeantIsRefused) {
    machine.environment["TRAMDISK_HOST"] = "nonsense";
    EXPECT_EQ(machine.run({"list"}).err,
              "tramdisk: TRAMDISK_HOST is “nonsense”; it can be kernel, udisks or folder.\n");
    EXPECT_EQ(machine.run({"list"}).status, 1);
    machine.environment["TRAMDISK_HOST"] = "udisks";
    EXPECT_EQ(machine.run({"create", "--size", "8M"}).status, 1);
    EXPECT_THAT(machine.traces(), IsEmpty());
}

TEST_F(CommandLine, AnAmbiguousNameListsTheDevicesToChooseFrom) {
    machine.create("Twin");
    machine.create("Other");
    // Names are compared without case, so only a change behind our back makes two the same.
    auto record = readFile(machine.records() / "disk2.json");
    record.replace(record.find("\"Other\""), 7, "\"tWIN\"");
    writeFile(machine.records() / "disk2.json", record);
    const auto outcome = machine.run({"eject", "twin"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err,
              "tramdisk: “twin” matches several RAM disks (disk1, disk2). Use a device name instead.\n"
              "Run `tramdisk list` to see device names.\n");
    EXPECT_EQ(machine.run({"eject", "disk1", "/dev/disk2"}).status, 0);
    EXPECT_THAT(machine.traces(), IsEmpty());
}

TEST_F(CommandLine, WithoutASubcommandIsOneDocumentWhereThatIsWanted) {
    const auto outcome = machine.run({"--json"});
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.json().at("error").at("case"), "wrongCommandLine");
}

TEST_F(CommandLine, ATemplateThatMakesAStartupDiskSaysSo) {
    const auto outcome = machine.run({"create", "--template", "npm", "--size", "8M"});
    EXPECT_THAT(outcome.out, testing::HasSubstr("“npm” is made at every launch."));
    EXPECT_EQ(machine.run({"eject", "npm"}).status, 0);
}

/// One line of text that shows what it is.
void expectHarmless(const std::string& text) {
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1) << text;
    for (const char* harm : {"\033", "\x1f", "\u202e", "\u009b"}) {
        EXPECT_EQ(text.find(harm), std::string::npos) << text;
    }
}

TEST_F(CommandLine, AnyNameWorks) {
    std::vector<HostRung> rungs{HostRung::folder};
    if (geteuid() == 0) {
        rungs.push_back(HostRung::kernel);
    }
    std::string zalgo = "a";
    std::string longest;
    for (int index = 0; index < 255; ++index) {
        zalgo += "\u0301";
        longest += "é";
    }
    const std::vector<std::string> names{
        "\x1ftwo words", "line\nbreak",     "\"quoted\" 'twice'",  "🚀 Raketenstück",
        "\xff\xfe",      "$(reboot) %n %s", "\033[31mred",         "list",
        "[one, two]",    "\u202egpj.txt",   std::string(255, 'x'), longest,
        zalgo,           "\u0301",          "c1\u009b31m"};
    for (const auto rung : rungs) {
        machine.environment["TRAMDISK_HOST"] = rawValue(rung);
        for (const auto& name : names) {
            const auto disk = machine.create(name);
            ASSERT_TRUE(disk.is_object()) << name;
            for (const char* command : {"list", "show"}) {
                const auto outcome = machine.run(
                    command == std::string("list") ? Arguments{command} : Arguments{command, "disk1"});
                EXPECT_EQ(outcome.status, 0);
                EXPECT_EQ(outcome.out.find('\033'), std::string::npos) << name;
            }
            expectHarmless(machine.run({"list", "--json"}).out);
            EXPECT_EQ(machine.run({"eject", ""}).status, 1);
            const auto taken = machine.run({"create", "--size", "8M", "--name=" + name});
            EXPECT_EQ(taken.status, 1);
            expectHarmless(taken.err);
            if (rung == HostRung::kernel) {
                expectHarmless(disk.at("mountPoint").get<std::string>() + "\n");
            }
            const auto outcome = machine.run({"eject", "--", name});
            EXPECT_EQ(outcome.status, 0) << outcome.err;
            expectHarmless(outcome.out);
            EXPECT_THAT(machine.traces(), IsEmpty()) << name;
        }
    }
}

TEST_F(CommandLine, AWarningShowsWhatItIs) {
    const std::string name = "\u202e\033\n";
    fs::create_directory(machine.folder() / "seed");
    writeFile(machine.folder() / "seed" / ("x" + name + "x"), "in the way");
    const auto outcome = machine.run({"create", "--size", "8M", "--name", "x" + name + "x", "--seed",
                                      machine.folder() / "seed", "--folder", "x" + name + "x"});
    EXPECT_EQ(outcome.status, 1);
    std::istringstream lines(outcome.err);
    int warnings = 0;
    for (std::string line; std::getline(lines, line);) {
        expectHarmless(line + "\n");
        warnings += line.starts_with("tramdisk: warning: ") ? 1 : 0;
    }
    EXPECT_EQ(warnings, 2) << outcome.err;
    EXPECT_EQ(machine.run({"eject", "disk1"}).status, 0);
}

TEST_F(CommandLine, APathIsReadFromTheWorkingFolder) {
    const auto former = fs::current_path();
    const fs::path root = machine.create("Build").at("mountPoint").get<std::string>();
    const std::vector<std::pair<fs::path, const char*>> rows{
        {root.parent_path(), "./Build"}, {root.parent_path(), "Build/"}, {root, "."}, {root, "../Build"}};
    for (const auto& [folder, reference] : rows) {
        fs::current_path(folder);
        EXPECT_EQ(machine.run({"show", reference}).status, 0) << reference;
    }
    // One that is gone.
    fs::create_directory(root / "gone");
    fs::current_path(root / "gone");
    fs::remove(root / "gone");
    for (const Arguments& arguments : {Arguments{"show", "./Build"}, {"create", "--seed", "x"}}) {
        const auto outcome = machine.run(arguments);
        EXPECT_EQ(outcome.status, 2) << outcome.err;
        EXPECT_THAT(outcome.err, HasSubstr("” cannot be found from here: "));
    }
    fs::current_path(former);
    EXPECT_EQ(machine.run({"eject", "Build"}).status, 0);
}

TEST_F(CommandLine, AResultThatCannotBeWrittenIsAFailure) {
    const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    close(ends[0]);
    for (const Arguments& arguments : {Arguments{"list", "--json"}, {"memory"}, {"--help"}, {"--version"}}) {
        for (const int output : {full, ends[1]}) {
            const auto outcome = machine.run(arguments, output);
            EXPECT_EQ(outcome.status, 1) << arguments[0];
            EXPECT_THAT(outcome.err, StartsWith("tramdisk: could not write the result: ")) << arguments[0];
        }
    }
    close(full);
    close(ends[1]);
}

TEST_F(CommandLine, ClosedStreamsNeverGetIntoARecord) {
    // A file that takes the number of a closed stream would be written to in its stead.
    const auto tool = [this](const char* redirections, const std::string& arguments) {
        const auto variables = "TRAMDISK_HOST=folder HOME='" + machine.folder().string()
                               + "/home' TRAMDISK_STATE='" + machine.folder().string() + "/state' ";
        return inChild(geteuid(), [&] {
            const auto line = variables + TRAMDISK_EXECUTABLE + " " + arguments + " " + redirections;
            const int status = std::system(line.c_str());
            return WEXITSTATUS(status);
        });
    };
    EXPECT_EQ(tool("<&- 2>&- >/dev/null", "create --size 8M --name Quiet"), 0);
    EXPECT_EQ(tool("<&- >&- 2>&-", "create --size 8M --name Silent"), 1) << "it could not tell of the disk";
    EXPECT_EQ(machine.list().size(), 2U);
    EXPECT_EQ(machine.run({"eject", "--all"}).status, 0);
    EXPECT_THAT(machine.traces(), IsEmpty());
}

} // namespace
} // namespace ramdisk::test
