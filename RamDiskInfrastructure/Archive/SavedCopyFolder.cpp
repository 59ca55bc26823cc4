#include "RamDiskInfrastructure/Archive/SavedCopyFolder.h"

#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskCore/Values/RamDiskError.h"
#include "RamDiskInfrastructure/Archive/FileIdentity.h"
#include "RamDiskInfrastructure/Commands/SystemCallError.h"
#include "RamDiskInfrastructure/Stores/StoreFiles.h"
#include "RamDiskInfrastructure/Stores/StoredFile.h"

#include <fmt/format.h>

#include <algorithm>

namespace ramdisk {

namespace {

constexpr std::uint64_t statusBlockSize = 512;

struct stat statusOf(const std::filesystem::path& image) {
    struct stat status {};
    if (stored::status(image, status) != 0) {
        throw SystemCallError("read", image);
    }
    return status;
}

std::chrono::system_clock::time_point modifiedAt(const std::filesystem::path& image) {
    return std::chrono::system_clock::from_time_t(statusOf(image).st_mtime);
}

ByteCount allocated(const std::filesystem::path& image) {
    return ByteCount{static_cast<std::uint64_t>(statusOf(image).st_blocks) * statusBlockSize};
}

bool isMissing(const std::filesystem::path& file) {
    struct stat status {};
    return stored::status(file, status) != 0 && errno == ENOENT;
}

void renameFile(const std::filesystem::path& from, const std::filesystem::path& to) {
    if (stored::rename(from, to) != 0) {
        throw SystemCallError("replace", to);
    }
}

void removeFile(const std::filesystem::path& file) {
    if (stored::remove(file) != 0 && errno != ENOENT) {
        throw SystemCallError("remove", file);
    }
}

bool knowsNoHardLinks(int error) {
    return error == EPERM || error == ENOTSUP || error == EOPNOTSUPP || error == ENOSYS || error == EMLINK;
}

} // namespace

SavedCopyFolder::SavedCopyFolder(const SavedCopyFiles& files, HardLinks hardLinks, const StepObserver& steps)
    : names_{files},
      hardLinks_(hardLinks),
      steps_(steps) {}

void SavedCopyFolder::tidy(SavedImageTool& tool) const {
    const auto& latest = names_.files.latest;
    const auto incoming = names_.incoming();
    if (isMissing(latest)) {
        const auto earlier = earlierCopies();
        if (FileIdentity::of(incoming)) {
            trace("save", "tidying: {} becomes the latest copy, as its save was cut short",
                  incoming.native());
            renameFile(incoming, latest);
        } else if (!earlier.empty()) {
            trace("save", "tidying: the latest copy is missing, so {} becomes it",
                  earlier.front().image.native());
            renameFile(earlier.front().image, latest);
        }
    }
    if (FileIdentity::of(incoming)) {
        trace("save", "tidying: {} is a second name that was not used", incoming.native());
        removeFile(incoming);
    }
    if (const auto identity = FileIdentity::of(latest)) {
        for (const auto& entry : entries()) {
            if (names_.isEarlier(entry) && FileIdentity::of(entry) == identity) {
                trace("save", "tidying: {} is a second name of the latest copy", entry.native());
                removeFile(entry);
            }
        }
    }
    removePartials(tool);
}

void SavedCopyFolder::requireOwnPlace() const {
    const auto& latest = names_.files.latest;
    if (!isMissing(latest) && !FileIdentity::of(latest)) {
        throw RamDiskError(RamDiskError::ContentsTransferFailed{fmt::format(
            "there is a link, or something else that is no file, at {}. Move it away.", latest.native())});
    }
}

std::vector<SavedCopy> SavedCopyFolder::copies() const {
    requireOwnPlace();
    auto earlier = earlierCopies();
    std::vector<SavedCopy> copies;
    for (const auto& image : {names_.files.latest, names_.incoming()}) {
        if (copies.empty() && FileIdentity::of(image)) {
            copies.push_back({image, modifiedAt(image), allocated(image), true});
        }
    }
    for (const auto& copy : earlier) {
        copies.push_back({copy.image, copy.name.time(), allocated(copy.image), copies.empty()});
    }
    return copies;
}

void SavedCopyFolder::takePlace(const std::filesystem::path& partial) const {
    const auto& latest = names_.files.latest;
    const bool hasLatest = FileIdentity::of(latest).has_value();
    bool isKept = false;
    if (hasLatest) {
        step("keep latest");
        isKept = linkTo(latest, freeEarlierName());
    }
    if (!hasLatest || isKept) {
        step("replace latest");
        renameFile(partial, latest);
    } else {
        step("name incoming");
        renameFile(partial, names_.incoming());
        step("move latest aside");
        renameFile(latest, freeEarlierName());
        step("replace latest");
        renameFile(names_.incoming(), latest);
    }
    step("flush folder");
    flushFolder(latest.parent_path());
}

void SavedCopyFolder::bringBack(const std::filesystem::path& earlier) const {
    const auto& latest = names_.files.latest;
    step("name incoming");
    if (linkTo(earlier, names_.incoming())) {
        step("keep latest");
        if (FileIdentity::of(latest) && !linkTo(latest, freeEarlierName())) {
            throw SystemCallError("keep", latest, EPERM);
        }
        step("replace latest");
        renameFile(names_.incoming(), latest);
        step("remove earlier");
        removeFile(earlier);
    } else {
        step("move latest aside");
        if (FileIdentity::of(latest)) {
            renameFile(latest, freeEarlierName());
        }
        step("replace latest");
        renameFile(earlier, latest);
    }
    step("flush folder");
    flushFolder(latest.parent_path());
}

void SavedCopyFolder::prune(std::uint32_t previousCopies, SavedImageTool& tool) const {
    auto earlier = earlierCopies();
    while (earlier.size() > previousCopies) {
        step("retire");
        tool.retire(earlier.back().image, names_.files);
        earlier.pop_back();
    }
}

void SavedCopyFolder::remove(SavedImageTool& tool) const {
    // The latest goes last: as long as any of them is there, it is.
    removePartials(tool);
    removeFile(names_.spare());
    removeFile(names_.incoming());
    for (const auto& entry : entries()) {
        if (names_.isEarlier(entry) || names_.isDamaged(entry)) {
            removeFile(entry);
        }
    }
    removeFile(names_.files.latest);
    removeFile(names_.bound());
    if (!isMissing(names_.files.latest.parent_path())) {
        flushFolder(names_.files.latest.parent_path());
    }
}

bool SavedCopyFolder::holdsEarlier(const std::filesystem::path& image) const {
    std::error_code ignored;
    return names_.isEarlier(image) && FileIdentity::of(image)
           && std::filesystem::equivalent(image.parent_path(), names_.files.latest.parent_path(), ignored);
}

std::optional<std::filesystem::path> SavedCopyFolder::damagedName(const std::filesystem::path& image) const {
    const auto identity = FileIdentity::of(image);
    for (auto& entry : entries()) {
        if (identity && names_.isDamaged(entry) && FileIdentity::of(entry) == identity) {
            return std::move(entry);
        }
    }
    return std::nullopt;
}

std::vector<SavedCopyFolder::Earlier> SavedCopyFolder::earlierCopies() const {
    const auto latest = FileIdentity::of(names_.files.latest);
    std::vector<Earlier> copies;
    for (const auto& entry : entries()) {
        const auto name = names_.earlierNamed(entry);
        const auto identity = FileIdentity::of(entry);
        if (name && identity && identity != latest) {
            copies.push_back({entry, *name});
        }
    }
    std::sort(copies.begin(), copies.end(),
              [](const Earlier& left, const Earlier& right) { return left.name > right.name; });
    return copies;
}

std::vector<std::filesystem::path> SavedCopyFolder::entries() const {
    return stored::entries(names_.files.latest.parent_path());
}

bool SavedCopyFolder::linkTo(const std::filesystem::path& image, const std::filesystem::path& name) const {
    if (hardLinks_ == HardLinks::never) {
        return false;
    }
    if (stored::link(image, name) == 0) {
        return true;
    }
    if (knowsNoHardLinks(errno)) {
        traceRefused("save", "a second name", "copies take turns by renaming");
        return false;
    }
    throw SystemCallError("give a second name to", image);
}

std::filesystem::path SavedCopyFolder::freeEarlierName() const {
    auto name = SavedCopyNames::Earlier::savedAt(modifiedAt(names_.files.latest));
    for (const auto& entry : entries()) {
        // Behind all others, whatever the clock said when they were saved: copies go in the order of saving.
        if (const auto taken = names_.earlierNamed(entry); taken && *taken >= name) {
            name = taken->next();
        }
    }
    return names_.earlier(name);
}

void SavedCopyFolder::removePartials(SavedImageTool& tool) const {
    for (const auto& entry : entries()) {
        struct stat status {};
        if (names_.isPartial(entry) && stored::status(entry, status) == 0 && !S_ISDIR(status.st_mode)) {
            trace("save", "tidying: {} was being filled by a save that is gone", entry.native());
            tool.abandon(entry);
            removeFile(entry);
        }
    }
}

void SavedCopyFolder::step(std::string_view name) const {
    if (steps_) {
        steps_(name);
    }
}

} // namespace ramdisk
