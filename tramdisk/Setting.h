#pragma once

#include "RamDiskCore/Preferences/PreferenceField.h"
#include "RamDiskInfrastructure/Platform/Platform.h"

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace ramdisk::cli {

/// One setting as users of the program name it: one that all platforms have, or one of this platform alone.
class Setting {
public:
    /// Absent when there is no such setting here.
    [[nodiscard]] static std::optional<Setting> named(std::string_view name, const Platform& platform);
    /// All settings, those of all platforms first.
    [[nodiscard]] static std::vector<Setting> all(const Platform& platform);

    [[nodiscard]] std::string_view name() const;
    [[nodiscard]] std::string defaultsKey() const;
    [[nodiscard]] std::string allowedValues() const;
    /// Whether anything heeds it yet.
    [[nodiscard]] bool hasEffect() const;

    /// What to store for a typed value; absent when it is invalid.
    [[nodiscard]] std::optional<DefaultsValue> valueFrom(std::string_view text) const;

    /// The value among the stored ones, or its default, as it can be typed.
    [[nodiscard]] std::string text(const std::map<std::string, DefaultsValue>& stored) const;
    /// The same as JSON.
    [[nodiscard]] std::string jsonText(const std::map<std::string, DefaultsValue>& stored) const;
    /// Whether a value is what the setting has when nothing is stored.
    [[nodiscard]] bool isDefault(const DefaultsValue& value) const;

private:
    using Kind = std::variant<const PreferenceField*, const PlatformSetting*>;
    explicit Setting(Kind kind) : kind_(kind) {}

    [[nodiscard]] const PreferenceField* field() const;
    [[nodiscard]] const PlatformSetting* own() const;
    [[nodiscard]] DefaultsValue value(const std::map<std::string, DefaultsValue>& stored) const;

    Kind kind_;
};

} // namespace ramdisk::cli
