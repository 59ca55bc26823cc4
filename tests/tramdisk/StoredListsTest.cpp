#include "tests/tramdisk/Disks.h"

namespace ramdisk::test {
namespace {

/// What a list or a folder of lists holds, byte for byte.
std::map<std::string, std::string> filesIn(const fs::path& folder) {
    std::map<std::string, std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
        if (entry.is_regular_file()) {
            files[entry.path().lexically_relative(folder).string()] = readFile(entry.path());
        }
    }
    return files;
}

/// Ways in which a list is there and cannot be read.
const std::vector<std::pair<const char*, std::function<void(const fs::path&)>>> damages{
    {"cut off", [](const fs::path& list) { writeFile(list, "["); }},
    {"another document", [](const fs::path& list) { writeFile(list, R"("text")"); }},
    {"empty", [](const fs::path& list) { writeFile(list, ""); }},
    {"a fifo", [](const fs::path& list) { ASSERT_EQ(mkfifo(list.c_str(), 0600), 0); }},
    {"a folder", [](const fs::path& list) { fs::create_directory(list); }},
};

class StoredLists : public testing::Test {
protected:
    void SetUp() override {
        SKIP_UNLESS_ROOT();
        machine.emplace();
        ASSERT_EQ(machine->run({"settings", "set", "allowsKeyFile", "true"}).status, 0);
    }

    /// Each command fails, names the file and leaves everything as it is.
    void expectRefused(const fs::path& list, const std::vector<std::vector<std::string>>& commands) const {
        for (const auto& [how, damage] : damages) {
            const auto intact = list.string() + ".intact";
            fs::rename(list, intact);
            damage(list);
            const auto before = filesIn(list.parent_path());
            for (const auto& command : commands) {
                const auto outcome = machine->run(command);
                const testing::ScopedTrace scope(__FILE__, __LINE__,
                                                 std::string(how) + ": " + command.back());
                EXPECT_EQ(outcome.status, 1) << outcome.out;
                EXPECT_THAT(outcome.err, HasSubstr("“" + list.string() + "” cannot be read."));
            }
            EXPECT_EQ(filesIn(list.parent_path()), before) << how;
            fs::remove_all(list);
            fs::rename(intact, list);
        }
    }

