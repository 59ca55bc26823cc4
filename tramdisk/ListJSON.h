#pragma once

#include "RamDiskInfrastructure/Stores/ValueJSON.h"
#include "tramdisk/SessionJSON.h"

#include <nlohmann/json.hpp>

#include <vector>

namespace ramdisk::cli {

/// A list of anything that has a `toJSON`, in its order.
template <typename Value>
[[nodiscard]] Json listJSON(const std::vector<Value>& values) {
    auto list = Json::array();
    for (const auto& value : values) {
        list.push_back(toJSON(value));
    }
    return list;
}

} // namespace ramdisk::cli
