#include "RamDiskInfrastructure/Linux/Records/DiskRecord.h"

#include "RamDiskInfrastructure/Linux/Records/FlatObject.h"

#include <nlohmann/json.hpp>

#include <cstring>
#include <limits>
#include <stdexcept>

namespace ramdisk {

namespace {

using Json = nlohmann::ordered_json;

bool isPlainText(const std::string& text) {
    for (const char character : text) {
        if (static_cast<unsigned char>(character) >= 0x80 || static_cast<unsigned char>(character) < 0x20) {
            return false;
        }
    }
    return true;
}

/// Plain text as it is. Anything else as an object of hexadecimal bytes, since names are bytes to the kernel,
/// and JSON takes only UTF-8.
Json encodedText(const std::string& text) {
    if (isPlainText(text)) {
        return text;
    }
    return Json{{"bytes", hexadecimal(text)}};
}

uid_t checkedUser(std::uint64_t number) {
    return number <= std::numeric_limits<uid_t>::max() ? static_cast<uid_t>(number)
                                                       : throw std::invalid_argument("no user");
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

DiskRecord decode(const FlatObject& json, const DeviceIdentifier& device) {
    DiskRecord record{device, required(UUID::parse(json.text("uuid"))),
                      required(UUID::parse(json.text("instance")))};
    record.owner = checkedUser(json.number("owner"));
    record.state = required(fromRawValue<RecordState>(json.text("state")));
    record.kind = required(fromRawValue<VolumeKind>(json.text("kind")));
    record.size = ByteCount{json.number("size")};
    record.name = checkedName(json.text("name"));
    record.fileSystem = required(fileSystemFromRawValue(json.text("fileSystem")));
    record.access = required(volumeAccessFromRawValue(json.text("access")));
    record.isEncrypted = json.flag("isEncrypted");
    if (json.has("loop")) {
        record.loop = static_cast<unsigned>(json.number("loop"));
    }
    record.mountPoint = json.text("mountPoint");
    if (json.has("formerMountPoint")) {
        record.formerMountPoint = json.text("formerMountPoint");
    }
    if (json.has("keeper")) {
        record.keeper = json.text("keeper");
    }
    if (record.state == RecordState::detaching) {
        record.heldDevice = json.number("heldDevice");
        record.heldBytes = ByteCount{json.number("heldBytes")};
    }
    return record;
}

} // namespace

std::uint64_t DiskRecord::fallbackAttachment() const {
    std::uint64_t number = 0;
    std::memcpy(&number, uuid.bytes().data(), sizeof number);
    return number;
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
    if (record.loop) {
        json["loop"] = *record.loop;
    }
    json["mountPoint"] = encodedText(record.mountPoint.native());
    if (!record.formerMountPoint.empty()) {
        json["formerMountPoint"] = encodedText(record.formerMountPoint.native());
    }
    if (!record.keeper.empty()) {
        json["keeper"] = encodedText(record.keeper.native());
    }
    if (record.state == RecordState::detaching) {
        json["heldDevice"] = record.heldDevice;
        json["heldBytes"] = record.heldBytes.bytes;
    }
    return json.dump();
}

std::optional<DiskRecord> decodeRecord(std::string_view text, const DeviceIdentifier& device) {
    try {
        return decode(FlatObject::parse(text), device);
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

} // namespace ramdisk
