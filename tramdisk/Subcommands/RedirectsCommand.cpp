#include "RamDiskCore/Redirects/RedirectConflicts.h"
#include "RamDiskCore/Values/ByteCountFormat.h"
#include "RamDiskUI/ErrorText.h"
#include "RamDiskUI/RedirectText.h"
#include "tramdisk/KeptDisks.h"
#include "tramdisk/ListJSON.h"
#include "tramdisk/RedirectTargetText.h"
#include "tramdisk/Subcommand.h"
#include "tramdisk/UsageError.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <iterator>

namespace ramdisk::cli {

namespace {

ExitStatus tell(const std::vector<RedirectFailure>& told, const std::string& success,
                const CommandContext& context) {
    auto failures = told;
    const auto notes =
        std::stable_partition(failures.begin(), failures.end(), [](const RedirectFailure& failure) {
            return failure.kind != RedirectFailure::Kind::note;
        });
    std::vector<std::string> noted;
    std::transform(notes, failures.end(), std::back_inserter(noted), failureText);
    failures.erase(notes, failures.end());
    if (context.console.wantsJSON()) {
        Json document{{"failures", listJSON(failures)}};
        if (!noted.empty()) {
            document["notes"] = noted;
        }
        context.console.printDocument(compactText(document));
    }
    for (const auto& failure : failures) {
        context.console.fail(printable(failureText(failure)));
        const auto* const error = std::get_if<RamDiskError>(&failure.message);
        if (error != nullptr && std::holds_alternative<RamDiskError::InvalidSpecification>(error->value())) {
            context.console.hint(
                "A redirect’s folder is named from the home folder: folder:work/app/target.");
        }
    }
    if (failures.empty() && !success.empty()) {
        context.console.confirm(success);
    }
    for (const auto& note : noted) {
        context.console.note(printable(note));
    }
    return failures.empty() ? succeeded : failed;
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

/// How the redirect stands that is stored for the target; absent when there is none.
std::optional<RedirectStatus> statusOf(const std::string& name, const RedirectTarget& target,
                                       const CommandContext& context) {
    for (const auto& redirect : context.session.redirects->redirects(name)) {
        if (isMeantBy(*context.platform.redirecting, redirect, target)) {
            return context.session.redirects->statuses({redirect}).front();
        }
    }
    return std::nullopt;
}

/// What to know about a folder that was just redirected.
std::string noteOf(const RamDisk& disk, const RedirectTarget& target, const CommandContext& context) {
    const auto status = statusOf(disk.name, target, context);
    if (std::holds_alternative<RedirectTarget::Folder>(target.value) && status && status->used
        && status->used->bytes > 0) {
        return "It has files on the disk already; the original is put back when the disk goes away.";
    }
    return redirectNote(target, context.platform.redirecting->settled(target));
}

struct RedirectsAddCommand {
    RamDiskReference reference{RamDiskReference::Name{}};
    RedirectTarget target{};
    bool copies = false;

    void declare(Syntax& syntax) {
        syntax.value("REF", reference, referenceHelp);
        syntax.value("TARGET", target, targetHelp());
        syntax.flag("--copy", copies, "Begin with a copy of the folder’s files");
    }

    ExitStatus run(const CommandContext& context) const {
        const auto disk = context.services.list->resolve(reference);
        if (!disk.mountPoint) {
            throw RamDiskError(RamDiskError::NotMounted{disk.device});
        }
        const auto status =
            tell(context.session.redirects->add(
                     disk, {target}, copies ? RedirectStart::copyOfOriginal : RedirectStart::empty),
                 fmt::format("{} is kept on “{}”.", targetText(target), printable(disk.name)), context);
        if (status == succeeded && !copies && !context.console.wantsJSON()) {
            context.console.note(printable(noteOf(disk, target, context)));
        }
        return status;
    }
};

struct RedirectsRemoveCommand {
    RamDiskReference reference{RamDiskReference::Name{}};
    RedirectTarget target{};
    bool givesUp = false;
    bool keepsFiles = false;
    bool isDiscarded = false;

    void declare(Syntax& syntax) {
        syntax.value("REF", reference, referenceHelp);
        syntax.value("TARGET", target, targetHelp());
        syntax.flag("--keep-files", keepsFiles, "Put the files on the disk in the folder’s place");
        syntax.flag("--discard", isDiscarded, "Delete the files on the disk");
        syntax.flag("--forget", givesUp, "Remove it from the list even if the original is not found");
    }

    void check() const {
        if (static_cast<int>(givesUp) + static_cast<int>(keepsFiles) + static_cast<int>(isDiscarded) > 1) {
            throw UsageError("Give one of --keep-files, --discard and --forget.");
        }
    }

    ExitStatus run(const CommandContext& context) const {
        using Lost = FolderRedirectsUseCase::LostOriginals;
        using Files = FolderRedirectsUseCase::FilesOnDisk;
        const auto name = diskNameOf(reference, context);
        const auto lost = givesUp ? Lost::givenUp : Lost::keptListed;
        const auto files = keepsFiles ? Files::putBack : isDiscarded ? Files::discarded : Files::guarded;
        const auto before = statusOf(name, target, context);
        return tell(context.session.redirects->remove(name, {target}, lost, files), textOf(name, before),
                    context);
    }

private:
    [[nodiscard]] std::string textOf(const std::string& name,
                                     const std::optional<RedirectStatus>& before) const {
        const auto text = targetText(target);
        const bool hasFolder = before && before->used;
        if (givesUp) {
            return fmt::format("{} is no longer listed.", text);
        }
        if (keepsFiles && hasFolder) {
            return fmt::format("{} is in its place, with the files that it had on “{}”.", text,
                               printable(name));
        }
        if (before && before->condition == RedirectStatus::Condition::diskNotMounted) {
            return fmt::format("{} is back in its place. “{}” is not mounted. If it keeps its files, the "
                               "folder on it stays.",
                               text, printable(name));
        }
        return fmt::format(
            "{} is back in its place. {}", text,
            hasFolder ? fmt::format("Its files on “{}” are deleted ({}).", printable(name), usedText(*before))
                      : fmt::format("It had no files on “{}”.", printable(name)));
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
