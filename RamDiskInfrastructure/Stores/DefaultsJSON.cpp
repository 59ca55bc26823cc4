#include "RamDiskInfrastructure/Stores/DefaultsJSON.h"

#include "RamDiskCore/Preferences/PreferenceField.h"
#include "RamDiskInfrastructure/Stores/JSONFields.h"
#include "RamDiskInfrastructure/Stores/ValueJSON.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <charconv>

namespace ramdisk {

namespace {

constexpr auto dataKey = "$data";

struct ValueToJSON {
    Json operator()(bool value) const { return value; }
    Json operator()(std::int64_t value) const { return value; }
    Json operator()(double value) const { return value; }
    Json operator()(const std::string& value) const { return value; }
    Json operator()(const DefaultsValue::Data& data) const {
        std::string digits;
        for (const char character : data.bytes) {
            digits += fmt::format("{:02x}", static_cast<unsigned char>(character));
        }
        return {{dataKey, digits}};
    }
    Json operator()(const DefaultsValue::Array& array) const {
        auto json = Json::array();
        for (const auto& element : array) {
            json.push_back(toJSON(element));
        }
        return json;
    }
    Json operator()(const DefaultsValue::Dictionary& dictionary) const {
        auto json = Json::object();
        for (const auto& [key, value] : dictionary) {
            json[key] = toJSON(value);
        }
        return json;
    }
};

DefaultsValue::Data dataFrom(const Json& json) {
    const auto digits = textFrom(json);
    DefaultsValue::Data data;
    for (std::size_t index = 0; index < digits.size(); index += 2) {
        unsigned byte = 0;
        const auto* const first = digits.data() + index;
        const auto* const last = first + std::min<std::size_t>(2, digits.size() - index);
        const auto [end, error] = std::from_chars(first, last, byte, 16);
        if (error != std::errc{} || end != first + 2) {
            throw DecodingError("data that is not hexadecimal");
        }
        data.bytes += static_cast<char>(byte);
    }
    return data;
}

DefaultsValue dictionaryFrom(const Json& json) {
    if (json.size() == 1 && json.contains(dataKey)) {
        return {dataFrom(json[dataKey])};
    }
    DefaultsValue::Dictionary dictionary;
    for (const auto& [key, value] : json.items()) {
        dictionary.push_back({key, defaultsValueFrom(value)});
    }
    return {std::move(dictionary)};
}

} // namespace

Json toJSON(const DefaultsValue& value) {
    return std::visit(ValueToJSON{}, value.value);
}

DefaultsValue defaultsValueFrom(const Json& json) {
    if (json.is_boolean()) {
        return {json.get<bool>()};
    }
    if (json.is_number_integer()) {
        return {integerFrom(json)};
    }
    if (json.is_number_float()) {
        return {json.get<double>()};
    }
    if (json.is_object()) {
        return dictionaryFrom(json);
    }
    if (!json.is_array()) {
        return {textFrom(json)};
    }
    DefaultsValue::Array array;
    for (const auto& element : json) {
        array.push_back(defaultsValueFrom(element));
    }
    return {std::move(array)};
}

Json toJSON(const PreferencesSnapshot& snapshot) {
    Json json;
    for (const auto& field : preferenceFields()) {
        json[std::string(field.name)] = toJSON(field.stored(snapshot));
    }
    json["defaultSize"] = toJSON(snapshot.defaultSize);
    return json;
}

} // namespace ramdisk
