#include "RamDiskInfrastructure/Stores/UserDefaultsJSONList.h"

#include <utility>

namespace ramdisk {

std::optional<std::string> UserDefaultsJSONList::text() const {
    const auto value = defaults->value(key);
    const auto* data = value ? value->as<DefaultsValue::Data>() : nullptr;
    return data == nullptr ? std::nullopt : std::optional(data->bytes);
}

void UserDefaultsJSONList::remove() const {
    defaults->apply({{key, std::nullopt}});
}

std::optional<UserDefaultsJSONList> legacyList(std::string key,
                                               std::shared_ptr<UserDefaultsStoring> defaults) {
    if (!defaults) {
        return std::nullopt;
    }
    return UserDefaultsJSONList{std::move(key), std::move(defaults)};
}

} // namespace ramdisk
