#include "RamDiskCore/Values/ByteCountFormat.h"
#include "RamDiskUI/ErrorText.h"
#include "RamDiskUI/RedirectText.h"
#include "tramdisk/KeptDisks.h"
#include "tramdisk/ListJSON.h"
#include "tramdisk/RedirectNotes.h"
#include "tramdisk/RedirectTargetText.h"
#include "tramdisk/Subcommand.h"
#include "tramdisk/UsageError.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <iterator>

namespace ramdisk::cli {

namespace {

using Told = std::vector<RedirectFailure>;

bool isNote(const RedirectFailure& told) {
    return told.kind == RedirectFailure::Kind::note;
}

void tellAsJSON(const Told& failures, const Told& notes, const CommandContext& context) {
    Json document{{"failures", listJSON(failures)}};
    for (const auto& note : notes) {
        document["notes"].push_back(failureText(note));
    }
    context.console.printDocument(compactText(document));
}

void tellFailure(const RedirectFailure& failure, const CommandContext& context) {
    context.console.fail(printable(failureText(failure)));
    const auto* const error = std::get_if<RamDiskError>(&failure.message);
    if (error != nullptr && std::holds_alternative<RamDiskError::InvalidSpecification>(error->value())) {
        context.console.hint("A redirect’s folder is named from the home folder: folder:work/app/target.");
    }
}

/// @param success what to say if nothing failed; may be empty.
ExitStatus tell(const Told& told, const std::string& success, const CommandContext& context) {
    Told failures;
    Told notes;
    std::partition_copy(told.begin(), told.end(), std::back_inserter(notes), std::back_inserter(failures),
                        isNote);
    if (context.console.wantsJSON()) {
        tellAsJSON(failures, notes, context);
    }
    for (const auto& failure : failures) {
        tellFailure(failure, context);
    }
    if (failures.empty() && !success.empty()) {
        context.console.confirm(success);
    }
    for (const auto& note : notes) {
        context.console.note(printable(failureText(note)));
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
    json["title"] = redirectTitle(status.target);
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
            printJSON(redirects, statuses, context);
        } else if (!redirects.empty()) {
            printRows(redirects, statuses, context);
        } else if (told == succeeded) {
            context.console.confirm("No folders are kept on RAM disks.");
            context.console.hint(redirectsIntroduction());
        }
        return told;
    }

private:
    using Redirects = std::vector<FolderRedirect>;
    using Statuses = std::vector<RedirectStatus>;

    static void printJSON(const Redirects& redirects, const Statuses& statuses,
                          const CommandContext& context) {
        auto list = Json::array();
        for (std::size_t index = 0; index < redirects.size(); ++index) {
            list.push_back(withStatus(redirects[index], statuses[index]));
        }
        context.console.printDocument(compactText(list));
    }

    static void printRows(const Redirects& redirects, const Statuses& statuses,
                          const CommandContext& context) {
        std::vector<std::vector<std::string>> rows;
        for (std::size_t index = 0; index < redirects.size(); ++index) {
            const auto& status = statuses[index];
            rows.push_back({redirects[index].diskName, targetText(status.target), statusText(status),
                            usedText(status), redirectTitle(status.target)});
        }
        context.console.printTable({"DISK", "TARGET", "STATE", "USED", "WHAT"}, rows);
    }
};

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
        const auto start = copies ? RedirectStart::copyOfOriginal : RedirectStart::empty;
        const auto status =
            tell(context.session.redirects->add(disk, {target}, start),
                 fmt::format("{} is kept on “{}”.", targetText(target), printable(disk.name)), context);
        noteRedirect(disk.name, target, start, context);
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
        const auto name = diskNameOf(reference, context);
        const auto before = findRedirect(name, target, context);
        const auto told = context.session.redirects->remove(name, {target}, lostOriginals(), filesOnDisk());
        return tell(told, doneText(printable(name), before ? std::optional(before->status) : std::nullopt),
                    context);
    }

private:
    [[nodiscard]] FolderRedirectsUseCase::LostOriginals lostOriginals() const {
        using Lost = FolderRedirectsUseCase::LostOriginals;
        return givesUp ? Lost::givenUp : Lost::keptListed;
    }

    [[nodiscard]] FolderRedirectsUseCase::FilesOnDisk filesOnDisk() const {
        using Files = FolderRedirectsUseCase::FilesOnDisk;
        return keepsFiles ? Files::putBack : isDiscarded ? Files::discarded : Files::guarded;
    }

    /// What was done with a redirect that stood like this before.
    [[nodiscard]] std::string doneText(const std::string& disk,
                                       const std::optional<RedirectStatus>& before) const {
        const auto text = targetText(target);
        const bool hadFolder = before && before->used;
        if (givesUp) {
            return fmt::format("{} is no longer listed.", text);
        }
        if (keepsFiles && hadFolder) {
            return fmt::format("{} is in its place, with the files that it had on “{}”.", text, disk);
        }
        if (before && before->condition == RedirectStatus::Condition::diskNotMounted) {
            return fmt::format("{} is back in its place. “{}” is not mounted. If it keeps its files, the "
                               "folder on it stays.",
                               text, disk);
        }
        if (hadFolder) {
            return fmt::format("{} is back in its place. Its files on “{}” are deleted ({}).", text, disk,
                               usedText(*before));
        }
        return fmt::format("{} is back in its place. It had no files on “{}”.", text, disk);
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
