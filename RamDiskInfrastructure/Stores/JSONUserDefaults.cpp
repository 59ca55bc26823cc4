#include "RamDiskInfrastructure/Stores/JSONUserDefaults.h"

#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskInfrastructure/Stores/DefaultsJSON.h"
#include "RamDiskInfrastructure/Stores/JSONFields.h"

#include <nlohmann/json.hpp>

#include <stdexcept>

namespace ramdisk {

namespace {

/// Absent when the text is no JSON object.
std::optional<Json> objectFrom(const std::string& text) {
    auto json = Json::parse(text, nullptr, false);
    return json.is_object() ? std::optional(std::move(json)) : std::nullopt;
}

std::optional<DefaultsValue> readable(const Json& json) {
    try {
        return defaultsValueFrom(json);
    } catch (const DecodingError&) {
        traceCaught("stores", "a setting does not decode and counts as not set");
        return std::nullopt;
    }
}

std::string encoded(const Json& json) {
    try {
        return json.dump(4) + '\n';
    } catch (const Json::type_error&) {
        throw std::invalid_argument(
            "The settings hold a text that is not valid UTF-8, so they cannot be stored.");
    }
}

} // namespace

JSONUserDefaults::JSONUserDefaults(const std::filesystem::path& folder, const std::string& domain)
    : file_(folder / (domain + ".json"), FileLock(folder / (domain + ".lock"))) {}

std::map<std::string, DefaultsValue> JSONUserDefaults::values() const {
    std::map<std::string, DefaultsValue> values;
    const auto text = file_.read();
    const auto json = text ? objectFrom(*text) : std::nullopt;
    if (!json) {
        return values;
    }
    for (const auto& [key, stored] : json->items()) {
        if (auto value = readable(stored)) {
            values.emplace(key, std::move(*value));
        }
    }
    return values;
}

std::optional<DefaultsValue> JSONUserDefaults::value(const std::string& key) const {
    auto all = values();
    const auto found = all.find(key);
    return found == all.end() ? std::nullopt : std::optional(std::move(found->second));
}

void JSONUserDefaults::requireReadable() const {
    const auto text = file_.read();
    if (text ? !objectFrom(*text) : file_.exists()) {
        throw file_.unreadable();
    }
}

void JSONUserDefaults::apply(const DefaultsChanges& changes) {
    const auto hold = file_.lock().acquire();
    file_.clearUp();
    const auto text = file_.read();
    auto json = text ? objectFrom(*text) : std::nullopt;
    if (text && !json) {
        trace("stores", "{} holds no settings", file_.file().native());
    }
    const auto former = json || !file_.exists() ? FormerContent::readable : FormerContent::unreadable;
    if (!json) {
        json = Json::object();
    }
    const auto before = *json;
    for (const auto& [key, value] : changes) {
        if (value) {
            (*json)[key] = toJSON(*value);
        } else {
            json->erase(key);
        }
    }
    if (*json != before || former == FormerContent::unreadable) {
        file_.replace(encoded(*json), former);
    }
}

} // namespace ramdisk
