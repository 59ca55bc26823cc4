#include "RamDiskInfrastructure/Linux/DiskRecord.h"

#include <nlohmann/json.hpp>

#include <array>
#include <limits>
#include <stdexcept>

namespace ramdisk {

namespace {

using Json = nlohmann::ordered_json;

constexpr std::array kindNames{std::string_view{"tmpfs"}, std::string_view{"loop"},
                               std::string_view{"folder"}};
constexpr std::array stateNames{std::string_view{"making"}, std::string_view{"settled"},
                                std::string_view{"detaching"}};

template <typename Enumeration, std::size_t count>
std::optional<Enumeration> enumeratorNamed(const std::array<std::string_view, count>& names,
                                           std::string_view name) {
    for (std::size_t index = 0; index < count; ++index) {
        if (names.at(index) == name) {
            return static_cast<Enumeration>(index);
        }
    }
    return std::nullopt;
}

/// Names are bytes to the kernel, and JSON takes only UTF-8.
std::string encodedBytes(const std::string& text) {
    static constexpr std::string_view digits = "0123456789abcdef";
    std::string hex;
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        hex.push_back(digits[byte >> 4U]);
        hex.push_back(digits[byte & 15U]);
    }
    return hex;
}

bool isPlainText(const std::string& text) {
    for (const char character : text) {
        if (static_cast<unsigned char>(character) >= 0x80 || static_cast<unsigned char>(character) < 0x20) {
            return false;
        }
    }
    return true;
}

/// Plain text as it is, anything else as an object of hexadecimal bytes.
Json encodedText(const std::string& text) {
    if (isPlainText(text)) {
        return text;
    }
    return Json{{"bytes", encodedBytes(text)}};
}

std::string decodedText(const Json& json) {
    if (json.is_string()) {
        return json.get<std::string>();
    }
    const auto hex = json.at("bytes").get<std::string>();
    if (hex.size() % 2 != 0) {
        throw std::invalid_argument("half a byte");
    }
    std::string text;
    for (std::size_t index = 0; index + 1 < hex.size(); index += 2) {
        text.push_back(static_cast<char>(std::stoi(hex.substr(index, 2), nullptr, 16)));
    }
    return text;
}

/// The library converts -1 and 1.5 to unsigned numbers without a word.
std::uint64_t checkedNumber(const Json& json) {
    if (!json.is_number_unsigned()) {
        throw std::invalid_argument("not a whole number");
    }
    return json.get<std::uint64_t>();
}

uid_t checkedUser(const Json& json) {
    const auto number = checkedNumber(json);
    if (number > std::numeric_limits<uid_t>::max()) {
        throw std::invalid_argument("no user");
    }
    return static_cast<uid_t>(number);
}

/// The name becomes part of a path, and must not lead out of its folder.
std::string checkedName(std::string name) {
    if (name == "." || name == ".." || name.find('/') != std::string::npos) {
        throw std::invalid_argument("no name");
    }
    return name;
}

template <typename Value>
Value required(std::optional<Value> value) {
    return value ? std::move(*value) : throw std::invalid_argument("unknown value");
}

DiskRecord decode(const Json& json, const DeviceIdentifier& device) {
    DiskRecord record{device, required(UUID::parse(json.at("uuid").get<std::string>())),
                      required(UUID::parse(json.at("instance").get<std::string>()))};
    record.owner = checkedUser(json.at("owner"));
    record.state = required(enumeratorNamed<RecordState>(stateNames, json.at("state").get<std::string>()));
    record.kind = required(enumeratorNamed<VolumeKind>(kindNames, json.at("kind").get<std::string>()));
    record.size = ByteCount{checkedNumber(json.at("size"))};
    record.name = checkedName(decodedText(json.at("name")));
    record.fileSystem = required(fileSystemFromRawValue(json.at("fileSystem").get<std::string>()));
    record.access = required(volumeAccessFromRawValue(json.at("access").get<std::string>()));
    record.isEncrypted = json.at("isEncrypted").get<bool>();
    record.mountPoint = decodedText(json.at("mountPoint"));
    if (record.state == RecordState::detaching) {
        record.heldDevice = checkedNumber(json.at("heldDevice"));
        record.heldBytes = ByteCount{checkedNumber(json.at("heldBytes"))};
    }
    return record;
}

} // namespace

std::string_view rawValue(VolumeKind kind) {
    return kindNames.at(static_cast<std::size_t>(kind));
}
std::string_view rawValue(RecordState state) {
    return stateNames.at(static_cast<std::size_t>(state));
}

std::string encodeRecord(const DiskRecord& record) {
    Json json;
    json["uuid"] = record.uuid.text();
    json["instance"] = record.instance.text();
    json["owner"] = record.owner;
    json["state"] = rawValue(record.state);
    json["kind"] = rawValue(record.kind);
    json["size"] = record.size.bytes;
    json["name"] = encodedText(record.name);
    json["fileSystem"] = rawValue(record.fileSystem);
    json["access"] = rawValue(record.access);
    json["isEncrypted"] = record.isEncrypted;
    json["mountPoint"] = encodedText(record.mountPoint.native());
    if (record.state == RecordState::detaching) {
        json["heldDevice"] = record.heldDevice;
        json["heldBytes"] = record.heldBytes.bytes;
    }
    return json.dump();
}

std::optional<DiskRecord> decodeRecord(std::string_view text, const DeviceIdentifier& device) {
    try {
        return decode(Json::parse(text), device);
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

} // namespace ramdisk
