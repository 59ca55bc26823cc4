#include "RamDiskInfrastructure/Stores/ValueJSON.h"
#include "tramdisk/Commands.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace ramdisk::cli {

ExitStatus run(const RenameInvocation& invocation, const CommandContext& context) {
    const auto disk = context.services.list->resolve(invocation.reference);
    const auto renamed = context.services.rename->execute(disk, invocation.newName);
    if (context.console.wantsJSON()) {
        context.console.printDocument(compactText(toJson(renamed)));
    }
    context.console.confirm(fmt::format("“{}” is now “{}”, at {}.", printable(disk.name),
                                        printable(renamed.name),
                                        printable(renamed.mountPoint.value_or("").string())));
    return succeeded;
}

} // namespace ramdisk::cli
