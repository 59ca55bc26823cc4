#include "RamDiskCore/Preferences/PreferenceField.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <iterator>
#include <limits>
#include <optional>
#include <type_traits>
#include <utility>
#include <vector>

namespace ramdisk {

namespace {

template <typename Value>
constexpr bool isInterval =
    std::is_same_v<Value, AutosaveInterval> || std::is_same_v<Value, AutoEjectInterval>;

template <typename Interval>
std::optional<Interval> intervalOf(std::int64_t minutes) {
    for (const auto& row : enumerators<Interval>) {
        if (row.length.count() == minutes) {
            return row.value;
        }
    }
    return std::nullopt;
}

std::optional<KeyCombo> comboFrom(const DefaultsValue& stored) {
    const auto* keyCode = stored.at("keyCode");
    const auto* modifiers = stored.at("carbonModifiers");
    const auto* display = stored.at("display");
    if (keyCode == nullptr || modifiers == nullptr || display == nullptr) {
        return std::nullopt;
    }
    const auto* key = keyCode->as<std::int64_t>();
    const auto* mask = modifiers->as<std::int64_t>();
    const auto* shown = display->as<std::string>();
    if (key == nullptr || mask == nullptr || shown == nullptr) {
        return std::nullopt;
    }
    return KeyCombo{*key, *mask, *shown};
}

std::optional<HotKeys> hotKeysFrom(const DefaultsValue& stored) {
    const auto* entries = stored.as<DefaultsValue::Dictionary>();
    if (entries == nullptr) {
        return std::nullopt;
    }
    HotKeys keys;
    for (const auto& [name, value] : *entries) {
        const auto action = fromRawValue<HotKeyAction>(name);
        auto combo = comboFrom(value);
        if (!action || !combo) {
            return std::nullopt;
        }
        keys[*action] = std::move(*combo);
    }
    return keys;
}

DefaultsValue storedHotKeys(const HotKeys& keys) {
    DefaultsValue::Dictionary entries;
    for (const auto& [action, combo] : keys) {
        entries.push_back({std::string(rawValue(action)),
                           {DefaultsValue::Dictionary{{"keyCode", {combo.keyCode}},
                                                      {"carbonModifiers", {combo.carbonModifiers}},
                                                      {"display", {combo.display}}}}});
    }
    return {std::move(entries)};
}

template <typename Value>
std::optional<Value> valueFrom(const DefaultsValue& stored) {
    if constexpr (std::is_same_v<Value, bool>) {
        const auto* value = stored.as<bool>();
        return value == nullptr ? std::nullopt : std::optional(*value);
    } else if constexpr (std::is_same_v<Value, ByteCount>) {
        const auto* bytes = stored.as<std::int64_t>();
        return bytes == nullptr || *bytes <= 0 ? std::nullopt
                                               : std::optional(ByteCount{static_cast<std::uint64_t>(*bytes)});
    } else if constexpr (std::is_same_v<Value, HotKeys>) {
        return hotKeysFrom(stored);
    } else if constexpr (isInterval<Value>) {
        const auto* minutes = stored.as<std::int64_t>();
        return minutes == nullptr ? std::nullopt : intervalOf<Value>(*minutes);
    } else {
        const auto* name = stored.as<std::string>();
        return name == nullptr ? std::nullopt : fromRawValue<Value>(*name);
    }
}

template <typename Value>
DefaultsValue storedFrom(const Value& value) {
    if constexpr (std::is_same_v<Value, bool>) {
        return {value};
    } else if constexpr (std::is_same_v<Value, ByteCount>) {
        return {static_cast<std::int64_t>(value.bytes)};
    } else if constexpr (std::is_same_v<Value, HotKeys>) {
        return storedHotKeys(value);
    } else if constexpr (isInterval<Value>) {
        return {static_cast<std::int64_t>(minutesOf(value).count())};
    } else {
        return {std::string(rawValue(value))};
    }
}

std::optional<ByteCount> sizeFromText(std::string_view text) {
    try {
        const auto size = ByteCount::parse(text, ByteCount::Unit::mebibyte);
        constexpr auto largest = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
        return size.bytes == 0 || size.bytes > largest ? std::nullopt : std::optional(size);
    } catch (const ByteCountParsingError&) {
        return std::nullopt;
    }
}

/// The largest unit that leaves no remainder, so that nothing is lost on the way.
std::string textOfSize(ByteCount size) {
    static constexpr std::array<std::pair<ByteCount::Unit, char>, 4> units{
        {{ByteCount::Unit::tebibyte, 'T'},
         {ByteCount::Unit::gibibyte, 'G'},
         {ByteCount::Unit::mebibyte, 'M'},
         {ByteCount::Unit::kibibyte, 'K'}}};
    for (const auto& [unit, letter] : units) {
        if (size.bytes % ByteCount::factor(unit) == 0) {
            return fmt::format("{}{}", size.bytes / ByteCount::factor(unit), letter);
        }
    }
    return fmt::format("{}B", size.bytes);
}

template <typename Value>
std::optional<Value> valueFromText(std::string_view text) {
    if constexpr (std::is_same_v<Value, bool>) {
        return text == "true" ? std::optional(true) : text == "false" ? std::optional(false) : std::nullopt;
    } else if constexpr (std::is_same_v<Value, ByteCount>) {
        return sizeFromText(text);
    } else {
        if constexpr (isInterval<Value>) {
            std::int64_t minutes = 0;
            const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), minutes);
            if (error == std::errc{} && end == text.data() + text.size()) {
                return intervalOf<Value>(minutes);
            }
        }
        return fromRawValue<Value>(text);
    }
}

