#include "RamDiskInfrastructure/Stores/DefaultsJSON.h"
#include "RamDiskInfrastructure/Stores/ValueJSON.h"
#include "tramdisk/Commands.h"

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
    context.console.confirm(fmt::format("{} is now {}.", setting.name(), printable(setting.text(stored))));
    if (!setting.hasEffect()) {
        context.console.note(fmt::format("{} has no effect on this platform yet.", setting.name()));
    }
    return succeeded;
}

} // namespace

ExitStatus run(const SettingsListInvocation& /*invocation*/, const CommandContext& context) {
    if (context.console.wantsJSON()) {
        context.console.printDocument(compactText(toJSON(context.stores.preferences->load())));
        return succeeded;
    }
    const auto stored = context.stores.defaults->values();
    std::vector<std::vector<std::string>> rows;
    for (const auto& setting : Setting::all()) {
        rows.push_back({std::string(setting.name()), setting.text(stored), setting.text({}),
                        setting.hasEffect() ? "" : "no effect on this platform yet"});
    }
    context.console.printTable({"SETTING", "VALUE", "DEFAULT", "NOTE"}, rows);
    return succeeded;
}

ExitStatus run(const SettingsGetInvocation& invocation, const CommandContext& context) {
    return show(invocation.setting, context);
}

ExitStatus run(const SettingsSetInvocation& invocation, const CommandContext& context) {
    const auto& [setting, value] = invocation;
    return change(setting, setting.isDefault(value) ? std::nullopt : std::optional(value), context);
}

ExitStatus run(const SettingsUnsetInvocation& invocation, const CommandContext& context) {
    return change(invocation.setting, std::nullopt, context);
}

} // namespace ramdisk::cli
