#include "RamDiskCore/Values/ByteCountFormat.h"
#include "RamDiskUI/ErrorText.h"
#include "RamDiskUI/RedirectText.h"
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
        if (!success.empty()) {
            context.console.confirm(success);
        }
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

/// The stored fields, and after them what is really there.
Json withStatus(const FolderRedirect& redirect, const RedirectStatus& status) {
    auto json = toJSON(redirect);
    json["shownAs"] = targetText(status.target);
    json["state"] = rawValue(status.condition);
    if (status.overriddenBy) {
        json["overriddenBy"] = *status.overriddenBy;
    }
    if (status.used) {
        json["used"] = toJSON(*status.used);
        json["usesMore"] = status.usesMore;
    }
    return json;
}

std::string usedText(const RedirectStatus& status) {
    return status.used ? fmt::format("{}{}", status.usesMore ? "more than " : "", format(*status.used)) : "-";
}

struct RedirectsListCommand {
    ExitStatus run(const CommandContext& context) const {
        const auto redirects = context.session.redirects->list();
        const auto told = tellNotUnderstood(context.session.redirects->notUnderstood(), "redirect", context);
        const auto statuses = context.session.redirects->statuses(redirects);
        if (context.console.wantsJSON()) {
            auto list = Json::array();
            for (std::size_t index = 0; index < redirects.size(); ++index) {
                list.push_back(withStatus(redirects[index], statuses[index]));
            }
            context.console.printDocument(compactText(list));
            return told;
        }
        if (redirects.empty()) {
            if (told == succeeded) {
                context.console.confirm("No folders are kept on RAM disks.");
            }
            return told;
        }
        std::vector<std::vector<std::string>> rows;
        for (std::size_t index = 0; index < redirects.size(); ++index) {
            rows.push_back({redirects[index].diskName, targetText(statuses[index].target),
                            statusText(statuses[index]), usedText(statuses[index])});
        }
        context.console.printTable({"DISK", "TARGET", "STATE", "USED"}, rows);
        return told;
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
        const auto status =
            tell(context.session.redirects->add(disk, {target}),
                 fmt::format("{} is kept on “{}”.", targetText(target), printable(disk.name)), context);
        if (status == succeeded && !context.console.wantsJSON()) {
            context.console.note(
                printable(redirectNote(target, context.platform.redirecting->settled(target))));
        }
        return status;
    }
};

bool isMounted(const std::string& name, const CommandContext& context) {
    try {
        return context.services.list->resolve({RamDiskReference::Name{name}}).mountPoint.has_value();
    } catch (const RamDiskError&) {
        return false;
    }
}

struct RedirectsRemoveCommand {
    RamDiskReference reference{RamDiskReference::Name{}};
    RedirectTarget target{};
    bool givesUp = false;

    void declare(Syntax& syntax) {
        syntax.value("REF", reference, referenceHelp);
        syntax.value("TARGET", target, targetHelp());
        syntax.flag("--forget", givesUp, "Remove it from the list even if the original is not found");
    }

    ExitStatus run(const CommandContext& context) const {
        using Lost = FolderRedirectsUseCase::LostOriginals;
        const auto name = diskNameOf(reference, context);
        const auto lost = givesUp ? Lost::givenUp : Lost::keptListed;
        const auto text = targetText(target);
        return tell(context.session.redirects->remove(name, {target}, lost),
                    givesUp
                        ? fmt::format("{} is no longer listed.", text)
                        : fmt::format("{} is back in its place. {}", text,
                                      isMounted(name, context) ? "Its files on the disk are removed."
                                                               : "“" + printable(name) + "” is not mounted."),
                    context);
    }
};

struct RedirectsRepairCommand {
    ExitStatus run(const CommandContext& context) const {
        const auto unknown =
            tellNotUnderstood(context.session.redirects->notUnderstood(), "redirect", context);
        const auto failures = context.session.redirects->repair();
        const auto told =
            tell(failures, unknown == succeeded ? "Every folder is where it belongs." : "", context);
        return unknown == succeeded ? told : failed;
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
