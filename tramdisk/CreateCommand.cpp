#include "RamDiskCore/Values/ByteCountFormat.h"
#include "RamDiskInfrastructure/Stores/ValueJSON.h"
#include "RamDiskUI/ErrorText.h"
#include "tramdisk/Commands.h"
#include "tramdisk/SpecificationDefaults.h"

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

/// A name that we suggested may be gone by the time it is taken; then the next free one is suggested.
CreateRamDiskResult createDisk(const SpecificationOptions& options, const CommandContext& context) {
    for (int attempt = 0;; ++attempt) {
        try {
            return context.services.create->execute(specificationFrom(options, context));
        } catch (const RamDiskError& error) {
            if (options.name || attempt >= 1000 || !isOnlyNameInUse(error)) {
                throw;
            }
        }
    }
}

ExitStatus printPlan(const CreateInvocation& invocation, const CommandContext& context) {
    const auto plan = context.services.create->plan(specificationFrom(invocation.specification, context));
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

} // namespace

ExitStatus run(const CreateInvocation& invocation, const CommandContext& context) {
    if (invocation.isDryRun) {
        return printPlan(invocation, context);
    }
    const auto result = createDisk(invocation.specification, context);
    tellWarnings(result.warnings, context.console);
    if (context.console.wantsJSON()) {
        context.console.printDocument(compactText({{"ramDisk", toJson(result.ramDisk)},
                                                   {"warnings", warningsJSON(result.warnings)},
                                                   {"problems", Json::array()}}));
    }
    context.console.confirm(readyText(result.ramDisk));
    return succeeded;
}

} // namespace ramdisk::cli
