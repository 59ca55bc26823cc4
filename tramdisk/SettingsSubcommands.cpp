#include "tramdisk/Parser.h"

#include <fmt/format.h>

#include <memory>

namespace ramdisk::cli {

namespace {

struct SettingsTexts {
    std::string action = "list";
    std::optional<std::string> key;
    std::optional<std::string> value;
};

Parser::Command read(const SettingsTexts& texts) {
    const auto& action = texts.action;
    if (action != "list" && action != "get" && action != "set" && action != "unset") {
        throw UsageError(
            fmt::format("“{}” is nothing to do with settings. Use list, get, set or unset.", action));
    }
    const bool needsKey = action != "list";
    const bool needsValue = action == "set";
    if (needsKey != texts.key.has_value() || needsValue != texts.value.has_value()) {
        throw UsageError(fmt::format("Use `tramdisk settings {}{}{}`.", action, needsKey ? " KEY" : "",
                                     needsValue ? " VALUE" : ""));
    }
    if (!needsKey) {
        return SettingsListInvocation{};
    }
    const auto setting = Setting::named(*texts.key);
    if (!setting) {
        throw UsageError(
            fmt::format("“{}” is not a setting. Run `tramdisk settings list` to see them.", *texts.key));
    }
    if (action == "get") {
        return SettingsGetInvocation{*setting};
    }
    if (action == "unset") {
        return SettingsUnsetInvocation{*setting};
    }
    auto value = setting->valueFrom(*texts.value);
    if (!value) {
        throw UsageError(fmt::format("“{}” is not a value of {}. Use {}.", *texts.value, setting->name(),
                                     setting->allowedValues()));
    }
    return SettingsSetInvocation{*setting, std::move(*value)};
}

} // namespace

void addSettingsSubcommands(Parser& parser) {
    const auto texts = std::make_shared<SettingsTexts>();
    auto& settings = parser.add("settings", "Show and change the settings", [texts] { return read(*texts); });
    settings.add_option("ACTION", texts->action, "list, get KEY, set KEY VALUE or unset KEY");
    settings.add_option("KEY", texts->key, "The name of a setting");
    settings.add_option("VALUE", texts->value, "What to set it to");
}

} // namespace ramdisk::cli
