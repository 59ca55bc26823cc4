#include "RamDiskCore/Values/RamDiskError.h"
#include "RamDiskInfrastructure/Stores/ValueJSON.h"
#include "tramdisk/ListJSON.h"
#include "tramdisk/Subcommand.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace ramdisk::cli {

namespace {

struct UsersCommand {
    RamDiskReference reference{RamDiskReference::Name{}};

    void declare(Syntax& syntax) { syntax.value("REF", reference, referenceHelp); }

    ExitStatus run(const CommandContext& context) const {
        const auto disk = context.services.list->resolve(reference);
        if (!disk.mountPoint) {
            throw RamDiskError(RamDiskError::NotMounted{disk.device});
        }
        const auto users = context.services.volumeUsers->users(*disk.mountPoint);
        if (context.console.wantsJSON()) {
            context.console.printDocument(compactText(listJSON(users)));
            return succeeded;
        }
        if (users.empty()) {
            context.console.confirm(fmt::format("No process uses “{}”.", disk.name));
            return succeeded;
        }
        std::vector<std::vector<std::string>> rows;
        for (const auto& user : users) {
            rows.push_back({std::to_string(user.processID), user.name});
        }
        context.console.printTable({"PID", "NAME"}, rows);
        return succeeded;
    }
};

const RegisteredSubcommand usersSubcommand{
    HelpSection::disks, Subcommand::of<UsersCommand>("users", "List the processes that use a disk")};

} // namespace

} // namespace ramdisk::cli
