#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskCore/Values/ByteCountFormat.h"
#include "RamDiskInfrastructure/Stores/ValueJSON.h"
#include "tramdisk/Subcommand.h"

#include <nlohmann/json.hpp>

namespace ramdisk::cli {

namespace {

std::vector<std::pair<std::string, std::string>> fields(const RamDisk& disk) {
    const auto yesNo = [](bool value) { return value ? "yes" : "no"; };
    std::vector<std::pair<std::string, std::string>> rows{
        {"Device", disk.device.bsdName()}, {"Name", disk.name}, {"Size", format(disk.capacity)}};
    rows.emplace_back("Mount point", disk.mountPoint ? disk.mountPoint->string() : "(not mounted)");
    if (disk.fileSystemName) {
        rows.emplace_back("Format", *disk.fileSystemName);
    }
    if (disk.usage) {
        rows.emplace_back("Free", format(disk.usage->available));
    }
    if (disk.memoryFootprint) {
        rows.emplace_back("Memory held", format(*disk.memoryFootprint));
    }
    if (disk.isEncrypted) {
        rows.emplace_back("Encrypted", yesNo(*disk.isEncrypted));
    }
    rows.emplace_back("Access", std::string(rawValue(disk.access)));
    rows.emplace_back("Made by RamDisk", yesNo(disk.isCreatedByRamDisk));
    return rows;
}

/// Absent when the state cannot be told.
std::optional<std::string> indexingText(const RamDisk& disk, SearchIndexControlling& indexing) {
    try {
        const auto state = disk.mountPoint ? indexing.state(*disk.mountPoint) : std::nullopt;
        return state ? std::optional<std::string>(*state == SearchIndexing::on ? "on" : "off") : std::nullopt;
    } catch (const std::exception&) {
        traceCaught("indexing", "not shown");
        return std::nullopt;
    }
}

struct ShowCommand {
    RamDiskReference reference{RamDiskReference::Name{}};

    void declare(Syntax& syntax) { syntax.value("REF", reference, referenceHelp); }

    ExitStatus run(const CommandContext& context) const {
        const auto disk = context.services.list->resolve(reference);
        if (context.console.wantsJSON()) {
            context.console.printDocument(compactText(toJSON(disk)));
        } else {
            auto rows = fields(disk);
            if (const auto text = indexingText(disk, *context.services.indexing)) {
                rows.emplace_back("Indexing", *text);
            }
            context.console.printFields(rows);
        }
        return succeeded;
    }
};

const RegisteredSubcommand showSubcommand{HelpSection::disks,
                                          Subcommand::of<ShowCommand>("show", "Show one disk")};

} // namespace

} // namespace ramdisk::cli
