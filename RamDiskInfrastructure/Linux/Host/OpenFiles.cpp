#include "RamDiskInfrastructure/Linux/Host/OpenFiles.h"

#include "RamDiskInfrastructure/Linux/Host/SmallFile.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <map>
#include <string>
#include <string_view>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace ramdisk {

namespace {

namespace fs = std::filesystem;

std::string linkTarget(const fs::path& link) {
    std::array<char, 4097> buffer{};
    const auto length = readlink(link.c_str(), buffer.data(), buffer.size() - 1);
    return length < 0 ? std::string() : std::string(buffer.data(), static_cast<std::size_t>(length));
}

bool isBelow(std::string_view path, std::string_view folder) {
    return path.starts_with(folder)
           && (path.size() == folder.size() || path[folder.size()] == '/'
               || path.substr(folder.size()) == " (deleted)");
}

/// Collects the open files of one place.
class Search {
public:
    explicit Search(const FilesPlace& place) : place_(place) {}

    /// Whether the process whose folder below /proc is given uses the place.
    bool uses(const fs::path& process) {
        // All of it is looked at even after the first hit, since every open file counts for the held memory.
        bool found = false;
        for (const char* name : {"cwd", "root", "exe"}) {
            found = isHit(process / name) || found;
        }
        std::error_code ignored;
        for (const auto& entry : fs::directory_iterator(process / "fd", ignored)) {
            found = isHit(entry.path()) || found;
        }
        return maps(process) || found;
    }

    [[nodiscard]] std::optional<ByteCount> held() const {
        if (std::holds_alternative<FilesPlace::Device>(place_.value)) {
            return heldByFileSystem_;
        }
        ByteCount sum;
        for (const auto& [file, size] : heldFiles_) {
            sum.bytes += size;
        }
        return sum;
    }

private:
    bool isHit(const fs::path& link) {
        struct stat status {};
        if (const auto* device = std::get_if<FilesPlace::Device>(&place_.value)) {
            if (stat(link.c_str(), &status) != 0 || status.st_dev != device->number) {
                return false;
            }
            struct statfs volume {};
            if (!heldByFileSystem_ && statfs(link.c_str(), &volume) == 0) {
                heldByFileSystem_ = ByteCount{(volume.f_blocks - volume.f_bfree)
                                              * static_cast<std::uint64_t>(volume.f_bsize)};
            }
            return true;
        }
        if (!isBelow(linkTarget(link), std::get<FilesPlace::Folder>(place_.value).path.native())) {
            return false;
        }
        if (stat(link.c_str(), &status) == 0) {
            heldFiles_[{status.st_dev, status.st_ino}] = static_cast<std::uint64_t>(status.st_blocks) * 512;
        }
        return true;
    }

    /// Lines of /proc/PID/maps: ADDRESSES PERMISSIONS OFFSET MAJOR:MINOR INODE PATH
    bool maps(const fs::path& process) const {
        const auto text = tryReadSmallFile(process / "maps");
        if (!text) {
            return false;
        }
        if (const auto* device = std::get_if<FilesPlace::Device>(&place_.value)) {
            const auto field = fmt::format(" {:02x}:{:02x} ", major(device->number), minor(device->number));
            return text->find(field) != std::string::npos;
        }
        return text->find(std::get<FilesPlace::Folder>(place_.value).path.native() + "/")
               != std::string::npos;
    }

    const FilesPlace& place_;
    std::optional<ByteCount> heldByFileSystem_;
    std::map<std::pair<dev_t, ino_t>, std::uint64_t> heldFiles_;
};

} // namespace

std::vector<std::int32_t> processesIn(const fs::path& proc) {
    std::vector<std::int32_t> processes;
    std::error_code ignored;
    for (const auto& entry : fs::directory_iterator(proc, ignored)) {
        const auto digits = entry.path().filename().string();
        std::int32_t processID = 0;
        const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), processID);
        if (error == std::errc{} && end == digits.data() + digits.size()) {
            processes.push_back(processID);
        }
    }
    return processes;
}

std::string commandName(const fs::path& process) {
    auto name = tryReadSmallFile(process / "comm").value_or("?");
    while (!name.empty() && name.back() == '\n') {
        name.pop_back();
    }
    return name;
}

OpenFiles OpenFiles::find(const fs::path& proc, const FilesPlace& place) {
    OpenFiles result;
    Search search(place);
    for (const auto processID : processesIn(proc)) {
        const auto process = proc / std::to_string(processID);
        if (search.uses(process)) {
            result.users.push_back({processID, commandName(process)});
        }
    }
    std::sort(result.users.begin(), result.users.end(), [](const VolumeUser& left, const VolumeUser& right) {
        return left.processID < right.processID;
    });
    result.held = result.users.empty() ? ByteCount{} : search.held();
    return result;
}

std::vector<std::string> describe(const std::vector<VolumeUser>& users) {
    std::vector<std::string> names;
    names.reserve(users.size());
    for (const auto& user : users) {
        names.push_back(fmt::format("{} ({})", user.name, user.processID));
    }
    return names;
}

} // namespace ramdisk
