#include "RamDiskInfrastructure/Stores/RecordJSON.h"

#include "RamDiskInfrastructure/Stores/JSONFields.h"

#include <gtest/gtest.h>
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

TEST(RecordJSON, KeepsEveryFieldInItsOrder) {
    const std::vector<RamDiskProfile> profiles{{.id = identifier,
                                                .name = "Été",
                                                .size = {1024},
                                                .isIndexingEnabled = true,
                                                .access = VolumeAccess::onlyMe,
                                                .keepsContents = true,
                                                .seedFolder = "/a b\xff",
                                                .previousCopies = 3,
                                                .folders = {"Temp", "Cache/Chrome"}}};
    EXPECT_EQ(encodeList(profiles), profileText);
    EXPECT_EQ(decodeList<RamDiskProfile>(profileText), profiles);

    using Target = RedirectTarget;
    const std::vector<DiskTemplate> templates{{identifier,
                                               " Xcode\n",
                                               {.redirects = {{Target::XcodeDerivedData{}},
                                                              {Target::NpmCache{}},
                                                              {Target::Folder{"Temp/x"}},
                                                              {Target::Cache{KnownCache::swiftPM}},
                                                              {Target::TemporaryFolder{}}}}}};
    const std::string text =
        R"([{"id":"6F1D2A8E-3C1B-4E4A-9D0B-5A6E2C7B0001","title":"Xcode","setup":{"specification":{)"
        R"("name":"RAMDisk","size":{"bytes":1073741824},"fileSystem":"hfs+","isIndexingEnabled":false,)"
        R"("isEncrypted":false,"access":"everyone"},"createsAtLaunch":false,"keepsFiles":false,"redirects":[)"
        R"({"xcodeDerivedData":{}},{"npmCache":{}},{"folder":{"_0":"Temp/x"}},{"cache":{"_0":"swiftPM"}},)"
        R"({"temporaryFolder":{}}],"folders":[]}}])";
    EXPECT_EQ(encodeList(templates), text);
    EXPECT_EQ(decodeList<DiskTemplate>(text), templates);
}

TEST(RecordJSON, KeepsEveryStateFromWhichARedirectIsUndone) {
    using State = RedirectRestoreState;
    const std::vector<std::pair<std::optional<State>, std::string>> table{
        {std::nullopt, ""},
        {State{State::Preference{}}, R"(,"restoreState":{"preference":{}})"},
        {State{State::Preference{"/a"}}, R"(,"restoreState":{"preference":{"_0":"/a"}})"},
        {State{State::ConfigLine{"cache = x"}}, R"(,"restoreState":{"configLine":{"_0":"cache = x"}})"},
        {State{State::MovedFolder{}}, R"(,"restoreState":{"movedFolder":{}})"},
        {State{State::MovedFolder{"/b"}}, R"(,"restoreState":{"movedFolder":{"backup":"file:///b"}})"},
        {State{State::LinkedFolder{"/b", "/c"}},
         R"(,"restoreState":{"linkedFolder":{"backup":"file:///b","link":"/c"}})"},
        {State{State::EnvironmentVariable{""}}, R"(,"restoreState":{"environmentVariable":{"_0":""}})"},
    };
    for (const auto& [state, text] : table) {
        const std::vector<FolderRedirect> list{{.id = identifier,
                                                .diskName = "D",
                                                .target = {RedirectTarget::NpmCache{}},
                                                .restoreState = state,
                                                .applying = true}};
        const auto expected = R"([{"id":"6F1D2A8E-3C1B-4E4A-9D0B-5A6E2C7B0001","diskName":"D","target":)"
                              R"({"npmCache":{}})"
                              + text + R"(,"applying":true}])";
        EXPECT_EQ(encodeList(list), expected);
        EXPECT_EQ(decodeList<FolderRedirect>(expected), list) << expected;
    }
}

TEST(RecordJSON, ReadsWhatNewerVersionsAddAndOthersLeaveOut) {
    for (const auto& [from, to] : std::vector<std::pair<std::string, std::string>>{
             {R"("keepsContents")", R"("tint":{"red":1.5},"keepsContents")"},
             {R"("seedFolder":"file:///a%20b%FF",)", ""},
             {R"("file:///a%20b%FF")", "null"},
             {"6F1D2A8E", "6f1d2a8e"},
             {"file:///a%20b%FF", "file://localhost/a%20b/"}}) {
        EXPECT_TRUE(decodeList<RamDiskProfile>(replaced(std::string(profileText), from, to))) << to;
    }
}

TEST(RecordJSON, RefusesWhatCannotBeMeant) {
    for (const auto& [from, to] : std::vector<std::pair<std::string, std::string>>{
             {R"("name":"Été",)", ""},
             {R"("folders":["Temp","Cache/Chrome"])", R"("folders":[1])"},
             {"1024", "-1"},
             {"1024", "1.5"},
             {"1024", "1e3"},
             {"1024", "\"1024\""},
             {"1024", "18446744073709551616"},
             {":3", ":-3"},
             {":3", ":4294967296"},
             {"6F1D2A8E-", "6F1D2A8E"},
             {"6F1D2A8E", "6F1D2A8G"},
             {"hfs+", "ntfs"},
             {"onlyMe", "nobody"},
             {R"("isEncrypted":false)", R"("isEncrypted":0)"},
             {"file:///a%20b%FF", "/a"},
             {"file:///a%20b%FF", "https://a/b"},
             {"file:///a%20b%FF", "file://host/b"},
             {"file:///a%20b%FF", "file:///a%2"},
             {"file:///a%20b%FF", "file:///a%00b"},
             {"file:///a%20b%FF", "file:///a?b"},
             {"Été", "\xff"},
             {"[{", "{"},
             {"}]", "}"}}) {
        EXPECT_FALSE(decodeList<RamDiskProfile>(replaced(std::string(profileText), from, to))) << to;
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
