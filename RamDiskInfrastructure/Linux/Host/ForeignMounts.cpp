#include "RamDiskInfrastructure/Linux/Host/ForeignMounts.h"

#include "RamDiskInfrastructure/Linux/Host/OpenFiles.h"
#include "RamDiskInfrastructure/Linux/Host/SmallFile.h"

#include <set>
#include <utility>

#include <sys/stat.h>

namespace ramdisk {

std::vector<ForeignMount> foreignMounts(const std::filesystem::path& proc,
                                        const std::function<bool(const MountEntry&)>& isWanted) {
    const auto namespaceOf = [](const std::filesystem::path& process) {
        struct stat status {};
        return stat((process / "ns/mnt").c_str(), &status) == 0 ? status.st_ino : 0;
    };
    std::set<ino_t> seen{0, namespaceOf(proc / "self")};
    std::vector<ForeignMount> found;
    for (const auto processID : processesIn(proc)) {
        const auto process = proc / std::to_string(processID);
        const auto place = namespaceOf(process);
        // One that has ended by now tells nothing; another one of its namespace may.
        const auto text = seen.contains(place) ? std::nullopt : tryReadSmallFile(process / "mountinfo");
        if (!text) {
            continue;
        }
        seen.insert(place);
        const auto table = MountTable::parse(*text);
        for (const auto& entry : table.entries()) {
            if (isWanted(entry)) {
                found.push_back({entry, {processID, commandName(process)}});
            }
        }
    }
    return found;
}

} // namespace ramdisk
