#include "RamDiskUI/ErrorText.h"
#include "tramdisk/KeptDisks.h"
#include "tramdisk/RedirectTargetText.h"
#include "tramdisk/SessionJSON.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace ramdisk::cli {

namespace {

Json failuresJSON(const std::vector<RedirectFailure>& failures) {
    auto list = Json::array();
    for (const auto& failure : failures) {
        list.push_back(toJSON(failure));
    }
    return list;
}

ExitStatus tell(const std::vector<RedirectFailure>& failures, const std::string& success,
                const CommandContext& context) {
    if (context.console.wantsJSON()) {
        context.console.printDocument(compactText({{"failures", failuresJSON(failures)}}));
    }
    for (const auto& failure : failures) {
        context.console.fail(failureText(failure));
    }
    if (failures.empty()) {
        context.console.confirm(success);
        return succeeded;
    }
    return failed;
}

/// The name of the disk that is meant: a mounted one, or any name, since redirects outlive their disk.
std::string diskNameOf(const RamDiskReference& reference, const CommandContext& context) {
    if (const auto* name = std::get_if<RamDiskReference::Name>(&reference.value)) {
        if (!context.session.redirects->redirects(name->name).empty()) {
            return name->name;
        }
    }
    return context.services.list->resolve(reference).name;
}

} // namespace

ExitStatus run(const RedirectsListInvocation& /*invocation*/, const CommandContext& context) {
    const auto redirects = context.session.redirects->list();
    if (context.console.wantsJSON()) {
        auto list = Json::array();
        for (const auto& redirect : redirects) {
            list.push_back(toJSON(redirect));
        }
        context.console.printDocument(compactText(list));
        return succeeded;
    }
    if (redirects.empty()) {
        context.console.confirm("No folders are kept on RAM disks.");
        return succeeded;
    }
    std::vector<std::vector<std::string>> rows;
    for (const auto& redirect : redirects) {
        rows.push_back({redirect.diskName, targetText(redirect.target),
                        redirect.applying.value_or(false) ? "interrupted"
                        : redirect.restoreState           ? "in force"
                                                          : "waiting for the disk"});
    }
    context.console.printTable({"DISK", "TARGET", "STATE"}, rows);
    return succeeded;
}

ExitStatus run(const RedirectsAddInvocation& invocation, const CommandContext& context) {
    const auto disk = context.services.list->resolve(invocation.reference);
    if (!disk.mountPoint) {
        throw RamDiskError(RamDiskError::NotMounted{disk.device});
    }
    return tell(context.session.redirects->add(disk, {invocation.target}),
                fmt::format("{} is kept on “{}”.", targetText(invocation.target), printable(disk.name)),
                context);
}

ExitStatus run(const RedirectsRemoveInvocation& invocation, const CommandContext& context) {
    const auto name = diskNameOf(invocation.reference, context);
    return tell(context.session.redirects->remove(name, {invocation.target}),
                fmt::format("{} is back in its place.", targetText(invocation.target)), context);
}

ExitStatus run(const RedirectsRepairInvocation& /*invocation*/, const CommandContext& context) {
    return tell(context.session.redirects->repair(), "Every folder is where it belongs.", context);
}

} // namespace ramdisk::cli
