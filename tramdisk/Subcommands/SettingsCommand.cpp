#include "RamDiskInfrastructure/Stores/DefaultsJSON.h"
#include "RamDiskInfrastructure/Stores/ValueJSON.h"
#include "tramdisk/Setting.h"
#include "tramdisk/Subcommand.h"
#include "tramdisk/UsageError.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace ramdisk::cli {

namespace {

ExitStatus show(const Setting& setting, const CommandContext& context) {
    const auto stored = context.stores.defaults->values();
    if (context.console.wantsJSON()) {
        context.console.printDocument(setting.jsonText(stored));
    } else {
        context.console.print(printable(setting.text(stored)));
    }
    return succeeded;
}

ExitStatus change(const Setting& setting, std::optional<DefaultsValue> value, const CommandContext& context) {
    context.stores.defaults->apply({{setting.defaultsKey(), std::move(value)}});
    const auto stored = context.stores.defaults->values();
    if (context.console.wantsJSON()) {
        context.console.printDocument(setting.jsonText(stored));
    }
    context.console.confirm(fmt::format("{} is now {}.", setting.name(), setting.text(stored)));
    if (!setting.hasEffect()) {
        context.console.note(fmt::format("{} has no effect on this platform yet.", setting.name()));
    }
    return succeeded;
}

ExitStatus list(const CommandContext& context) {
    if (context.console.wantsJSON()) {
        context.console.printDocument(compactText(toJSON(context.stores.preferences->load())));
        return succeeded;
    }
    const auto stored = context.stores.defaults->values();
    std::vector<std::vector<std::string>> rows;
    for (const auto& setting : Setting::all(context.platform)) {
        rows.push_back({std::string(setting.name()), setting.text(stored), setting.text({}),
                        setting.hasEffect() ? "" : "no effect on this platform yet"});
    }
    context.console.printTable({"SETTING", "VALUE", "DEFAULT", "NOTE"}, rows);
    return succeeded;
}

struct SettingsCommand {
    std::optional<std::string> givenAction;
    std::optional<std::string> key;
    std::optional<std::string> value;

    void declare(Syntax& syntax) {
        syntax.value("ACTION", givenAction, "list, get KEY, set KEY VALUE or unset KEY (default: list)");
        syntax.value("KEY", key, "The name of a setting");
        syntax.value("VALUE", value, "The new value");
    }

    [[nodiscard]] std::string action() const { return givenAction.value_or("list"); }

    void check() const {
        const bool needsKey = action() != "list";
        const bool needsValue = action() == "set";
        if (needsKey && !needsValue && action() != "get" && action() != "unset") {
            throw UsageError(fmt::format(
                "“{}” is not an action of `tramdisk settings`. Use list, get, set or unset.", action()));
        }
        if (needsKey != key.has_value() || needsValue != value.has_value()) {
            throw UsageError(fmt::format("Use `tramdisk settings {}{}{}`.", action(), needsKey ? " KEY" : "",
                                         needsValue ? " VALUE" : ""));
        }
    }

    ExitStatus run(const CommandContext& context) const {
        context.stores.defaults->requireReadable();
        if (!key) {
            return list(context);
        }
        const auto setting = Setting::named(*key, context.platform);
        if (!setting) {
            throw UsageError(
                fmt::format("“{}” is not a setting. Run `tramdisk settings list` to see them.", *key));
        }
        if (!value) {
            return action() == "get" ? show(*setting, context) : change(*setting, std::nullopt, context);
        }
        auto stored = setting->valueFrom(*value);
        if (!stored) {
            throw UsageError(fmt::format("“{}” is not a value of {}. Use {}.", *value, setting->name(),
                                         setting->allowedValues()));
        }
        const bool isDefault = setting->isDefault(*stored);
        return change(*setting, isDefault ? std::nullopt : std::move(stored), context);
    }
};

const RegisteredSubcommand settingsSubcommand{
    HelpSection::settings, Subcommand::of<SettingsCommand>("settings", "Show and change the settings")};

} // namespace

} // namespace ramdisk::cli
