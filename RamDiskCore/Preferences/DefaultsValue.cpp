#include "RamDiskCore/Preferences/DefaultsValue.h"

#include <algorithm>

namespace ramdisk {

const DefaultsValue* DefaultsValue::at(std::string_view key) const {
    const auto* dictionary = as<Dictionary>();
    if (dictionary == nullptr) {
        return nullptr;
    }
    const auto entry = std::find_if(dictionary->begin(), dictionary->end(),
                                    [key](const DefaultsEntry& candidate) { return candidate.key == key; });
    return entry == dictionary->end() ? nullptr : &entry->value;
}

bool operator==(const DefaultsEntry& left, const DefaultsEntry& right) {
    return left.key == right.key && left.value == right.value;
}

bool operator==(const DefaultsValue& left, const DefaultsValue& right) {
    const auto* dictionary = left.as<DefaultsValue::Dictionary>();
    if (dictionary == nullptr) {
        return left.value == right.value;
    }
    const auto* other = right.as<DefaultsValue::Dictionary>();
    return other != nullptr
           && std::is_permutation(dictionary->begin(), dictionary->end(), other->begin(), other->end());
}

} // namespace ramdisk
