#include "RamDiskInfrastructure/Stores/ValueJSON.h"

#include <nlohmann/json.hpp>

namespace ramdisk {

Json toJSON(ByteCount value) {
    return {{"bytes", value.bytes}};
}

Json toJSON(const DeviceIdentifier& value) {
    return {{"bsdName", value.bsdName()}};
}

Json toJSON(const VolumeUsage& value) {
    return {{"total", toJSON(value.total)}, {"available", toJSON(value.available)}};
}

Json toJSON(const RamDisk& value) {
    Json json;
    json["device"] = toJSON(value.device);
    json["name"] = value.name;
    json["capacity"] = toJSON(value.capacity);
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
        json["usage"] = toJSON(*value.usage);
    }
    if (value.isEncrypted) {
        json["isEncrypted"] = *value.isEncrypted;
    }
    if (value.memoryFootprint) {
        json["memoryFootprint"] = toJSON(*value.memoryFootprint);
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

Json toJSON(const RamDiskSpecification& value) {
    return {{"name", value.name},
            {"size", toJSON(value.size)},
            {"fileSystem", rawValue(value.fileSystem)},
            {"isIndexingEnabled", value.isIndexingEnabled},
            {"isEncrypted", value.isEncrypted},
            {"access", rawValue(value.access)}};
}

Json toJSON(const SystemMemory& value) {
    return {{"physical", toJSON(value.physical)},  {"available", toJSON(value.available)},
            {"wired", toJSON(value.wired)},        {"compressed", toJSON(value.compressed)},
            {"swapUsed", toJSON(value.swapUsed)},  {"swapOuts", value.swapOuts},
            {"pressure", rawValue(value.pressure)}};
}

Json toJSON(const MemoryOverview& value) {
    return {{"system", toJSON(value.system)},
            {"ramDiskCount", value.ramDiskCount},
            {"reservedByRamDisks", toJSON(value.reservedByRamDisks)},
            {"usedByRamDisks", toJSON(value.usedByRamDisks)}};
}

Json toJSON(const VolumeUser& value) {
    return {{"processID", value.processID}, {"name", value.name}};
}

std::string compactText(const Json& json) {
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

} // namespace ramdisk
