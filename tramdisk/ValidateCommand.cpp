#include "RamDiskCore/Validation/DiskFolders.h"
#include "RamDiskInfrastructure/Stores/ValueJSON.h"
#include "RamDiskUI/ErrorText.h"
#include "tramdisk/Commands.h"
#include "tramdisk/SetupDefaults.h"

#include <nlohmann/json.hpp>

namespace ramdisk::cli {

namespace {

Json reportJSON(const ValidationReport& report) {
    auto issues = Json::array();
    for (const auto& issue : report.issues) {
        issues.push_back({{"case", issue.caseName()},
                          {"severity", rawValue(issue.severity())},
                          {"field", rawValue(issue.field())},
                          {"text", issueText(issue)}});
    }
    return {{"isValid", report.isValid()}, {"issues", issues}};
}

} // namespace

ExitStatus run(const ValidateInvocation& invocation, const CommandContext& context) {
    const auto setup = setupFrom(invocation.setup, invocation.templateTitle, context);
    auto report = context.services.validator.validate(setup.specification,
                                                      context.services.validationContext.current());
    for (auto& issue : DiskFolders::check(setup.folders).issues) {
        report.issues.push_back(std::move(issue));
    }
    const auto status = report.isValid() ? succeeded : failed;
    if (context.console.wantsJSON()) {
        context.console.printDocument(compactText(reportJSON(report)));
        return status;
    }
    if (report.issues.empty()) {
        context.console.confirm("Nothing speaks against it.");
        return status;
    }
    std::vector<std::vector<std::string>> rows;
    for (const auto& issue : report.issues) {
        rows.push_back({std::string(rawValue(issue.field())), std::string(rawValue(issue.severity())),
                        issueText(issue)});
    }
    context.console.printTable({"FIELD", "SEVERITY", "ISSUE"}, rows);
    return status;
}

} // namespace ramdisk::cli
