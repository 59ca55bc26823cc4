#include "RamDiskCore/Values/ByteCountFormat.h"
#include "RamDiskCore/Values/RamDiskError.h"
#include "RamDiskUI/SessionText.h"
#include "tramdisk/KeptDisks.h"
#include "tramdisk/ListJSON.h"
#include "tramdisk/ProgressLine.h"
#include "tramdisk/Subcommand.h"
#include "tramdisk/UsageError.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <stdexcept>

namespace ramdisk::cli {

namespace {

constexpr auto startupNameHelp = "The name of the startup disk";

struct StartupListCommand {
    ExitStatus run(const CommandContext& context) const {
        context.session.profiles->requireReadable();
        const auto profiles = context.session.profiles->list();
        tellLostCopies(context);
        const auto told =
            tellNotUnderstood(context.session.profiles->notUnderstood(), "startup disk", context);
        if (context.console.wantsJSON()) {
            context.console.printDocument(compactText(listJSON(profiles)));
            return told;
        }
        if (profiles.empty()) {
            if (told == succeeded) {
                context.console.confirm("No startup disks.");
            }
            return told;
        }
        const auto standing = context.session.lifecycle->keptDisks();
        std::vector<std::vector<std::string>> rows;
        for (const auto& profile : profiles) {
            std::string where;
            for (const auto& kept : standing) {
                if (kept.profile.id == profile.id) {
                    where = kept.disk.mountPoint->string();
                }
            }
            rows.push_back({profile.name, format(profile.size), std::string(rawValue(profile.fileSystem)),
                            profile.isEncrypted ? "yes" : "no", profile.keepsContents ? "kept" : "not kept",
                            std::to_string(profile.previousCopies), where});
        }
        context.console.printTable(
            {"NAME", "SIZE", "FORMAT", "ENCRYPTED", "FILES", "EARLIER COPIES", "MOUNTED AT"}, rows);
        return told;
    }
};

struct StartupAddCommand {
    std::optional<RamDiskReference> reference;
    std::optional<UUID> lostCopies;
    std::optional<std::string> name;
    bool keepsFiles = false;
    std::uint32_t previousCopies = 0;

    void declare(Syntax& syntax) {
        syntax.value("REF", reference, referenceHelp);
        syntax.flag("--keep-files", keepsFiles, "Save the disk's files and put them back at the next launch");
        syntax.number("--copies", previousCopies, "Number of earlier saved copies to keep (default: 0)");
        syntax.value("--from-copies", lostCopies,
                     "Instead of a disk: saved files that belong to no startup disk, by their identifier in "
                     "`tramdisk startup`");
        syntax.value("--name", name,
                     "The new startup disk's name (default: that of the disk that was saved)");
    }

    void check() const {
        if (reference.has_value() == lostCopies.has_value()) {
            throw UsageError("Name a disk, or saved files with --from-copies.");
        }
        if (name && !lostCopies) {
            throw UsageError("A disk has a name: give --name only with --from-copies.");
        }
    }

    ExitStatus run(const CommandContext& context) const {
        return lostCopies ? addLostCopies(context) : addDisk(context);
    }

private:
    ExitStatus addLostCopies(const CommandContext& context) const {
        const auto preferences = context.stores.preferences->load();
        auto profile = context.session.profiles->profileForLostCopies(
            *lostCopies,
            {.id = *lostCopies,
             .name = {},
             .size = {},
             .fileSystem = preferences.defaultFileSystem,
             .isIndexingEnabled = preferences.isIndexingEnabledByDefault,
             .access = preferences.newDiskAccess,
             .previousCopies = previousCopies},
            context.services.list->listOwn());
        profile.name = name.value_or(profile.name);
        // What every launch would refuse is told now.
        const auto report = context.services.validator.validate(specificationOf(profile),
                                                                context.services.validationContext.current());
        if (!report.isValid()) {
            throw RamDiskError(RamDiskError::InvalidSpecification{report.errors()});
        }
        context.session.profiles->store(profile);
        if (context.console.wantsJSON()) {
            context.console.printDocument(compactText(toJSON(profile)));
        }
        context.console.confirm(printable(
            fmt::format("{} `tramdisk startup create` makes it now.", atLaunchText(profile.name, true))));
        return succeeded;
    }

