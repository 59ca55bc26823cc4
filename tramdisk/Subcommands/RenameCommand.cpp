#include "RamDiskInfrastructure/Stores/ValueJSON.h"
#include "RamDiskUI/SessionText.h"
#include "tramdisk/Subcommand.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace ramdisk::cli {

namespace {

struct RenameCommand {
    RamDiskReference reference{RamDiskReference::Name{}};
    std::string newName;

    void declare(Syntax& syntax) {
        syntax.value("REF", reference, referenceHelp);
        syntax.value("NAME", newName, "The new name");
    }

    ExitStatus run(const CommandContext& context) const {
        const auto disk = context.services.list->resolve(reference);
        RamDiskChanges changes;
        changes.name = newName;
        const auto result = context.session.configure->execute(disk, std::move(changes));
        const auto& renamed = result.ramDisk;
        if (context.console.wantsJSON()) {
            context.console.printDocument(compactText(toJSON(renamed)));
        }
        context.console.confirm(fmt::format("“{}” is now “{}”, at {}.", disk.name, renamed.name,
                                            renamed.mountPoint.value_or("").string()));
        for (const auto& problem : result.problems) {
            context.console.fail(problemText(problem));
        }
        return result.problems.empty() ? succeeded : failed;
    }
};

const RegisteredSubcommand renameSubcommand{HelpSection::disks,
                                            Subcommand::of<RenameCommand>("rename", "Rename a disk")};

} // namespace

} // namespace ramdisk::cli
