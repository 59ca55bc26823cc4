#include "RamDiskCore/Values/ByteCountFormat.h"
#include "tramdisk/Commands.h"
#include "tramdisk/RedirectTargetText.h"
#include "tramdisk/SessionJSON.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <nlohmann/json.hpp>

namespace ramdisk::cli {

ExitStatus run(const TemplatesListInvocation& /*invocation*/, const CommandContext& context) {
    const auto templates = context.session.templates->templates();
    if (context.console.wantsJSON()) {
        auto list = Json::array();
        for (const auto& one : templates) {
            list.push_back(toJSON(one));
        }
        context.console.printDocument(compactText(list));
        return succeeded;
    }
    std::vector<std::vector<std::string>> rows;
    for (const auto& one : templates) {
        std::vector<std::string> targets;
        for (const auto& target : one.setup.redirects) {
            targets.push_back(targetText(target));
        }
        const auto& specification = one.setup.specification;
        rows.push_back({one.title(), specification.name, format(specification.size),
                        std::string(rawValue(specification.fileSystem)),
                        one.setup.createsAtLaunch ? "yes" : "no", one.setup.keepsFiles ? "kept" : "not kept",
                        fmt::format("{}", fmt::join(targets, " ")), one.commandLine()});
    }
    context.console.printTable(
        {"TITLE", "NAME", "SIZE", "FORMAT", "AT LAUNCH", "FILES", "REDIRECTS", "COMMAND"}, rows);
    return succeeded;
}

ExitStatus run(const TemplatesSaveInvocation& invocation, const CommandContext& context) {
    const auto disk = context.services.list->resolve(invocation.reference);
    const auto saved = context.session.templates->save(invocation.title, disk);
    if (context.console.wantsJSON()) {
        context.console.printDocument(compactText(toJSON(saved)));
    }
    context.console.confirm(fmt::format("“{}” is saved. Use it with: {}", printable(saved.title()),
                                        printable(saved.commandLine())));
    return succeeded;
}

ExitStatus run(const TemplatesRemoveInvocation& invocation, const CommandContext& context) {
    const auto found = context.session.templates->named(invocation.title);
    context.session.templates->remove(found.id);
    if (context.console.wantsJSON()) {
        context.console.printDocument(compactText(toJSON(found)));
    }
    context.console.confirm(fmt::format("“{}” is removed.", printable(found.title())));
    return succeeded;
}

} // namespace ramdisk::cli
