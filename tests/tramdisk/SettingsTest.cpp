#include "tests/support/Linux/TestMachine.h"

namespace ramdisk::test {
namespace {

class Settings : public testing::Test {
protected:
    Settings() { machine.environment["TRAMDISK_HOST"] = "folder"; }

    [[nodiscard]] Outcome run(std::vector<std::string> arguments) const {
        return machine.run(std::move(arguments));
    }
    [[nodiscard]] std::string out(std::vector<std::string> arguments) const {
        return run(std::move(arguments)).out;
    }

    TestMachine machine;
    std::filesystem::path lists = machine.folder() / "home/data/Tavrin RamDisk";
};

TEST_F(Settings, AreListedSetReadAndUnset) {
    EXPECT_EQ(out({"settings", "get", "defaultSize"}), "1G\n");
    EXPECT_EQ(out({"settings", "set", "defaultSize", "1.5G"}), "defaultSize is now 1536M.\n");
    EXPECT_EQ(out({"--json", "settings", "get", "defaultSize"}), "{\"bytes\":1610612736}\n");
    EXPECT_EQ(out({"settings", "set", "autosaveInterval", "30"}), "autosaveInterval is now thirtyMinutes.\n");
    EXPECT_EQ(out({"settings", "set", "hotKeys",
                   R"({"ejectAll":{"keyCode":14,"carbonModifiers":256,"display":"⌘E"}})", "--quiet"}),
              "");
    EXPECT_EQ(out({"settings", "set", "allowsKeyFile", "true"}), "allowsKeyFile is now true.\n");

    const auto list = nlohmann::json::parse(out({"settings", "--json"}));
    EXPECT_EQ(list.size(), 25U);
    EXPECT_EQ(list["autosaveInterval"], 30);
    EXPECT_EQ(list["hotKeys"]["ejectAll"]["keyCode"], 14);

    const auto table = out({"settings", "list"});
    EXPECT_THAT(table, HasSubstr("defaultSize                   1536M"));
    EXPECT_THAT(table, testing::ContainsRegex("diskLayout +cards +cards +no effect on this platform yet"));
    EXPECT_THAT(table, testing::ContainsRegex("newDiskAccess +everyone +everyone\n"));
    EXPECT_THAT(table, testing::ContainsRegex("allowsKeyFile +true +false"));

    EXPECT_EQ(out({"settings", "unset", "defaultSize"}), "defaultSize is now 1G.\n");
    EXPECT_FALSE(std::filesystem::exists(lists));
    EXPECT_TRUE(std::filesystem::exists(machine.folder() / "home/.config"));
}

TEST_F(Settings, ThatCannotBeMeantAreAWrongCommandLine) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> table{
        {{"get", "size"}, "“size” is not a setting. Run `tramdisk settings list` to see them."},
        {{"set", "defaultSize", "much"},
         "“much” is not a value of defaultSize. Use values like 512M, 2G or 1.5GB."},
        {{"set", "defaultSize", "0"},
         "“0” is not a value of defaultSize. Use values like 512M, 2G or 1.5GB."},
        {{"set", "revealAfterCreation", "1"},
         "“1” is not a value of revealAfterCreation. Use true or false."},
        {{"set", "diskGrowth", "maybe"}, "“maybe” is not a value of diskGrowth. Use off, ask or automatic."},
        {{"set", "autoEject", "31"},
         "“31” is not a value of autoEject. Use off, thirtyMinutes, oneHour or fourHours."},
        {{"set", "hotKeys", "{\"fly\":{}}"},
         "“{\"fly\":{}}” is not a value of hotKeys. Use JSON like "
         "{\"newDisk\":{\"keyCode\":45,\"carbonModifiers\":4352,\"display\":\"⌃⌘N\"}}."},
        {{"set", "terminal"}, "Use `tramdisk settings set KEY VALUE`."},
        {{"list", "terminal"}, "Use `tramdisk settings list`."},
        {{"change"}, "“change” is not an action of `tramdisk settings`. Use list, get, set or unset."},
    };
    for (auto [arguments, text] : table) {
        arguments.insert(arguments.begin(), "settings");
        const auto output = run(arguments);
        EXPECT_EQ(output.status, 2) << text;
        EXPECT_EQ(output.err, "tramdisk: " + text + "\n");
    }
    EXPECT_FALSE(std::filesystem::exists(machine.folder() / "home/.config"));
}

TEST_F(Settings, AreTheDefaultsOfNewDisksAndOptionsOverruleThem) {
    static_cast<void>(run({"settings", "set", "defaultFileSystem", "exfat"}));
    static_cast<void>(run({"settings", "set", "isEncryptionEnabledByDefault", "true"}));
    const auto refused = run({"validate"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_THAT(refused.out, HasSubstr("ExFAT can’t be encrypted."));
    EXPECT_THAT(run({"validate", "--no-encrypt"}).out, Not(HasSubstr("encrypted")));
    EXPECT_THAT(run({"validate", "--format", "apfs"}).out, Not(HasSubstr("encrypted")));
    static_cast<void>(run({"settings", "set", "defaultSize", "1K"}));
    EXPECT_THAT(run({"validate", "--no-encrypt"}).out, HasSubstr("ExFAT needs at least"));
}

TEST_F(Settings, AndListsAreOpenedOnlyByWhatNeedsThem) {
    std::filesystem::create_directories(lists);
    writeFile(lists / "Startup Disks.json",
              R"([{"id":"6F1D2A8E-3C1B-4E4A-9D0B-5A6E2C7B0001","name":"Mine","size":{"bytes":8388608},)"
              R"("fileSystem":"hfs+","isEncrypted":false,"isIndexingEnabled":false,"access":"everyone",)"
              R"("keepsContents":false,"previousCopies":0,"folders":[]}])");
    EXPECT_THAT(run({"validate", "--name", "mine", "--size", "8M"}).out,
                HasSubstr("“mine” is the name of a disk RamDisk creates at launch."));
    EXPECT_EQ(run({"list"}).status, 0);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(lists), {}), 1);
}

} // namespace
} // namespace ramdisk::test