template <typename Value>
std::string textFrom(const Value& value) {
    if constexpr (std::is_same_v<Value, bool>) {
        return value ? "true" : "false";
    } else if constexpr (std::is_same_v<Value, ByteCount>) {
        return textOfSize(value);
    } else {
        return std::string(rawValue(value));
    }
}

template <typename Value>
std::string allowedFor() {
    if constexpr (std::is_same_v<Value, bool>) {
        return "true or false";
    } else if constexpr (std::is_same_v<Value, ByteCount>) {
        return "values like 512M, 2G or 1.5GB";
    } else if constexpr (std::is_same_v<Value, HotKeys>) {
        return R"(JSON like {"newDisk":{"keyCode":45,"carbonModifiers":4352,"display":"⌃⌘N"}})";
    } else {
        std::vector<std::string_view> names;
        for (const auto& row : enumerators<Value>) {
            names.push_back(row.name);
        }
        return fmt::format("{} or {}", fmt::join(names.begin(), std::prev(names.end()), ", "), names.back());
    }
}

/// Whether anything heeds a setting yet.
enum class Effect { none, has };

template <auto Member>
PreferenceField field(std::string_view name, std::string_view defaultsKey, Effect effect = Effect::none) {
    using Value = std::remove_cvref_t<decltype(std::declval<PreferencesSnapshot>().*Member)>;
    const auto take = [](std::optional<Value> value, PreferencesSnapshot& snapshot) {
        if (value) {
            snapshot.*Member = std::move(*value);
        }
        return value.has_value();
    };
    PreferenceField result{name,    defaultsKey, effect == Effect::has, allowedFor<Value>(), nullptr, nullptr,
                           nullptr, nullptr};
    result.read = [](const DefaultsValue& stored, PreferencesSnapshot& snapshot) {
        return decltype(take){}(valueFrom<Value>(stored), snapshot);
    };
    result.stored = [](const PreferencesSnapshot& snapshot) { return storedFrom(snapshot.*Member); };
    if constexpr (!std::is_same_v<Value, HotKeys>) {
        result.readText = [](std::string_view text, PreferencesSnapshot& snapshot) {
            return decltype(take){}(valueFromText<Value>(text), snapshot);
        };
        result.text = [](const PreferencesSnapshot& snapshot) { return textFrom(snapshot.*Member); };
    }
    return result;
}

std::vector<PreferenceField> makeFields() {
    using P = PreferencesSnapshot;
    return {
        field<&P::defaultSize>("defaultSize", "defaultSizeBytes", Effect::has),
        field<&P::defaultFileSystem>("defaultFileSystem", "defaultFileSystem", Effect::has),
        field<&P::revealAfterCreation>("revealAfterCreation", "revealAfterCreation"),
        field<&P::isIndexingEnabledByDefault>("isIndexingEnabledByDefault", "indexingEnabledByDefault",
                                              Effect::has),
        field<&P::isEncryptionEnabledByDefault>("isEncryptionEnabledByDefault", "encryptionEnabledByDefault",
                                                Effect::has),
        field<&P::showsWindowAtLaunch>("showsWindowAtLaunch", "showsWindowAtLaunch"),
        field<&P::diskLayout>("diskLayout", "diskLayout"),
        field<&P::appearance>("appearance", "appearance"),
        field<&P::accent>("accent", "accentColor"),
        field<&P::autosaveInterval>("autosaveInterval", "autosaveMinutes"),
        field<&P::savesBeforeSleep>("savesBeforeSleep", "savesBeforeSleep"),
        field<&P::adaptsSavingToBattery>("adaptsSavingToBattery", "adaptsSavingToBattery"),
        field<&P::autoEject>("autoEject", "autoEjectMinutes"),
        field<&P::notifiesWhenFull>("notifiesWhenFull", "notifiesWhenFull"),
        field<&P::menuBarDisplay>("menuBarDisplay", "menuBarDisplay"),
        field<&P::showsMenuBarIcon>("showsMenuBarIcon", "showsMenuBarIcon"),
        field<&P::diskGrowth>("diskGrowth", "diskGrowth"),
        field<&P::respondsToLowMemory>("respondsToLowMemory", "respondsToLowMemory"),
        field<&P::showsInFinderSidebar>("showsInFinderSidebar", "showsInFinderSidebar"),
        field<&P::excludesSavedFilesFromBackup>("excludesSavedFilesFromBackup",
                                                "excludesSavedFilesFromBackup"),
        field<&P::checksForUpdates>("checksForUpdates", "checksForUpdates"),
        field<&P::downloadsUpdates>("downloadsUpdates", "downloadsUpdates"),
        field<&P::terminal>("terminal", "terminal"),
        field<&P::newDiskAccess>("newDiskAccess", "newDiskAccess", Effect::has),
        field<&P::hotKeys>("hotKeys", "hotKeys"),
    };
}

} // namespace

bool PreferenceField::isEqual(const PreferencesSnapshot& left, const PreferencesSnapshot& right) const {
    return stored(left) == stored(right);
}

bool PreferenceField::differsFromDefault(const PreferencesSnapshot& snapshot) const {
    return !isEqual(snapshot, PreferencesSnapshot{});
}

std::span<const PreferenceField> preferenceFields() {
    static const auto fields = makeFields();
    return fields;
}

const PreferenceField* preferenceFieldNamed(std::string_view name) {
    const auto fields = preferenceFields();
    const auto found = std::find_if(fields.begin(), fields.end(),
                                    [name](const PreferenceField& field) { return field.name == name; });
    return found == fields.end() ? nullptr : &*found;
}

} // namespace ramdisk
