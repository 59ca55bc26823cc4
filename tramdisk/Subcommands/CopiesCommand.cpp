#include "RamDiskCore/Values/ByteCountFormat.h"
#include "tramdisk/KeptDisks.h"
#include "tramdisk/ListJSON.h"
#include "tramdisk/Subcommand.h"

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace ramdisk::cli {

namespace {

struct CopiesCommand {
    /// A disk, or the name of a startup disk that is not mounted.
    RamDiskReference reference{RamDiskReference::Name{}};

    void declare(Syntax& syntax) { syntax.value("REF", reference, referenceHelp); }

    ExitStatus run(const CommandContext& context) const {
        const auto copies = context.session.profileContents->copies(resolveProfile(reference, context));
        if (context.console.wantsJSON()) {
            context.console.printDocument(compactText(listJSON(copies)));
            return succeeded;
        }
        if (copies.empty()) {
            context.console.confirm("No saved copies.");
            return succeeded;
        }
        std::vector<std::vector<std::string>> rows;
        for (const auto& copy : copies) {
            const auto time = std::chrono::system_clock::to_time_t(copy.savedAt);
            rows.push_back({std::to_string(rows.size() + 1),
                            fmt::format("{:%Y-%m-%d %H:%M:%S}", fmt::localtime(time)), format(copy.size),
                            copy.isLatest ? "latest" : ""});
        }
        context.console.printTable({"COPY", "SAVED", "SIZE", ""}, rows);
        return succeeded;
    }
};

const RegisteredSubcommand copiesSubcommand{
    HelpSection::startupDisks, Subcommand::of<CopiesCommand>("copies", "List the saved copies of a disk")};

} // namespace

} // namespace ramdisk::cli
