#include "RamDiskInfrastructure/Linux/Host/SystemTools.h"

#include "RamDiskInfrastructure/Linux/Host/SmallFile.h"

#include <fmt/format.h>

#include <unistd.h>

namespace ramdisk {

std::optional<std::filesystem::path> findSystemTool(std::string_view name) {
    for (const std::filesystem::path folder : {"/usr/sbin", "/sbin", "/usr/bin", "/bin"}) {
        auto path = folder / name;
        if (access(path.c_str(), X_OK) == 0) {
            return path;
        }
    }
    return std::nullopt;
}

bool kernelListsFileSystem(std::string_view type, const std::filesystem::path& proc) {
    const auto list = tryReadSmallFile(proc / "filesystems").value_or("");
    return list.find(fmt::format("\t{}\n", type)) != std::string::npos;
}

} // namespace ramdisk
