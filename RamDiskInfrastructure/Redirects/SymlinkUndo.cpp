#include "RamDiskInfrastructure/Redirects/SymlinkUndo.h"

#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskInfrastructure/Commands/RequireSuccess.h"
#include "RamDiskInfrastructure/Commands/SystemCallError.h"

#include <cerrno>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace ramdisk {

namespace {

constexpr const char* keptEnding = ".ramdisk-kept";
constexpr int attempts = 20;

std::string keptText(const std::string& shown, const std::filesystem::path& kept) {
    return "While the disk of " + shown + " was away, something else took its place. That is kept as “"
           + kept.string() + "”.";
}

} // namespace

SymlinkUndo::SymlinkUndo(const OpenedFolder& folder, const Names& names,
                         std::function<bool(const std::string&)> isOurs, NameExchange exchange,
                         const StepObserver& observer)
    : folder_(folder),
      names_(names),
      isOurs_(std::move(isOurs)),
      exchange_(exchange),
      observer_(observer) {}

bool SymlinkUndo::isOurLink(const std::string& name) const {
    const auto text = linkIn(folder_, name);
    return text && isOurs_(*text);
}

bool SymlinkUndo::findsAnything() const {
    return statusIn(folder_, names_.temporary) || isOurLink(names_.folder)
           || (names_.backup && statusIn(folder_, *names_.backup));
}

bool SymlinkUndo::isUndone() const {
    const auto status = statusIn(folder_, names_.folder);
    return status && (!names_.inode || status->st_ino == *names_.inode);
}

std::string SymlinkUndo::notFound(const std::string& shown, const std::filesystem::path& backup,
                                  const std::string& obstacle) {
    return "The original of " + shown + " was not found as “" + backup.string() + "”. "
           + (obstacle.empty() ? "" : obstacle + " ")
           + "If its folder was moved or renamed, look for it there and give it its name back. It stays "
             "listed until it is found; `tramdisk redirects remove --forget` gives it up.";
}

void SymlinkUndo::remove(const std::string& link) const {
    tell(observer_, "remove the link");
    if (unlinkat(folder_.descriptor.get(), link.c_str(), 0) != 0 && errno != ENOENT) {
        throw SystemCallError("remove", folder_.path / link);
    }
}

std::optional<std::string> SymlinkUndo::findOriginal() const {
    const auto swappedOut = statusIn(folder_, names_.temporary);
    if (swappedOut) {
        trace("redirects", "{}: a change was cut short and is taken back", names_.shown);
    }
    if (swappedOut && S_ISLNK(swappedOut->st_mode)) {
        remove(names_.temporary);
    }
    if (names_.backup && isOurLink(*names_.backup)) {
        // An undo was interrupted just after the two traded places.
        trace("redirects", "{}: an undo was cut short and is finished", names_.shown);
        remove(*names_.backup);
    }
    if (swappedOut && S_ISDIR(swappedOut->st_mode)) {
        return names_.temporary;
    }
    return names_.backup && statusIn(folder_, *names_.backup) ? names_.backup : std::nullopt;
}

void SymlinkUndo::exchangeBack(const std::string& original) const {
    tell(observer_, "exchange the link and the original");
    const int error = exchange_ == NameExchange::never
                          ? ENOTSUP
                          : exchangeNames(folder_.descriptor, original, names_.folder);
    if (error == 0) {
        remove(original);
    } else if (isExchangeMissing(error)) {
        traceRefused("redirects", "exchanging names in one step",
                     "the link goes first, then the folder comes back", error);
        remove(names_.folder);
    } else {
        throw SystemCallError("put back", folder_.path / names_.folder, error);
    }
}

std::optional<std::string> SymlinkUndo::setAside() const {
    tell(observer_, "set aside what took the place");
    // A folder that holds nothing is nothing to keep.
    if (unlinkat(folder_.descriptor.get(), names_.folder.c_str(), AT_REMOVEDIR) == 0) {
        return std::nullopt;
    }
    const auto kept = freeNameIn(folder_, names_.folder, keptEnding);
    const int error = renameToFreeName(folder_.descriptor, names_.folder, kept);
    if (error == ENOENT) {
        return std::nullopt;
    }
    trace("redirects", "{}: something took its place and is set aside as {}", names_.shown, kept);
    requireSuccess(error, "set aside", folder_.path / names_.folder);
    return keptText(names_.shown, folder_.path / kept);
}

std::optional<std::string> SymlinkUndo::putBack(const std::string& original) const {
    std::optional<std::string> notice;
    if (isOurLink(names_.folder)) {
        exchangeBack(original);
        if (!statusIn(folder_, original)) {
            return std::nullopt;
        }
    } else if (const auto kept = names_.folder + keptEnding;
               !statusIn(folder_, names_.folder) && statusIn(folder_, kept)) {
        // Perhaps set aside by an undo that was killed before it could tell.
        notice = keptText(names_.shown, folder_.path / kept);
    }
    // Programs may take the place again at any moment.
    for (int attempt = 1;; ++attempt) {
        if (statusIn(folder_, names_.folder)) {
            if (auto told = setAside()) {
                notice = std::move(told);
            }
        }
        tell(observer_, "move the original back");
        const int error = renameToFreeName(folder_.descriptor, original, names_.folder);
        if (error == 0) {
            return notice;
        }
        if (error != EEXIST || attempt == attempts) {
            throw SystemCallError("put back", folder_.path / names_.folder, error);
        }
    }
}

std::optional<std::string> SymlinkUndo::run() const {
    if (const auto original = findOriginal()) {
        return putBack(*original);
    }
    const bool wasMoved = isOurLink(names_.folder);
    if (wasMoved) {
        remove(names_.folder);
    }
    const bool isMissing = wasMoved || !statusIn(folder_, names_.folder);
    return names_.backup && isMissing ? std::optional(originalIsGone(names_.shown)) : std::nullopt;
}

} // namespace ramdisk
