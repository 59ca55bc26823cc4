#include "RamDiskCore/Values/ByteCountFormat.h"
#include "RamDiskInfrastructure/Stores/ValueJSON.h"
#include "RamDiskUI/ErrorText.h"
#include "RamDiskUI/SessionText.h"
#include "tramdisk/KeptDisks.h"
#include "tramdisk/RedirectNotes.h"
#include "tramdisk/RedirectTargetText.h"
#include "tramdisk/SessionJSON.h"
#include "tramdisk/SetupDefaults.h"
#include "tramdisk/SetupOptions.h"
#include "tramdisk/Subcommand.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>

namespace ramdisk::cli {

namespace {

Json warningsJSON(const std::vector<CreationWarning>& warnings) {
    auto list = Json::array();
    for (const auto& warning : warnings) {
        list.push_back({{"case", warning.caseName()}, {"text", warningText(warning)}});
    }
    return list;
}

void tellWarnings(const std::vector<CreationWarning>& warnings, const Console& console) {
    for (const auto& warning : warnings) {
        console.warn(warningText(warning));
    }
}

/// Whether the only thing against the request is that somebody took its name.
bool isOnlyNameInUse(const RamDiskError& error) {
    const auto* invalid = std::get_if<RamDiskError::InvalidSpecification>(&error.value());
    return invalid != nullptr
           && std::all_of(invalid->issues.begin(), invalid->issues.end(), [](const ValidationIssue& issue) {
                  return std::holds_alternative<ValidationIssue::NameInUse>(issue.value);
              });
}

struct MadeDisk {
    RamDiskSetup setup;
    RamDiskSetupResult result;
};

/// A name that we suggested may be gone by the time it is taken; then the next free one is suggested.
MadeDisk createDisk(const SetupOptions& options, const CommandContext& context) {
    for (int attempt = 0;; ++attempt) {
        try {
            auto setup = setupFrom(options, context);
            auto result = context.session.setUp->execute(setup);
            return {std::move(setup), std::move(result)};
        } catch (const RamDiskError& error) {
            if (options.name || attempt >= 1000 || !isOnlyNameInUse(error)) {
                throw;
            }
        }
    }
}

/// What follows once the disk stands, one step a line.
std::vector<std::string> plannedAdditions(const RamDiskSetup& setup) {
    std::vector<std::string> steps;
    if (setup.createsAtLaunch) {
        steps.push_back(
            fmt::format("store it as a startup disk{}", setup.keepsFiles ? " that keeps its files" : ""));
    }
    if (setup.seedFolder) {
        steps.push_back(fmt::format("copy the contents of {} onto it", setup.seedFolder->string()));
    }
    for (const auto& folder : setup.folders) {
        steps.push_back(fmt::format("make the folder {} on it", folder));
    }
    for (const auto& target : setup.redirects) {
        steps.push_back(fmt::format("keep {} on it", targetText(target)));
    }
    return steps;
}

ExitStatus printPlan(const SetupOptions& options, const CommandContext& context) {
    auto setup = setupFrom(options, context);
    context.session.setUp->check(setup);
    for (const auto& target : setup.redirects) {
        static_cast<void>(context.platform.redirecting->place(context.platform.redirecting->settled(target)));
    }
    auto plan = context.services.create->plan(setup.specification);
    const auto additions = plannedAdditions(setup);
    plan.steps.insert(plan.steps.end(), additions.begin(), additions.end());
    if (context.console.wantsJSON()) {
        context.console.printDocument(
            compactText({{"plan", plan.steps}, {"warnings", warningsJSON(plan.warnings)}}));
        return succeeded;
    }
    tellWarnings(plan.warnings, context.console);
    for (const auto& step : plan.steps) {
        context.console.print(printable(step));
    }
    return succeeded;
}

std::string readyText(const RamDisk& disk) {
    const auto where = disk.mountPoint ? disk.mountPoint->string() : std::string("nowhere");
    return fmt::format("“{}” is ready at {} ({}, {}, {}).", printable(disk.name), printable(where),
                       disk.device.bsdName(), format(disk.capacity),
                       disk.fileSystemName.value_or("unknown format"));
}

struct CreateCommand {
    SetupOptions setup;
    bool isDryRun = false;

    void declare(Syntax& syntax) {
        setup.declareForNewDisk(syntax);
        syntax.flag("--dry-run", isDryRun, "Print what would be done, and do nothing");
    }

    ExitStatus run(const CommandContext& context) const {
        if (isDryRun) {
            return printPlan(setup, context);
        }
        const auto [made, result] = createDisk(setup, context);
        const auto& disk = result.creation.ramDisk;
        tellWarnings(result.creation.warnings, context.console);
        if (made.keepsFiles) {
            noteStorageInMemory(context);
        }
        if (context.console.wantsJSON()) {
            context.console.printDocument(compactText({{"ramDisk", toJSON(disk)},
                                                       {"warnings", warningsJSON(result.creation.warnings)},
                                                       {"problems", toJSON(result.problems)}}));
        }
        context.console.confirm(readyText(disk));
        for (const auto& target : made.redirects) {
            noteRedirect(disk.name, target, RedirectStart::empty, context);
        }
        if (made.createsAtLaunch && context.session.profiles->named(disk.name)) {
            context.console.confirm(atLaunchText(disk.name, made.keepsFiles));
            tellLostCopies(context);
        }
        if (!result.problems.empty()) {
            context.console.warn(printable(setupProblemsTitle(disk.name)));
            for (const auto& problem : result.problems) {
                context.console.warn(printable(problemText(problem)));
            }
        }
        return result.problems.empty() ? succeeded : failed;
    }
};

const RegisteredSubcommand createSubcommand{HelpSection::disks,
                                            Subcommand::of<CreateCommand>("create", "Make a RAM disk")};

} // namespace

} // namespace ramdisk::cli
