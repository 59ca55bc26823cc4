#include "RamDiskCore/Values/RamDiskError.h"
#include "RamDiskInfrastructure/Stores/ValueJSON.h"
#include "tramdisk/Commands.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace ramdisk::cli {

ExitStatus run(const ConfigureInvocation& invocation, const CommandContext& context) {
    const auto disk = context.services.list->resolve(invocation.reference);
    if (!disk.mountPoint) {
        throw RamDiskError(RamDiskError::NotMounted{disk.device});
    }
    if (invocation.indexing) {
        context.services.indexing->set(*invocation.indexing, *disk.mountPoint);
    }
    if (context.console.wantsJSON()) {
        context.console.printDocument(compactText(toJson(disk)));
    }
    context.console.confirm(fmt::format("“{}” is changed.", printable(disk.name)));
    return succeeded;
}

} // namespace ramdisk::cli