    std::optional<TestMachine> machine;
};

TEST_F(StoredLists, OfStartupDisksThatCannotBeReadAreToldAndCopiesFindTheirDiskAgain) {
    const auto lists = machine->folder() / "home/data/Tavrin RamDisk";
    const auto list = lists / "Startup Disks.json";
    const auto root = mountPointOf(machine->create("Work", {"--size", "32M", "--at-launch", "--keep-files"}));
    writeFile(root / "file", "precious");
    ASSERT_EQ(machine->run({"save", "Work"}).status, 0);
    machine->create("Other", {"--size", "8M"});
    expectRefused(list, {{"save"},
                         {"save", "Work"},
                         {"load", "Work"},
                         {"copies", "Work"},
                         {"startup", "list"},
                         {"startup", "create", "Work"},
                         {"startup", "remove", "Work", "--force"},
                         {"startup", "add", "Work"},
                         {"startup", "add", "Other"},
                         {"rename", "Work", "Play"},
                         {"configure", "Other", "--at-launch"},
                         {"create", "--size", "8M", "--at-launch", "--name", "Third"},
                         {"templates", "save", "Mine", "--from", "Other"}});
    EXPECT_EQ(machine->list().size(), 2U);

    // Once it is out of the way, the disk finds its copies, and what nobody owns is named.
    fs::rename(list, list.string() + ".away");
    const auto told = machine->run({"startup", "list"});
    EXPECT_THAT(told.err, HasSubstr(".sparseimage” belong to no startup disk in the list."));
    const auto id = nlohmann::json::parse(readFile(list.string() + ".away"))[0].at("id").get<std::string>();
    const auto fromCopies = [&](const std::vector<std::string>& more) {
        std::vector<std::string> arguments{"startup", "add", "--from-copies", id, "--json"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return machine->run(arguments);
    };
    EXPECT_THAT(fromCopies({}).err, HasSubstr("“Work” is mounted and keeps these files."));
    const auto added = machine->run({"startup", "add", "Work", "--json"});
    ASSERT_EQ(added.status, 0) << added.err;
    EXPECT_EQ(added.json().at("id"), id);
    EXPECT_EQ(added.json().at("keepsContents"), true);
    EXPECT_THAT(machine->run({"startup", "list"}).err, IsEmpty());
    writeFile(root / "file", "newer");
    EXPECT_EQ(machine->run({"eject", "Work"}).status, 0);
    EXPECT_EQ(machine->run({"copies", "Work", "--json"}).json().size(), 2U);
    ASSERT_EQ(machine->run({"startup", "create", "Work"}).status, 0);
    EXPECT_EQ(readFile(root / "file"), "newer");

    // Nor need the disk stand.
    EXPECT_THAT(fromCopies({}).err, HasSubstr("There are no saved files “" + id + "” without"));
    EXPECT_EQ(machine->run({"eject", "Work"}).status, 0);
    fs::remove(list);
    EXPECT_THAT(machine->run({"startup"}).err, HasSubstr("`tramdisk startup add --from-copies " + id + "`"));
    EXPECT_EQ(fromCopies({"--name", "a/b"}).status, 1);
    EXPECT_EQ(fromCopies({"--name", "Work 2"}).status, 0);
    ASSERT_EQ(machine->run({"startup", "create", "Work 2"}).status, 0);
    EXPECT_EQ(readFile(mountPointOf(machine->list().at("Work 2")) / "file"), "newer");
    EXPECT_EQ(machine->run({"copies", "Work 2", "--json"}).json().size(), 2U);
}

TEST_F(StoredLists, OfTemplatesAndSettingsThatCannotBeReadAreToldToo) {
    machine->create("Work", {"--size", "8M"});
    ASSERT_EQ(machine->run({"templates", "save", "Mine", "--from", "Work"}).status, 0);
    expectRefused(machine->folder() / "home/data/Tavrin RamDisk/Templates.json",
                  {{"templates", "list"},
                   {"templates", "save", "More", "--from", "Work"},
                   {"templates", "remove", "Mine"},
                   {"create", "--template", "Mine"}});
    const auto settings = machine->folder() / "home/.config/tavrin-ramdisk/com.tavrin.RamDisk.json";
    expectRefused(settings, {{"settings"},
                             {"settings", "get", "defaultSize"},
                             {"settings", "set", "defaultSize", "1G"},
                             {"settings", "unset", "defaultSize"}});
    writeFile(settings, "{");
    const auto made = machine->run({"create", "--name", "Plain", "--size", "8M"});
    EXPECT_EQ(made.status, 0);
    EXPECT_THAT(made.err, HasSubstr("cannot be read."));
}

TEST_F(StoredLists, KeepRecordsThatAreNotUnderstoodThroughEveryChange) {
    const auto lists = machine->folder() / "home/data/Tavrin RamDisk";
    const std::string foreign = R"({"id":"6F1D2A8E-3C1B-4E4A-9D0B-5A6E2C7B0001","future":[1, 2.50,"ü"]})";
    fs::create_directories(lists);
    for (const auto* const name : {"Startup Disks.json", "Templates.json"}) {
        writeFile(lists / name, "[" + foreign + "]");
    }
    machine->create("Work", {"--size", "8M"});
    const std::vector<std::vector<std::string>> changes{
        {"startup", "add", "Work"},      {"templates", "save", "Mine", "--from", "Work"},
        {"rename", "Work", "Play"},      {"configure", "Play", "--folder", "sub"},
        {"templates", "remove", "Mine"}, {"startup", "remove", "Play", "--force"}};
    for (const auto& change : changes) {
        EXPECT_EQ(machine->run(change).status, 0) << change[1];
        for (const auto* const name : {"Startup Disks.json", "Templates.json"}) {
            EXPECT_THAT(readFile(lists / name), HasSubstr(foreign)) << name << " after " << change[1];
        }
    }
    for (const auto* const list : {"startup", "templates"}) {
        EXPECT_THAT(machine->run({list}).err, HasSubstr("not understood by this version"));
    }
}

TEST_F(StoredLists, ChangeHowManyCopiesAreKeptAndAskOnlyBeforeFilesAreDeleted) {
    const auto root = mountPointOf(machine->create("Work", {"--size", "32M", "--at-launch", "--keep-files"}));
    const auto save = [&](const std::string& text) {
        writeFile(root / "file", text);
        ASSERT_EQ(machine->run({"save", "Work"}).status, 0);
    };
    const auto copies = [&] { return machine->run({"copies", "Work", "--json"}).json().size(); };
    EXPECT_EQ(machine->run({"configure", "Work", "--copies", "2"}).err, "");
    for (const auto* const text : {"one", "two", "three", "four"}) {
        save(text);
    }
    EXPECT_EQ(copies(), 3U);
    EXPECT_THAT(machine->run({"configure", "Work", "--copies", "0"}).err,
                HasSubstr("The next save removes 2 of the earlier copies."));
    EXPECT_EQ(copies(), 3U);
    save("five");
    EXPECT_EQ(copies(), 1U);

    EXPECT_THAT(machine->run({"startup", "remove", "Work"}).err, HasSubstr("deletes its saved contents"));
    machine->create("Bare", {"--size", "8M", "--at-launch"});
    const auto removed = machine->run({"startup", "remove", "Bare"});
    EXPECT_EQ(removed.status, 0) << removed.err;
    machine->create("Plain", {"--size", "8M"});
    EXPECT_EQ(machine->run({"configure", "Plain", "--copies", "2"}).status, 2);
}

TEST_F(StoredLists, LeadRootNowhereThroughLinksOfAnotherUser) {
    const auto home = machine->folder() / "home";
    const auto elsewhere = machine->folder() / "elsewhere";
    fs::remove_all(home / ".config");
    machine->create("Work", {"--size", "8M"});
    const auto plant = [&](const fs::path& link) {
        fs::create_directories(link.parent_path());
        fs::create_directory(elsewhere);
        fs::create_symlink(elsewhere, link);
        for (auto path = link; path != machine->folder(); path = path.parent_path()) {
            ASSERT_EQ(lchown(path.c_str(), nobody, nobody), 0);
        }
    };
    const std::vector<std::pair<fs::path, std::vector<std::string>>> rows{
        {home / "data/Tavrin RamDisk", {"startup", "add", "Work"}},
        {home / "data/Tavrin RamDisk", {"session"}},
        {home / "data", {"templates", "save", "Mine", "--from", "Work"}},
        {home / "data", {"create", "--size", "8M", "--access", "onlyMe"}},
        {home / "data/Tavrin RamDisk/Saved Contents", {"startup", "add", "Work", "--keep-files"}},
        {home / ".config", {"settings", "set", "defaultSize", "2G"}},
        {home / ".config/tavrin-ramdisk", {"settings"}},
    };
    for (const auto& [link, command] : rows) {
        fs::remove_all(home / "data");
        fs::remove_all(home / ".config");
        fs::remove_all(elsewhere);
        plant(link);
        const auto outcome = machine->run(command);
        EXPECT_EQ(outcome.status, 1) << link << " " << outcome.out;
        EXPECT_THAT(outcome.err, HasSubstr("“" + link.string() + "” is a link that another user can change"));
        EXPECT_TRUE(fs::is_empty(elsewhere)) << link;
    }
    // What root read through one would be somebody else's files.
    fs::remove_all(home / "data");
    fs::remove_all(home / ".config");
    fs::remove_all(elsewhere);
    const auto added = machine->run({"startup", "add", "Work", "--json"});
    const auto saved = home / "data/Tavrin RamDisk/Saved Contents";
    fs::remove_all(saved);
    plant(saved);
    writeFile(elsewhere / (added.json().at("id").get<std::string>() + ".sparseimage"), "not the user's");
    for (const auto& command : std::vector<std::vector<std::string>>{
             {"copies", "Work"}, {"startup"}, {"startup", "remove", "Work"}, {"load", "Work"}}) {
        const auto outcome = machine->run(command);
        EXPECT_EQ(outcome.status, 1) << command[0] << " " << outcome.out;
        EXPECT_THAT(outcome.err, HasSubstr("is a link that another user can change")) << command[0];
        EXPECT_THAT(outcome.out, IsEmpty());
    }
}

} // namespace
} // namespace ramdisk::test
