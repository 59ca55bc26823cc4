#include "RamDiskUI/ErrorText.h"
#include "tramdisk/KeptDisks.h"
#include "tramdisk/ListJSON.h"
#include "tramdisk/RedirectTargetText.h"
#include "tramdisk/Subcommand.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace ramdisk::cli {

namespace {

ExitStatus tell(const std::vector<RedirectFailure>& failures, const std::string& success,
                const CommandContext& context) {
    if (context.console.wantsJSON()) {
        context.console.printDocument(compactText({{"failures", listJSON(failures)}}));
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

struct RedirectsListCommand {
    ExitStatus run(const CommandContext& context) const {
        const auto redirects = context.session.redirects->list();
        if (context.console.wantsJSON()) {
            context.console.printDocument(compactText(listJSON(redirects)));
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
};

struct RedirectsAddCommand {
    RamDiskReference reference{RamDiskReference::Name{}};
    RedirectTarget target{};

    void declare(Syntax& syntax) {
        syntax.value("REF", reference, referenceHelp);
        syntax.value("TARGET", target, targetHelp());
    }

    ExitStatus run(const CommandContext& context) const {
        const auto disk = context.services.list->resolve(reference);
        if (!disk.mountPoint) {
            throw RamDiskError(RamDiskError::NotMounted{disk.device});
        }
        return tell(context.session.redirects->add(disk, {target}),
                    fmt::format("{} is kept on “{}”.", targetText(target), printable(disk.name)), context);
    }
};

struct RedirectsRemoveCommand {
    RamDiskReference reference{RamDiskReference::Name{}};
    RedirectTarget target{};

    void declare(Syntax& syntax) {
        syntax.value("REF", reference, referenceHelp);
        syntax.value("TARGET", target, targetHelp());
    }

    ExitStatus run(const CommandContext& context) const {
        const auto name = diskNameOf(reference, context);
        return tell(context.session.redirects->remove(name, {target}),
                    fmt::format("{} is back in its place.", targetText(target)), context);
    }
};

struct RedirectsRepairCommand {
    ExitStatus run(const CommandContext& context) const {
        return tell(context.session.redirects->repair(), "Every folder is where it belongs.", context);
    }
};

const RegisteredSubcommand redirectsSubcommand{
    HelpSection::settings,
    Subcommand::group(
        "redirects", "Keep the folders of tools on disks",
        {Subcommand::of<RedirectsListCommand>("list", "List the redirected folders"),
         Subcommand::of<RedirectsAddCommand>("add", "Redirect a folder to a disk"),
         Subcommand::of<RedirectsRemoveCommand>("remove", "Put a redirected folder back in its place"),
         Subcommand::of<RedirectsRepairCommand>(
             "repair", "Put back folders that an interrupted change or a lost disk left redirected")})};

} // namespace

} // namespace ramdisk::cli
