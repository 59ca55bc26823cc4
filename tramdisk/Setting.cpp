#include "tramdisk/Setting.h"

#include "RamDiskInfrastructure/Stores/DefaultsJSON.h"
#include "RamDiskInfrastructure/Stores/JSONFields.h"
#include "RamDiskInfrastructure/Stores/ValueJSON.h"

#include <nlohmann/json.hpp>

namespace ramdisk::cli {

namespace {

std::optional<DefaultsValue> parsed(std::string_view json) {
    try {
        return defaultsValueFrom(Json::parse(json));
    } catch (const Json::exception&) {
        return std::nullopt;
    } catch (const DecodingError&) {
        return std::nullopt;
    }
}

} // namespace

std::optional<Setting> Setting::named(std::string_view name, const Platform& platform) {
    if (const auto* field = preferenceFieldNamed(name)) {
        return Setting(field);
    }
    for (const auto& own : platform.settings) {
        if (own.name == name) {
            return Setting(&own);
        }
    }
    return std::nullopt;
}

std::vector<Setting> Setting::all(const Platform& platform) {
    std::vector<Setting> settings;
    for (const auto& field : preferenceFields()) {
        settings.push_back(Setting(&field));
    }
    for (const auto& own : platform.settings) {
        settings.push_back(Setting(&own));
    }
    return settings;
}

const PreferenceField* Setting::field() const {
    const auto* field = std::get_if<const PreferenceField*>(&kind_);
    return field == nullptr ? nullptr : *field;
}

const PlatformSetting* Setting::own() const {
    return std::get<const PlatformSetting*>(kind_);
}

std::string_view Setting::name() const {
    return field() != nullptr ? field()->name : own()->name;
}

std::string Setting::defaultsKey() const {
    return std::string(field() != nullptr ? field()->defaultsKey : own()->name);
}

std::string Setting::allowedValues() const {
    return field() != nullptr ? field()->allowedValues : "true or false";
}

bool Setting::hasEffect() const {
    return field() == nullptr || field()->hasEffect;
}

std::optional<DefaultsValue> Setting::valueFrom(std::string_view text) const {
    if (field() == nullptr) {
        return text == "true" || text == "false" ? std::optional(DefaultsValue{text == "true"})
                                                 : std::nullopt;
    }
    PreferencesSnapshot snapshot;
    if (field()->readText != nullptr) {
        return field()->readText(text, snapshot) ? std::optional(field()->stored(snapshot)) : std::nullopt;
    }
    const auto value = parsed(text);
    return value && field()->read(*value, snapshot) ? std::optional(field()->stored(snapshot)) : std::nullopt;
}

DefaultsValue Setting::value(const std::map<std::string, DefaultsValue>& stored) const {
    const auto found = stored.find(defaultsKey());
    if (field() == nullptr) {
        const auto* value = found == stored.end() ? nullptr : found->second.as<bool>();
        return {value == nullptr ? own()->defaultValue : *value};
    }
    PreferencesSnapshot snapshot;
    if (found != stored.end()) {
        static_cast<void>(field()->read(found->second, snapshot));
    }
    return field()->stored(snapshot);
}

std::string Setting::text(const std::map<std::string, DefaultsValue>& stored) const {
    if (field() == nullptr || field()->text == nullptr) {
        return jsonText(stored);
    }
    PreferencesSnapshot snapshot;
    static_cast<void>(field()->read(value(stored), snapshot));
    return field()->text(snapshot);
}

std::string Setting::jsonText(const std::map<std::string, DefaultsValue>& stored) const {
    if (field() == nullptr) {
        return compactText(toJSON(value(stored)));
    }
    PreferencesSnapshot snapshot;
    static_cast<void>(field()->read(value(stored), snapshot));
    return compactText(toJSON(snapshot)[std::string(name())]);
}

bool Setting::isDefault(const DefaultsValue& candidate) const {
    return candidate == value({});
}

} // namespace ramdisk::cli
