#include "RamDiskInfrastructure/Stores/LockedFile.h"

#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskInfrastructure/Stores/StoreFiles.h"
#include "RamDiskInfrastructure/Stores/StoredFile.h"

#include <fmt/format.h>

#include <sys/stat.h>

namespace ramdisk {

namespace {

constexpr int mostNamesTried = 100;

bool somethingStandsAt(const std::filesystem::path& path) {
    struct stat status {};
    return stored::status(path, status) == 0;
}

} // namespace

std::optional<std::string> LockedFile::read() const {
    return readStoredFile(file_);
}

bool LockedFile::exists() const {
    return somethingStandsAt(file_);
}

std::runtime_error LockedFile::unreadable() const {
    return std::runtime_error(fmt::format(
        "“{}” cannot be read. Repair it, or move it away to begin with an empty one.", file_.string()));
}

void LockedFile::clearUp() const noexcept {
    removeAbandonedVersions(file_);
}

void LockedFile::replace(std::string_view content, FormerContent former) const {
    makeFolders(file_.parent_path());
    PreparedFile prepared(file_, content);
    // Only when the new content is ready: a full disk would otherwise leave another copy at every attempt.
    if (former == FormerContent::unreadable) {
        setAside();
    }
    prepared.takePlace();
}

void LockedFile::setAside() const {
    const auto now = std::chrono::floor<std::chrono::seconds>(clock_().time_since_epoch()).count();
    // A second file in the same second must not take the place of the first one.
    for (int later = 0; later < mostNamesTried; ++later) {
        const auto aside =
            file_.parent_path() / fmt::format("{}.unreadable-{}.json", file_.stem().string(), now + later);
        // A second name rather than a move, so that the list's own name never stands for nothing.
        if (stored::link(file_, aside) == 0) {
            trace("stores", "{} cannot be read and is kept as {}", file_.native(), aside.native());
            return;
        }
        if (errno == EEXIST || somethingStandsAt(aside)) {
            continue;
        }
        // Not every file system has second names, and not every file may be given one.
        const bool isMoved = stored::rename(file_, aside) == 0;
        trace("stores", "{} cannot be read and {} {}", file_.native(),
              isMoved ? "is moved to" : "could not be kept as", aside.native());
        return;
    }
}

} // namespace ramdisk
