#include "RamDiskCore/Values/RamDiskError.h"
#include "RamDiskInfrastructure/Stores/ValueJSON.h"
#include "RamDiskUI/ErrorText.h"
#include "tramdisk/SetupDefaults.h"
#include "tramdisk/SetupOptions.h"
#include "tramdisk/Subcommand.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <iterator>

namespace ramdisk::cli {

namespace {

/// One thing to tell of the options.
struct Finding {
    std::string caseName;
    ValidationIssue::Severity severity;
    ValidationIssue::Field field;
    std::string text;
};

Finding findingOf(const ValidationIssue& issue) {
    return {std::string(issue.caseName()), issue.severity(), issue.field(), issueText(issue)};
}

ValidationIssue::Field fieldOf(const RamDiskError& error) {
    if (std::holds_alternative<RamDiskError::FormattingFailed>(error.value())) {
        return ValidationIssue::Field::fileSystem;
    }
    return std::holds_alternative<RamDiskError::AllocationFailed>(error.value())
               ? ValidationIssue::Field::size
               : ValidationIssue::Field::folders;
}

/// Adds why `check` refuses, unless that is told already.
template <typename Check>
void addRefusal(std::vector<Finding>& findings, const Check& check) {
    std::vector<Finding> refusals;
    try {
        check();
    } catch (const RamDiskError& error) {
        if (const auto* invalid = std::get_if<RamDiskError::InvalidSpecification>(&error.value())) {
            std::transform(invalid->issues.begin(), invalid->issues.end(), std::back_inserter(refusals),
                           findingOf);
        } else {
            refusals.push_back({std::string(error.caseName()), ValidationIssue::Severity::error,
                                fieldOf(error), errorText(error)});
        }
    } catch (const std::exception& error) {
        refusals.push_back(
            {"failed", ValidationIssue::Severity::error, ValidationIssue::Field::folders, errorText(error)});
    }
    for (auto& refusal : refusals) {
        if (std::none_of(findings.begin(), findings.end(),
                         [&refusal](const Finding& told) { return told.text == refusal.text; })) {
            findings.push_back(std::move(refusal));
        }
    }
}

/// All that `create` would tell before it makes anything.
std::vector<Finding> findings(RamDiskSetup setup, const CommandContext& context) {
    const auto report = context.services.validator.validate(setup.specification,
                                                            context.services.validationContext.current());
    std::vector<Finding> found;
    std::transform(report.issues.begin(), report.issues.end(), std::back_inserter(found), findingOf);
    addRefusal(found, [&] { context.session.setUp->check(setup); });
    addRefusal(found, [&] { context.services.create->requireSupport(setup.specification); });
    return found;
}

bool isError(const Finding& finding) {
    return finding.severity == ValidationIssue::Severity::error;
}

Json documentOf(const std::vector<Finding>& findings, bool isValid) {
    auto issues = Json::array();
    for (const auto& finding : findings) {
        issues.push_back({{"case", finding.caseName},
                          {"severity", rawValue(finding.severity)},
                          {"field", rawValue(finding.field)},
                          {"text", finding.text}});
    }
    return {{"isValid", isValid}, {"issues", issues}};
}

struct ValidateCommand {
    SetupOptions options;

    void declare(Syntax& syntax) { options.declareForNewDisk(syntax); }

    ExitStatus run(const CommandContext& context) const {
        const auto found = findings(setupFrom(options, context), context);
        const bool isValid = std::none_of(found.begin(), found.end(), isError);
        const auto status = isValid ? succeeded : failed;
        if (context.console.wantsJSON()) {
            context.console.printDocument(compactText(documentOf(found, isValid)));
            return status;
        }
        if (found.empty()) {
            context.console.confirm("A disk can be made with these options.");
            return status;
        }
        std::vector<std::vector<std::string>> rows;
        for (const auto& finding : found) {
            rows.push_back({std::string(rawValue(finding.field)), std::string(rawValue(finding.severity)),
                            finding.text});
        }
        context.console.printTable({"FIELD", "SEVERITY", "ISSUE"}, rows);
        return status;
    }
};

const RegisteredSubcommand validateSubcommand{
    HelpSection::disks,
    Subcommand::of<ValidateCommand>("validate", "Check the options of a new disk without making it")};

} // namespace

} // namespace ramdisk::cli
