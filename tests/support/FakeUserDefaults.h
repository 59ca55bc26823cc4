#pragma once

#include "RamDiskCore/Ports/UserDefaultsStoring.h"

namespace ramdisk::test {

/// User defaults in memory.
class FakeUserDefaults final : public UserDefaultsStoring {
public:
    [[nodiscard]] std::map<std::string, DefaultsValue> values() const override { return stored; }
    [[nodiscard]] std::optional<DefaultsValue> value(const std::string& key) const override {
        const auto found = stored.find(key);
        return found == stored.end() ? std::nullopt : std::optional(found->second);
    }
    void apply(const DefaultsChanges& changes) override {
        for (const auto& [key, value] : changes) {
            stored.erase(key);
            if (value) {
                stored.emplace(key, *value);
            }
        }
    }

    std::map<std::string, DefaultsValue> stored;
};

} // namespace ramdisk::test
