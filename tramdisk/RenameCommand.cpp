#include "RamDiskInfrastructure/Stores/ValueJSON.h"
#include "tramdisk/Commands.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace ramdisk::cli {

ExitStatus run(const RenameInvocation& invocation, const CommandContext& context) {
    const auto disk = context.services.list->resolve(invocation.reference);
    RamDiskChanges changes;
    changes.name = invocation.newName;
    const auto renamed = context.session.configure->execute(disk, std::move(changes)).ramDisk;
    if (context.console.wantsJSON()) {
        context.console.printDocument(compactText(toJSON(renamed)));
    }
    context.console.confirm(fmt::format("“{}” is now “{}”, at {}.", printable(disk.name),
                                        printable(renamed.name),
                                        printable(renamed.mountPoint.value_or("").string())));
    return succeeded;
}

} // namespace ramdisk::cli
