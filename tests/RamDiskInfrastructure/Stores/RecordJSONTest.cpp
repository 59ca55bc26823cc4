#include "RamDiskInfrastructure/Stores/RecordJSON.h"

#include "RamDiskInfrastructure/Stores/CacheFolders.h"
#include "RamDiskInfrastructure/Stores/JSONFields.h"
#include "tests/support/Testing.h"

#include <nlohmann/json.hpp>

namespace ramdisk::test {
namespace {

const auto identifier = UUID::parse("6F1D2A8E-3C1B-4E4A-9D0B-5A6E2C7B0001").value();

constexpr std::string_view profileText =
    R"([{"id":"6F1D2A8E-3C1B-4E4A-9D0B-5A6E2C7B0001","name":"Été","size":{"bytes":1024},"fileSystem":"hfs+",)"
    R"("isEncrypted":false,"isIndexingEnabled":true,"access":"onlyMe","keepsContents":true,)"
    R"("seedFolder":"file:///a%20b%FF","previousCopies":3,"folders":["Temp","Cache/Chrome"]}])";

std::string replaced(std::string text, std::string_view from, std::string_view to) {
    const auto position = text.find(from);
    EXPECT_NE(position, std::string::npos) << from;
    return text.replace(position, from.size(), to);
}

/// The record has this text, and the text is read as this record.
template <typename Record>
void expectText(const Record& record, std::string_view text) {
    EXPECT_EQ(encodeList<Record>({record}), text);
    EXPECT_EQ(decodeList<Record>(text), std::vector<Record>{record}) << text;
}

TEST(RecordJSON, KeepsEveryFieldInItsOrder) {
    expectText<RamDiskProfile>({.id = identifier,
                                .name = "Été",
                                .size = {1024},
                                .isIndexingEnabled = true,
                                .access = VolumeAccess::onlyMe,
                                .keepsContents = true,
                                .seedFolder = "/a b\xff",
                                .previousCopies = 3,
                                .folders = {"Temp", "Cache/Chrome"}},
                               profileText);
    using Target = RedirectTarget;
    expectText<DiskTemplate>(
        {identifier,
         " Xcode\n",
         {.redirects = {{Target::XcodeDerivedData{}},
                        {Target::NpmCache{}},
                        {Target::Folder{"Temp/x"}},
                        {Target::Cache{KnownCache::swiftPM}},
                        {Target::TemporaryFolder{}}}}},
        R"([{"id":"6F1D2A8E-3C1B-4E4A-9D0B-5A6E2C7B0001","title":"Xcode","setup":{"specification":{)"
        R"("name":"RAMDisk","size":{"bytes":1073741824},"fileSystem":"hfs+","isIndexingEnabled":false,)"
        R"("isEncrypted":false,"access":"everyone"},"createsAtLaunch":false,"keepsFiles":false,"redirects":[)"
        R"({"xcodeDerivedData":{}},{"npmCache":{}},{"folder":{"_0":"Temp/x"}},{"cache":{"_0":"swiftPM"}},)"
        R"({"temporaryFolder":{}}],"folders":[]}}])");
    using State = RedirectRestoreState;
    for (const auto& [state, text] : std::vector<std::pair<std::optional<State>, std::string>>{
             {std::nullopt, ""},
             {State{State::Preference{}}, R"(,"restoreState":{"preference":{}})"},
             {State{State::Preference{"/a"}}, R"(,"restoreState":{"preference":{"_0":"/a"}})"},
             {State{State::ConfigLine{"cache = x"}}, R"(,"restoreState":{"configLine":{"_0":"cache = x"}})"},
             {State{State::MovedFolder{}}, R"(,"restoreState":{"movedFolder":{}})"},
             {State{State::MovedFolder{"/b"}}, R"(,"restoreState":{"movedFolder":{"backup":"file:///b"}})"},
             {State{State::MovedFolder{{}, "/p", 7}},
              R"(,"restoreState":{"movedFolder":{"place":"file:///p","inode":7}})"},
             {State{State::LinkedFolder{"/b", "/c"}},
              R"(,"restoreState":{"linkedFolder":{"backup":"file:///b","link":"/c"}})"},
             {State{State::EnvironmentVariable{""}},
              R"(,"restoreState":{"environmentVariable":{"_0":""}})"}}) {
        expectText<FolderRedirect>({.id = identifier,
                                    .diskName = "D",
                                    .target = {RedirectTarget::NpmCache{}},
                                    .restoreState = state,
                                    .applying = true},
                                   R"([{"id":"6F1D2A8E-3C1B-4E4A-9D0B-5A6E2C7B0001","diskName":"D","target":)"
                                   R"({"npmCache":{}})"
                                       + text + R"(,"applying":true}])");
    }
}

TEST(RecordJSON, StoresCachesThatEarlierVersionsDoNotKnowAsTheFoldersThatTheyAre) {
    for (const auto cache : allKnownCaches) {
        const auto stored = toJSON(RedirectTarget{RedirectTarget::Cache{cache}});
        const auto folder = folderOfCache(cache).string();
        EXPECT_EQ(redirectTargetFrom(stored), isStoredByName(cache)
                                                  ? RedirectTarget{RedirectTarget::Cache{cache}}
                                                  : RedirectTarget{RedirectTarget::Folder{folder}});
        EXPECT_EQ(stored.dump(), cache <= KnownCache::chrome
                                     ? R"({"cache":{"_0":")" + std::string(rawValue(cache)) + R"("}})"
                                     : R"({"folder":{"_0":")" + folder + R"("}})");
    }
}

TEST(RecordJSON, ReadsWhatNewerVersionsAddAndRefusesWhatCannotBeMeant) {
    struct Row {
        std::string from;
        std::vector<std::string> meant;
        std::vector<std::string> refused;
    };
    const std::vector<Row> rows{
        {R"("keepsContents")", {R"("tint":{"red":1.5},"keepsContents")"}, {}},
        {R"("seedFolder":"file:///a%20b%FF",)", {""}, {}},
        {R"("file:///a%20b%FF")", {"null"}, {}},
        {"6F1D2A8E-", {"6f1d2a8e-"}, {"6F1D2A8E", "6F1D2A8G-"}},
        {"file:///a%20b%FF",
         {"file://localhost/a%20b/"},
         {"/a", "https://a/b", "file://host/b", "file:///a%2", "file:///a%00b", "file:///a?b"}},
        {R"("name":"Été",)", {}, {""}},
        {R"(["Temp","Cache/Chrome"])", {}, {"[1]"}},
        {"1024", {}, {"-1", "1.5", "1e3", "\"1024\"", "18446744073709551616"}},
        {":3", {}, {":-3", ":4294967296"}},
        {"hfs+", {}, {"ntfs"}},
        {"onlyMe", {}, {"nobody"}},
        {R"("isEncrypted":false)", {}, {R"("isEncrypted":0)"}},
        {"Été", {}, {"\xff"}},
        {"[{", {}, {"{"}},
        {"}]", {}, {"}"}},
    };
    for (const auto& [from, meant, refused] : rows) {
        for (const auto& text : meant) {
            EXPECT_TRUE(decodeList<RamDiskProfile>(replaced(std::string(profileText), from, text))) << text;
        }
        for (const auto& text : refused) {
            EXPECT_FALSE(decodeList<RamDiskProfile>(replaced(std::string(profileText), from, text))) << text;
        }
    }
    for (const std::string_view target :
         {"{}", "[]", R"({"npmCache":{},"xcodeDerivedData":{}})", R"({"npmCache":1})",
          R"({"cache":{"_0":"yarn"}})", R"({"folder":{}})"}) {
        EXPECT_THROW(static_cast<void>(redirectTargetFrom(Json::parse(target))), DecodingError) << target;
    }
}

TEST(RecordJSON, NeverStoresATextAsAnother) {
    EXPECT_THROW(
        static_cast<void>(encodeList<RamDiskProfile>({{.id = identifier, .name = "\xff", .size = {}}})),
        std::invalid_argument);
    EXPECT_THROW(static_cast<void>(encodeList<RamDiskProfile>(
                     {{.id = identifier, .name = "a", .size = {}, .seedFolder = "relative"}})),
                 std::invalid_argument);
}

TEST(RecordJSON, CountsDatesFrom2001) {
    using namespace std::chrono;
    const auto date = system_clock::from_time_t(978307200) + milliseconds(1500);
    EXPECT_EQ(dateToJson(date).dump(), "1.5");
    EXPECT_EQ(dateFrom(Json(1.5)), date);
    EXPECT_EQ(dateFrom(Json(0)), system_clock::from_time_t(978307200));
    EXPECT_THROW(static_cast<void>(dateFrom(Json("1.5"))), DecodingError);
    EXPECT_THROW(static_cast<void>(dateFrom(Json(1e30))), DecodingError);
}

} // namespace
} // namespace ramdisk::test
