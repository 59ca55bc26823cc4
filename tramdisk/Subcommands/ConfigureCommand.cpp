#include "RamDiskInfrastructure/Stores/ValueJSON.h"
#include "RamDiskUI/SessionText.h"
#include "tramdisk/KeptDisks.h"
#include "tramdisk/RedirectNotes.h"
#include "tramdisk/SessionJSON.h"
#include "tramdisk/SetupOptions.h"
#include "tramdisk/Subcommand.h"
#include "tramdisk/UsageError.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace ramdisk::cli {

namespace {

RamDiskChanges changesFrom(const SetupOptions& options) {
    RamDiskChanges changes;
    changes.name = options.name;
    changes.access = options.access;
    if (options.isIndexingEnabled) {
        changes.indexing = *options.isIndexingEnabled ? SearchIndexing::on : SearchIndexing::off;
    }
    changes.becomesStartupDisk = options.createsAtLaunch.value_or(false);
    changes.keepsFiles = options.keepsFiles;
    changes.previousCopies = options.previousCopies;
    changes.seedFolder = options.seedFolder;
    changes.folders = options.folders;
    changes.redirects = options.redirects;
    changes.replacesRedirects = options.replacesRedirects;
    return changes;
}

/// What only a startup disk can do is refused of another before anything is changed.
void requireStartupDisk(const RamDiskChanges& changes, const RamDisk& disk, const CommandContext& context) {
    if ((changes.keepsFiles || changes.previousCopies || changes.seedFolder) && !changes.becomesStartupDisk
        && !context.session.profiles->named(disk.name)) {
        throw UsageError(fmt::format("“{}” is not a startup disk: give --at-launch as well.", disk.name));
    }
}

/// What becomes of the copies that are there.
void tellCopies(std::uint32_t kept, const std::string& disk, const CommandContext& context) {
    const auto profile = context.session.profiles->named(disk);
    const auto stored = profile ? context.session.profileContents->copies(*profile).size() : 0;
    // The latest is no earlier copy, and becomes one with the next save.
    if (stored > std::size_t{kept} + 1) {
        const auto surplus = stored - kept - 1;
        context.console.note(fmt::format("The next save removes {} of the earlier copies.", surplus));
    }
}

struct ConfigureCommand {
    RamDiskReference reference{RamDiskReference::Name{}};
    SetupOptions setup;

    void declare(Syntax& syntax) {
        syntax.value("REF", reference, referenceHelp);
        setup.declareForExistingDisk(syntax);
    }

    void check() const {
        if (setup == SetupOptions{}) {
            throw UsageError("Say what to change, such as --name NAME or --no-indexing.");
        }
    }

    ExitStatus run(const CommandContext& context) const {
        const auto disk = context.services.list->resolve(reference);
        const auto changes = changesFrom(setup);
        requireStartupDisk(changes, disk, context);
        const auto result = context.session.configure->execute(disk, changes);
        if (changes.keepsFiles.value_or(false)) {
            noteStorageInMemory(context);
        }
        if (context.console.wantsJSON()) {
            context.console.printDocument(
                compactText({{"ramDisk", toJSON(result.ramDisk)}, {"problems", toJSON(result.problems)}}));
        }
        for (const auto& problem : result.problems) {
            context.console.fail(problemText(problem));
        }
        for (const auto& target : changes.redirects) {
            noteRedirect(result.ramDisk.name, target, RedirectStart::empty, context);
        }
        if (result.problems.empty()) {
            context.console.confirm(fmt::format("“{}” is changed.", printable(result.ramDisk.name)));
            if (changes.previousCopies) {
                tellCopies(*changes.previousCopies, result.ramDisk.name, context);
            }
        }
        return result.problems.empty() ? succeeded : failed;
    }
};

const RegisteredSubcommand configureSubcommand{
    HelpSection::disks, Subcommand::of<ConfigureCommand>("configure", "Change an existing disk")};

} // namespace

} // namespace ramdisk::cli
