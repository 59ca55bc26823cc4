#include "RamDiskInfrastructure/Stores/ValueJSON.h"
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
        const auto renamed = context.session.configure->execute(disk, std::move(changes)).ramDisk;
        if (context.console.wantsJSON()) {
            context.console.printDocument(compactText(toJSON(renamed)));
        }
        context.console.confirm(fmt::format("“{}” is now “{}”, at {}.", printable(disk.name),
                                            printable(renamed.name),
                                            printable(renamed.mountPoint.value_or("").string())));
        return succeeded;
    }
};

const RegisteredSubcommand renameSubcommand{HelpSection::disks,
                                            Subcommand::of<RenameCommand>("rename", "Rename a disk")};

} // namespace

} // namespace ramdisk::cli