    ExitStatus addDisk(const CommandContext& context) const {
        const auto disk = context.services.list->resolve(*reference);
        if (const auto former = context.session.profiles->named(disk.name)) {
            throw std::runtime_error(fmt::format("“{}” is already a startup disk.", former->name));
        }
        auto profile = context.session.configure->makeProfile(disk);
        if (keepsFiles) {
            context.services.archiver->requireSupport(disk);
        }
        profile.keepsContents = profile.keepsContents || keepsFiles;
        profile.previousCopies = std::max(profile.previousCopies, previousCopies);
        context.session.profiles->store(profile, disk);
        if (keepsFiles) {
            noteStorageInMemory(context);
        }
        tellLostCopies(context);
        if (context.console.wantsJSON()) {
            context.console.printDocument(compactText(toJSON(profile)));
        }
        context.console.confirm(atLaunchText(profile.name, profile.keepsContents));
        return succeeded;
    }
};

struct StartupRemoveCommand {
    std::string name;
    bool isForced = false;
    bool forgetsRedirects = false;

    void declare(Syntax& syntax) {
        syntax.value("NAME", name, startupNameHelp);
        syntax.flag("--force", isForced, "Do not ask");
        syntax.flag("--remove-redirects", forgetsRedirects, "Remove the redirects to the disk as well");
    }

    ExitStatus run(const CommandContext& context) const {
        const auto profile = startupDiskNamed(name, context);
        if (!isForced && context.session.profiles->hasCopies(profile)) {
            const auto answer = Console::ask(fmt::format(
                "Remove “{}” from the startup disks? Its saved contents are deleted as well.", profile.name));
            if (!answer) {
                throw std::runtime_error(fmt::format(
                    "Removing “{}” deletes its saved contents. Give --force to do it.", profile.name));
            }
            if (!*answer) {
                context.console.confirm("Nothing was changed.");
                return failed;
            }
        }
        context.session.profiles->remove(profile);
        const auto failures = forgetsRedirects ? context.session.redirects->forget(profile.name)
                                               : std::vector<RedirectFailure>{};
        tellRedirectFailures(failures, context);
        if (context.console.wantsJSON()) {
            context.console.printDocument(compactText(toJSON(profile)));
        }
        context.console.confirm(fmt::format("“{}” is no longer a startup disk.", profile.name));
        return failures.empty() ? succeeded : failed;
    }
};

struct StartupCreateCommand {
    std::string name;

    void declare(Syntax& syntax) { syntax.value("NAME", name, startupNameHelp); }

    ExitStatus run(const CommandContext& context) const {
        const auto profile = startupDiskNamed(name, context);
        std::vector<RedirectFailure> failures;
        const auto outcome = [&] {
            ProgressLine progress(context.console.options(), "Filling");
            return context.session.lifecycle->create(profile, failures, progress.observer());
        }();
        if (context.console.wantsJSON()) {
            context.console.printDocument(compactText(toJSON(outcome)));
        }
        tellRedirectFailures(failures, context);
        if (outcome.needsAttention()) {
            context.console.fail(outcomeText(outcome));
            if (std::holds_alternative<StartupOutcome::RestoreFailed>(outcome.value)) {
                context.console.hint(unrestoredHint(profile.name));
            }
            return failed;
        }
        context.console.confirm(outcomeText(outcome));
        return succeeded;
    }
};

const RegisteredSubcommand startupSubcommand{
    HelpSection::startupDisks,
    Subcommand::group("startup", "Manage the disks that are made at every launch",
                      {Subcommand::of<StartupListCommand>("list", "List the startup disks"),
                       Subcommand::of<StartupAddCommand>("add", "Make an existing disk a startup disk"),
                       Subcommand::of<StartupRemoveCommand>(
                           "remove", "Remove a startup disk from the list and delete its saved files"),
                       Subcommand::of<StartupCreateCommand>(
                           "create", "Make a startup disk now, without waiting for the next launch")})};

} // namespace

} // namespace ramdisk::cli
