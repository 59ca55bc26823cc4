#include "RamDiskCore/Validation/DiskFolders.h"
#include "RamDiskInfrastructure/Stores/ValueJSON.h"
#include "RamDiskUI/ErrorText.h"
#include "tramdisk/SetupDefaults.h"
#include "tramdisk/SetupOptions.h"
#include "tramdisk/Subcommand.h"

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

struct ValidateCommand {
    SetupOptions options;

    void declare(Syntax& syntax) { options.declareForNewDisk(syntax); }

    ExitStatus run(const CommandContext& context) const {
        const auto setup = setupFrom(options, context);
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
            context.console.confirm("A disk can be made with these options.");
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
};

const RegisteredSubcommand validateSubcommand{
    HelpSection::disks,
    Subcommand::of<ValidateCommand>("validate", "Check the options of a new disk without making it")};

} // namespace

} // namespace ramdisk::cli
