#include "RamDiskInfrastructure/Stores/ValueJSON.h"

#include <nlohmann/json.hpp>

namespace ramdisk {

Json toJson(ByteCount value) {
    return {{"bytes", value.bytes}};
}

Json toJson(const DeviceIdentifier& value) {
    return {{"bsdName", value.bsdName()}};
}

Json toJson(const VolumeUsage& value) {
    return {{"total", toJson(value.total)}, {"available", toJson(value.available)}};
}

Json toJson(const RamDisk& value) {
    Json json;
    json["device"] = toJson(value.device);
    json["name"] = value.name;
    json["capacity"] = toJson(value.capacity);
    if (value.mountPoint) {
        json["mountPoint"] = value.mountPoint->string();
    }
    if (value.fileSystemName) {
        json["fileSystemName"] = *value.fileSystemName;
    }
    if (value.fileSystem) {
        json["fileSystem"] = rawValue(*value.fileSystem);
    }
    if (value.usage) {
        json["usage"] = toJson(*value.usage);
    }
    if (value.isEncrypted) {
        json["isEncrypted"] = *value.isEncrypted;
    }
    if (value.memoryFootprint) {
        json["memoryFootprint"] = toJson(*value.memoryFootprint);
    }
    json["isCreatedByRamDisk"] = value.isCreatedByRamDisk;
    if (value.instance) {
        json["instance"] = value.instance->text();
    }
    json["access"] = rawValue(value.access);
    if (value.attachment) {
        json["attachment"] = *value.attachment;
    }
    return json;
}

Json toJson(const RamDiskSpecification& value) {
    return {{"name", value.name},
            {"size", toJson(value.size)},
            {"fileSystem", rawValue(value.fileSystem)},
            {"isIndexingEnabled", value.isIndexingEnabled},
            {"isEncrypted", value.isEncrypted},
            {"access", rawValue(value.access)}};
}

Json toJson(const SystemMemory& value) {
    return {{"physical", toJson(value.physical)},  {"available", toJson(value.available)},
            {"wired", toJson(value.wired)},        {"compressed", toJson(value.compressed)},
            {"swapUsed", toJson(value.swapUsed)},  {"swapOuts", value.swapOuts},
            {"pressure", rawValue(value.pressure)}};
}

Json toJson(const MemoryOverview& value) {
    return {{"system", toJson(value.system)},
            {"ramDiskCount", value.ramDiskCount},
            {"reservedByRamDisks", toJson(value.reservedByRamDisks)},
            {"usedByRamDisks", toJson(value.usedByRamDisks)}};
}

Json toJson(const VolumeUser& value) {
    return {{"processID", value.processID}, {"name", value.name}};
}

std::string compactText(const Json& json) {
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

} // namespace ramdisk
