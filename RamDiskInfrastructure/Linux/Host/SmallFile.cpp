#include "RamDiskInfrastructure/Linux/Host/SmallFile.h"

#include "RamDiskInfrastructure/Commands/SystemCallError.h"

#include <array>

#include <fcntl.h>
#include <unistd.h>

namespace ramdisk {

std::string readSmallFile(const std::filesystem::path& path) {
    const FileDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file) {
        throw SystemCallError("open", path);
    }
    std::string content;
    std::array<char, 16384> buffer{};
    for (;;) {
        const auto count = read(file.get(), buffer.data(), buffer.size());
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            throw SystemCallError("read", path);
        }
        if (count == 0) {
            return content;
        }
        content.append(buffer.data(), static_cast<std::size_t>(count));
    }
}

std::optional<std::string> tryReadSmallFile(const std::filesystem::path& path) {
    try {
        return readSmallFile(path);
    } catch (const SystemCallError&) {
        return std::nullopt;
    }
}

FileDescriptor requireFolder(const std::filesystem::path& path) {
    auto folder = openFolder(AT_FDCWD, path.c_str());
    if (!folder) {
        throw SystemCallError("open", path);
    }
    return folder;
}

} // namespace ramdisk
