#include "RamDiskCore/Automation/SavingFactor.h"
#include "RamDiskCore/Preferences/PreferenceField.h"
#include "RamDiskInfrastructure/Stores/DefaultsJSON.h"
#include "RamDiskInfrastructure/Stores/JSONUserDefaults.h"
#include "RamDiskInfrastructure/Stores/PreferencesDefaults.h"
#include "RamDiskInfrastructure/Stores/UserDefaultsDiskOrderStore.h"
#include "RamDiskInfrastructure/Stores/ValueJSON.h"
#include "RamDiskUI/PreferencesStore.h"
#include "tests/support/FakeUserDefaults.h"
#include "tests/support/ScratchFolder.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

namespace ramdisk::test {
namespace {

using testing::ElementsAre;

constexpr auto domain = "com.tavrin.RamDisk";

/// A setting, the key under which it is stored, its default and another value.
struct Row {
    std::string name;
    std::string key;
    Json initial;
    Json other;
};

const std::vector<Row> table{
    {"defaultSize", "defaultSizeBytes", 1073741824, 2147483648},
    {"defaultFileSystem", "defaultFileSystem", "hfs+", "apfs"},
    {"revealAfterCreation", "revealAfterCreation", true, false},
    {"isIndexingEnabledByDefault", "indexingEnabledByDefault", false, true},
    {"isEncryptionEnabledByDefault", "encryptionEnabledByDefault", false, true},
    {"showsWindowAtLaunch", "showsWindowAtLaunch", true, false},
    {"diskLayout", "diskLayout", "cards", "list"},
    {"appearance", "appearance", "automatic", "dark"},
    {"accent", "accentColor", "cobalt", "graphite"},
    {"autosaveInterval", "autosaveMinutes", 10, 0},
    {"savesBeforeSleep", "savesBeforeSleep", true, false},
    {"adaptsSavingToBattery", "adaptsSavingToBattery", true, false},
    {"autoEject", "autoEjectMinutes", 0, 240},
    {"notifiesWhenFull", "notifiesWhenFull", true, false},
    {"menuBarDisplay", "menuBarDisplay", "icon", "activity"},
    {"showsMenuBarIcon", "showsMenuBarIcon", true, false},
    {"diskGrowth", "diskGrowth", "ask", "automatic"},
    {"respondsToLowMemory", "respondsToLowMemory", true, false},
    {"showsInFinderSidebar", "showsInFinderSidebar", true, false},
    {"excludesSavedFilesFromBackup", "excludesSavedFilesFromBackup", true, false},
    {"checksForUpdates", "checksForUpdates", true, false},
    {"downloadsUpdates", "downloadsUpdates", true, false},
    {"terminal", "terminal", "terminal", "ghostty"},
    {"newDiskAccess", "newDiskAccess", "everyone", "onlyMe"},
    {"hotKeys",
     "hotKeys",
     Json::object(),
     {{"newDisk", {{"keyCode", 45}, {"carbonModifiers", 4352}, {"display", "⌃⌘N"}}}}},
};

TEST(Preferences, OfAnEmptyDomainAreTheTableOfDefaults) {
    const auto defaults = std::make_shared<FakeUserDefaults>();
    const auto snapshot = PreferencesDefaults(defaults).load();
    EXPECT_EQ(snapshot, PreferencesSnapshot{});
    auto expected = Json::object();
    for (const auto& row : table) {
        expected[row.name] = row.name == "defaultSize" ? Json{{"bytes", row.initial}} : row.initial;
    }
    EXPECT_EQ(compactText(toJSON(snapshot)), compactText(expected));
}

TEST(Preferences, AreStoredEachUnderItsKeyUnlessTheyAreTheDefault) {
    const auto defaults = std::make_shared<FakeUserDefaults>();
    PreferencesDefaults storage(defaults);
    for (const auto& row : table) {
        defaults->stored = {{row.key, defaultsValueFrom(row.other)}};
        const auto snapshot = storage.load();
        EXPECT_NE(snapshot, PreferencesSnapshot{}) << row.name;
        EXPECT_EQ(preferenceFieldNamed(row.name)->stored(snapshot), defaultsValueFrom(row.other)) << row.name;
        defaults->stored.clear();
        storage.store(snapshot);
        ASSERT_EQ(defaults->stored.size(), 1U) << row.name;
        EXPECT_EQ(toJSON(defaults->stored.at(row.key)), row.other) << row.name;
        storage.store({});
        EXPECT_TRUE(defaults->stored.empty()) << row.name;
    }
}

TEST(Preferences, KeepTheDefaultWhereTheStoredValueCannotBeMeant) {
    for (const auto& row : table) {
        for (const auto& wrong : std::vector<Json>{-1,
                                                   0.5,
                                                   "what",
                                                   Json::array({1}),
                                                   {{"newDisk", 5}},
                                                   {{"fly", Json::object()}},
                                                   {{"$data", "ff"}}}) {
            const auto defaults = std::make_shared<FakeUserDefaults>();
            defaults->stored = {{row.key, defaultsValueFrom(wrong)}};
            EXPECT_EQ(PreferencesDefaults(defaults).load(), PreferencesSnapshot{}) << row.name << wrong;
        }
    }
}

TEST(Preferences, SlowSavingOnBatteryOnlyWhereThatIsWanted) {
    PreferencesSnapshot preferences;
    EXPECT_EQ(savingFactor({.isOnBattery = true, .isLowPowerMode = true}, preferences), 3);
    EXPECT_EQ(savingFactor({.isOnBattery = true}, preferences), 2);
    EXPECT_EQ(savingFactor({}, preferences), 1);
    preferences.adaptsSavingToBattery = false;
    EXPECT_EQ(savingFactor({.isOnBattery = true, .isLowPowerMode = true}, preferences), 1);
}

TEST(PreferencesStore, WritesThroughTellsObserversAndSeesOtherProcesses) {
    const ScratchFolder scratch;
    const auto storage = [&scratch] {
        return std::make_shared<PreferencesDefaults>(
            std::make_shared<JSONUserDefaults>(scratch.path(), domain));
    };
    PreferencesStore ours(storage());
    PreferencesStore theirs(storage());
    std::vector<DiskLayout> seen;
    const auto observation =
        ours.observe([&seen](const auto&, const auto& after) { seen.push_back(after.diskLayout); });
    theirs.update([](auto& snapshot) { snapshot.diskLayout = DiskLayout::list; });
    ours.refresh();
    ours.refresh();
    EXPECT_THAT(seen, ElementsAre(DiskLayout::list));

    theirs.update([](auto& snapshot) { snapshot.diskLayout = DiskLayout::cards; });
    ours.update([](auto& snapshot) { snapshot.terminal = TerminalApp::iTerm; });
    theirs.refresh();
    EXPECT_EQ(theirs.snapshot().terminal, TerminalApp::iTerm);
    EXPECT_EQ(theirs.snapshot(), ours.snapshot());
    EXPECT_THAT(seen, ElementsAre(DiskLayout::list, DiskLayout::cards));

    ours.removeObserver(observation);
    ours.update([](auto& snapshot) { snapshot = {}; });
    EXPECT_EQ(seen.size(), 2U);
    EXPECT_EQ(scratch.read("com.tavrin.RamDisk.json"), "{}\n");
}

TEST(UserDefaults, KeepWhatOthersStoredAndSetDamageAside) {
    const ScratchFolder scratch;
    JSONUserDefaults defaults(scratch.path(), domain);
    EXPECT_TRUE(defaults.values().empty());
    scratch.write("com.tavrin.RamDisk.json", R"({"a":null,"b":{"$data":"00ff"},"c":1.5})");
    defaults.apply({{"d", DefaultsValue{true}}, {"c", std::nullopt}});
    EXPECT_EQ(Json::parse(scratch.read("com.tavrin.RamDisk.json")),
              Json::parse(R"({"a":null,"b":{"$data":"00ff"},"d":true})"));
    EXPECT_FALSE(defaults.value("a"));
    EXPECT_EQ(defaults.value("b"), (DefaultsValue{DefaultsValue::Data{std::string("\0\xff", 2)}}));
    scratch.write("com.tavrin.RamDisk.json", "[]");
    EXPECT_TRUE(defaults.values().empty());
    defaults.apply({{"d", DefaultsValue{true}}});
    EXPECT_EQ(defaults.values().size(), 1U);
    EXPECT_EQ(scratch.names().size(), 3U);
}

TEST(DiskOrder, IsReadUpToItsLimitAndEmptyWhenItCannotBeMeant) {
    const auto defaults = std::make_shared<FakeUserDefaults>();
    UserDefaultsDiskOrderStore store(defaults);
    EXPECT_EQ(store.read(), DiskOrder{});
    DiskOrder order;
    for (int number = 0; number < 250; ++number) {
        order.entries.push_back(std::to_string(number));
    }
    store.write(order);
    EXPECT_EQ(defaults->value("diskOrder")->as<DefaultsValue::Array>()->size(), 250U);
    order.entries.resize(200);
    EXPECT_EQ(store.read(), order);
    defaults->stored.at("diskOrder") = defaultsValueFrom(Json::parse(R"(["a",1])"));
    EXPECT_EQ(store.read(), DiskOrder{});
}

} // namespace
} // namespace ramdisk::test
