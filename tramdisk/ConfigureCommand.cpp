#include "RamDiskInfrastructure/Stores/ValueJSON.h"
#include "RamDiskUI/SessionText.h"
#include "tramdisk/CommandLine.h"
#include "tramdisk/Commands.h"
#include "tramdisk/SessionJSON.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace ramdisk::cli {

namespace {

RamDiskChanges changesFrom(const SetupOptions& options) {
    RamDiskChanges changes;
    const auto& specification = options.specification;
    changes.name = specification.name;
    changes.access = specification.access;
    if (specification.isIndexingEnabled) {
        changes.indexing = *specification.isIndexingEnabled ? SearchIndexing::on : SearchIndexing::off;
    }
    changes.becomesStartupDisk = options.createsAtLaunch.value_or(false);
    changes.keepsFiles = options.keepsFiles;
    changes.seedFolder = options.seedFolder;
    changes.folders = options.folders;
    changes.redirects = options.redirects;
    return changes;
}

/// What only a startup disk can do is refused of another before anything is changed.
void requireStartupDisk(const RamDiskChanges& changes, const RamDisk& disk, const CommandContext& context) {
    if ((changes.keepsFiles || changes.seedFolder) && !changes.becomesStartupDisk
        && !context.session.profiles->named(disk.name)) {
        throw UsageError(fmt::format("“{}” is no startup disk: give --at-launch as well.", disk.name));
    }
}

} // namespace

ExitStatus run(const ConfigureInvocation& invocation, const CommandContext& context) {
    const auto disk = context.services.list->resolve(invocation.reference);
    const auto changes = changesFrom(invocation.setup);
    requireStartupDisk(changes, disk, context);
    const auto result = context.session.configure->execute(disk, changes);
    if (context.console.wantsJSON()) {
        context.console.printDocument(
            compactText({{"ramDisk", toJSON(result.ramDisk)}, {"problems", toJSON(result.problems)}}));
    }
    for (const auto& problem : result.problems) {
        context.console.fail(problemText(problem));
    }
    if (result.problems.empty()) {
        context.console.confirm(fmt::format("“{}” is changed.", printable(result.ramDisk.name)));
    }
    return result.problems.empty() ? succeeded : failed;
}

} // namespace ramdisk::cli
