#include "RamDiskInfrastructure/Stores/UserDefaultsDiskOrderStore.h"

#include <utility>

namespace ramdisk {

namespace {

constexpr auto key = "diskOrder";

} // namespace

UserDefaultsDiskOrderStore::UserDefaultsDiskOrderStore(std::shared_ptr<UserDefaultsStoring> defaults)
    : defaults_(std::move(defaults)) {}

DiskOrder UserDefaultsDiskOrderStore::read() const {
    const auto value = defaults_->value(key);
    const auto* array = value ? value->as<DefaultsValue::Array>() : nullptr;
    DiskOrder order;
    if (array == nullptr) {
        return order;
    }
    for (const auto& element : *array) {
        const auto* entry = element.as<std::string>();
        if (entry == nullptr) {
            return {};
        }
        if (order.entries.size() < DiskOrder::maximumLength) {
            order.entries.push_back(*entry);
        }
    }
    return order;
}

void UserDefaultsDiskOrderStore::write(const DiskOrder& order) {
    DefaultsValue::Array array;
    for (const auto& entry : order.entries) {
        array.push_back({entry});
    }
    defaults_->apply({{key, DefaultsValue{std::move(array)}}});
}

} // namespace ramdisk
