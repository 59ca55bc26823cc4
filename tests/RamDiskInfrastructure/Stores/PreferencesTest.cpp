#include "RamDiskCore/Automation/SavingFactor.h"
#include "RamDiskCore/Preferences/PreferenceField.h"
#include "RamDiskInfrastructure/Stores/DefaultsJSON.h"
#include "RamDiskInfrastructure/Stores/JSONUserDefaults.h"
#include "RamDiskInfrastructure/Stores/PreferencesDefaults.h"
#include "RamDiskInfrastructure/Stores/UserDefaultsDiskOrderStore.h"
#include "RamDiskInfrastructure/Stores/ValueJSON.h"
#include "RamDiskUI/PreferencesStore.h"
#include "tests/support/FakeUserDefaults.h"
#include "tests/support/Testing.h"

#include <nlohmann/json.hpp>

namespace ramdisk::test {
namespace {

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

TEST(Preferences, AreStoredEachUnderItsKeyUnlessTheyAreTheDefault) {
    const auto wrongs =
        Json::parse(R"([-1, 0.5, "what", [1], {"newDisk": 5}, {"fly": {}}, {"$data": "ff"}])");
    const auto defaults = std::make_shared<FakeUserDefaults>();
    PreferencesDefaults storage(defaults);
    auto initial = Json::object();
    for (const auto& row : table) {
        SCOPED_TRACE(row.name);
        initial[row.name] = row.name == "defaultSize" ? Json{{"bytes", row.initial}} : row.initial;
        defaults->stored = {{row.key, defaultsValueFrom(row.other)}};
        const auto snapshot = storage.load();
        EXPECT_NE(snapshot, PreferencesSnapshot{});
        EXPECT_EQ(preferenceFieldNamed(row.name)->stored(snapshot), defaultsValueFrom(row.other));
        defaults->stored.clear();
        storage.store(snapshot);
        ASSERT_EQ(defaults->stored.size(), 1U);
        EXPECT_EQ(toJSON(defaults->stored.at(row.key)), row.other);
        storage.store({});
        EXPECT_TRUE(defaults->stored.empty());
        for (const auto& wrong : wrongs) {
            defaults->stored = {{row.key, defaultsValueFrom(wrong)}};
            EXPECT_EQ(storage.load(), PreferencesSnapshot{}) << wrong;
        }
        defaults->stored.clear();
    }
    EXPECT_EQ(storage.load(), PreferencesSnapshot{});
    EXPECT_EQ(compactText(toJSON(PreferencesSnapshot{})), compactText(initial));
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
