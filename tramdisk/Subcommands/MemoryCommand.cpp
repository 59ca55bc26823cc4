#include "RamDiskCore/Values/ByteCountFormat.h"
#include "RamDiskInfrastructure/Stores/ValueJSON.h"
#include "tramdisk/Subcommand.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace ramdisk::cli {

namespace {

std::string_view label(MemoryPressureLevel level) {
    switch (level) {
    case MemoryPressureLevel::normal:
        return "Enough memory";
    case MemoryPressureLevel::warning:
        return "Memory is getting short";
    case MemoryPressureLevel::critical:
        break;
    }
    return "Memory is short";
}

struct MemoryCommand {
    ExitStatus run(const CommandContext& context) const {
        const auto overview = context.services.memoryOverview->execute();
        if (context.console.wantsJSON()) {
            auto json = toJSON(overview);
            json["withoutRamDisks"] = toJSON(overview.withoutRamDisks());
            context.console.printDocument(compactText(json));
            return succeeded;
        }
        const auto& system = overview.system;
        context.console.printFields({
            {"Status", std::string(label(system.pressure))},
            {"Installed", format(system.physical)},
            {"Available", format(system.available)},
            {"Kernel, compressed", format({system.wired.bytes + system.compressed.bytes})},
            {"Swap", format(system.swapUsed)},
            {"RAM disks", fmt::format("{} ({} used of {})", overview.ramDiskCount,
                                      format(overview.usedByRamDisks), format(overview.reservedByRamDisks))},
            {"Without RAM disks", format(overview.withoutRamDisks())},
        });
        return succeeded;
    }
};

const RegisteredSubcommand memorySubcommand{
    HelpSection::disks,
    Subcommand::of<MemoryCommand>("memory", "Show how the memory of this machine is used")};

} // namespace

} // namespace ramdisk::cli
