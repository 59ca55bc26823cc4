#include "RamDiskCore/Values/ByteCountFormat.h"
#include "RamDiskInfrastructure/Stores/ValueJSON.h"
#include "tramdisk/ListJSON.h"
#include "tramdisk/Subcommand.h"

#include <nlohmann/json.hpp>

namespace ramdisk::cli {

namespace {

std::vector<std::string> row(const RamDisk& disk) {
    const auto size = [](const std::optional<ByteCount>& value) {
        return value ? format(*value) : std::string("-");
    };
    return {disk.device.bsdName(),
            disk.name,
            format(disk.capacity),
            size(disk.memoryFootprint),
            disk.usage ? format(disk.usage->available) : "-",
            disk.fileSystemName.value_or("-"),
            std::string(rawValue(disk.access)),
            disk.mountPoint ? disk.mountPoint->string() : "(ejected, memory still in use)"};
}

struct ListCommand {
    ExitStatus run(const CommandContext& context) const {
        const auto disks = context.services.list->list();
        if (context.console.wantsJSON()) {
            context.console.printDocument(compactText(listJSON(disks)));
            return succeeded;
        }
        if (disks.empty()) {
            context.console.confirm("No RAM disks.");
            return succeeded;
        }
        std::vector<std::vector<std::string>> rows;
        for (const auto& disk : disks) {
            rows.push_back(row(disk));
        }
        context.console.printTable(
            {"DEVICE", "NAME", "SIZE", "USED", "FREE", "FORMAT", "ACCESS", "MOUNT POINT"}, rows);
        return succeeded;
    }
};

const RegisteredSubcommand listSubcommand{HelpSection::disks,
                                          Subcommand::of<ListCommand>("list", "List the RAM disks")};

} // namespace

} // namespace ramdisk::cli
