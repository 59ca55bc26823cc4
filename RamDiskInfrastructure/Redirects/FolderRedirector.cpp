#include "RamDiskInfrastructure/Redirects/FolderRedirector.h"

#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskCore/Values/RamDiskError.h"
#include "RamDiskInfrastructure/Commands/SystemCallError.h"
#include "RamDiskInfrastructure/Redirects/FolderNames.h"
#include "RamDiskInfrastructure/Redirects/FolderOnDisk.h"
#include "RamDiskInfrastructure/Redirects/FolderUse.h"
#include "RamDiskInfrastructure/Redirects/GitExclusion.h"
#include "RamDiskInfrastructure/Redirects/HomeTree.h"
#include "RamDiskInfrastructure/Redirects/RedirectPlaces.h"
#include "RamDiskInfrastructure/Redirects/StandingRedirects.h"
#include "RamDiskInfrastructure/Redirects/StrayOriginals.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <stdexcept>

namespace ramdisk {

namespace {

using Target = RedirectTarget;
using State = RedirectRestoreState;

template <typename... Cases>
struct Overloaded : Cases... {
    using Cases::operator()...;
};
template <typename... Cases>
Overloaded(Cases...) -> Overloaded<Cases...>;

/// The folder below the home folder that the target moves; absent for settings.
std::optional<std::filesystem::path> homeFolderOf(const RedirectTarget& target) {
    if (const auto* const folder = std::get_if<Target::Folder>(&target.value)) {
        return normalizedHomePath(folder->path);
    }
    if (const auto* const cache = std::get_if<Target::Cache>(&target.value)) {
        return folderOfCache(cache->cache);
    }
    return std::nullopt;
}

std::string nameOnDisk(const RedirectTarget& target) {
    return std::visit(
        Overloaded{[](const Target::XcodeDerivedData&) -> std::string { return "DerivedData"; },
                   [](const Target::NpmCache&) -> std::string { return "npm"; },
                   [](const Target::TemporaryFolder&) -> std::string { return "Temporary"; },
                   [&](const auto&) -> std::string { return nameOfFolder(*homeFolderOf(target)); }},
        target.value);
}

SymlinkFolderRedirector::Source sourceOf(const FolderRedirect& redirect) {
    return {redirect.id, *homeFolderOf(redirect.target), nameOnDisk(redirect.target)};
}

/// As it was put in place, perhaps by an earlier version that gave the folder on the disk another name.
std::string recordedName(const FolderRedirect& redirect) {
    if (redirect.restoreState) {
        if (const auto* const linked = std::get_if<State::LinkedFolder>(&redirect.restoreState->value)) {
            const std::filesystem::path link(linked->link);
            if (isFolderOnDisk(link, link.filename().string())) {
                return link.filename().string();
            }
        }
    }
    return nameOnDisk(redirect.target);
}

/// Where the original was put; absent when there was none, or when the target is a setting.
std::optional<std::filesystem::path> backupOf(const RedirectRestoreState& state) {
    if (const auto* const linked = std::get_if<State::LinkedFolder>(&state.value)) {
        return linked->backup;
    }
    const auto* const moved = std::get_if<State::MovedFolder>(&state.value);
    return moved == nullptr ? std::nullopt : moved->backup;
}

bool isBackupMissing(const std::filesystem::path& path) {
    std::error_code error;
    return std::filesystem::symlink_status(path, error).type() == std::filesystem::file_type::not_found;
}

} // namespace

FolderRedirector::FolderRedirector(const Parts& parts)
    : home_(parts.home),
      observer_(parts.observer),
      npm_(parts.home, parts.observer),
      folders_(parts.home, parts.reserved, parts.observer, parts.exchange),
      mounted_(parts.home, parts.reserved, parts.mounting, parts.observer),
      copies_(parts.home, parts.reserved, parts.copier, parts.observer),
      temporaryFolder_(parts.environment, parts.home, parts.observer),
      xcode_(parts.xcode, parts.home, parts.observer),
      places_(parts.home, parts.variables) {}

RedirectPlace FolderRedirector::place(const RedirectTarget& target) const {
    const auto folder = homeFolderOf(target);
    return {folder ? std::optional(comparableFolder(realPlaceInHome(home_, *folder))) : std::nullopt,
            nameOnDisk(target)};
}

RedirectTarget FolderRedirector::settled(const RedirectTarget& target) const {
    return places_.settled(target);
}

RedirectStatus FolderRedirector::status(const FolderRedirect& redirect,
                                        const std::optional<std::filesystem::path>& mountPoint) const {
    using Condition = RedirectStatus::Condition;
    RedirectStatus status{.target = places_.named(redirect.target), .condition = Condition::inPlace};
    std::string name;
    try {
        name = recordedName(redirect);
    } catch (const RamDiskError&) {
        traceCaught("redirects", "a stored redirect names no folder that can be moved");
        status.condition = Condition::notInPlace;
        return status;
    }
    const bool isOnDisk = mountPoint && existsOnDisk(*mountPoint, name);
    if (isOnDisk) {
        const auto use = useOfFolder(folderOnDisk(*mountPoint, name));
        status.used = use.bytes;
        status.usesMore = use.isMore;
    }
    if (redirect.applying.value_or(false)) {
        status.condition = Condition::interrupted;
    } else if (!mountPoint) {
        status.condition = Condition::diskNotMounted;
    } else if (!redirect.restoreState) {
        status.condition = Condition::notInPlace;
    } else if (!isOnDisk) {
        status.condition = Condition::folderMissing;
    } else if (!isInForce(redirect, *mountPoint)) {
        status.condition = whatReplaced(redirect);
    } else if (const auto backup = backupOf(*redirect.restoreState); backup && isBackupMissing(*backup)) {
        status.condition = Condition::originalMissing;
    } else if ((status.overriddenBy = places_.overriding(redirect.target))) {
        status.condition = Condition::overridden;
    }
    return status;
}

RedirectRestoreState FolderRedirector::apply(const FolderRedirect& redirect,
                                             const std::filesystem::path& mountPoint, const Record& record) {
    const RedirectDestination destination{mountPoint, nameOnDisk(redirect.target)};
    return std::visit(
        Overloaded{
            [&](const Target::XcodeDerivedData&) { return xcode_.apply(destination, record); },
            [&](const Target::NpmCache&) { return npm_.apply(destination, record); },
            [&](const Target::TemporaryFolder&) { return temporaryFolder_.apply(destination, record); },
            [&](const auto&) { return applyFolder(redirect, mountPoint, record); }},
        redirect.target.value);
}

RedirectRestoreState FolderRedirector::applyFolder(const FolderRedirect& redirect,
                                                   const std::filesystem::path& mountPoint,
                                                   const Record& record) const {
    const auto source = sourceOf(redirect);
    if (mounted_.suits(source)) {
        try {
            return mounted_.apply(source, mountPoint, record);
        } catch (const SystemCallError& error) {
            if (!error.isLackOfRights()) {
                throw;
            }
            traceCaught("redirects", "a link is put in place instead");
            static_cast<void>(undoFolder(redirect, {}, Force::no));
        }
    }
    return folders_.apply(source, mountPoint, record);
}

std::optional<std::string> FolderRedirector::undoFolder(const FolderRedirect& redirect,
                                                        const SymlinkFolderRedirector::Recorded& recorded,
                                                        Force force) const {
    auto source = sourceOf(redirect);
    auto asRecorded = source;
    asRecorded.nameOnDisk = recordedName(redirect);
    const bool isOwn = std::holds_alternative<Target::Folder>(places_.named(redirect.target).value);
    if (force == Force::no && isOwn && mounted_.holdsLastFiles(asRecorded, recorded)) {
        throw FolderInUse(source.shown() + " has the last files of “" + redirect.diskName
                          + "”, whose volume was unmounted. Copy what you need of them. Then `tramdisk "
                            "redirects remove` with --discard takes them away.");
    }
    mounted_.undo(asRecorded, recorded, force);
    return folders_.undo(source, recorded);
}

RedirectStatus::Condition FolderRedirector::whatReplaced(const FolderRedirect& redirect) const {
    using Condition = RedirectStatus::Condition;
    if (!homeFolderOf(redirect.target)) {
        return Condition::settingReplaced;
    }
    if (!MountedFolderRedirector::isMount(*redirect.restoreState)) {
        return Condition::linkReplaced;
    }
    auto source = sourceOf(redirect);
    source.nameOnDisk = recordedName(redirect);
    try {
        return mounted_.isCovered(source) ? Condition::covered : Condition::mountGone;
    } catch (const std::exception&) {
        traceCaught("redirects", "the mounts cannot be listed");
        return Condition::mountGone;
    }
}

std::optional<std::string> FolderRedirector::undo(const FolderRedirect& redirect,
                                                  const RedirectRestoreState& state, Force force) {
    const auto name = nameOnDisk(redirect.target);
    const bool isFolder = homeFolderOf(redirect.target).has_value();
    if (isFolder
        != (std::holds_alternative<State::MovedFolder>(state.value)
            || std::holds_alternative<State::LinkedFolder>(state.value))) {
        throw std::runtime_error("What was recorded of this redirect is not of its kind.");
    }
    return std::visit(
        Overloaded{
            [&](const State::Preference& former) -> std::optional<std::string> {
                xcode_.undo(name, former);
                return std::nullopt;
            },
            [&](const State::ConfigLine& former) -> std::optional<std::string> {
                npm_.undo(name, former);
                return std::nullopt;
            },
            [&](const State::EnvironmentVariable& former) -> std::optional<std::string> {
                temporaryFolder_.undo(name, former);
                return std::nullopt;
            },
            [&](const State::MovedFolder& moved) {
                return undoFolder(redirect, {moved.backup, std::nullopt, moved.place, moved.inode}, force);
            },
            [&](const State::LinkedFolder& linked) {
                return undoFolder(redirect, {linked.backup, linked.link, linked.place, linked.inode}, force);
            }},
        state.value);
}

bool FolderRedirector::isInForce(const FolderRedirect& redirect,
                                 const std::filesystem::path& mountPoint) const {
    const RedirectDestination destination{mountPoint, nameOnDisk(redirect.target)};
    try {
        return std::visit(
            Overloaded{
                [&](const Target::XcodeDerivedData&) { return xcode_.isInForce(destination); },
                [&](const Target::NpmCache&) { return npm_.isInForce(destination); },
                [&](const Target::TemporaryFolder&) { return temporaryFolder_.isInForce(destination); },
                [&](const auto&) {
                    auto source = sourceOf(redirect);
                    source.nameOnDisk = recordedName(redirect);
                    return mounted_.isInForce(source, mountPoint) || folders_.isInForce(source, mountPoint);
                }},
            redirect.target.value);
    } catch (const std::exception&) {
        // Whoever asks goes on to undo it, and hears of the trouble there.
        traceCaught("redirects", "a redirect counts as not in force");
        return false;
    }
}

bool FolderRedirector::freeOnDisk(const FolderRedirect& redirect, const std::filesystem::path& mountPoint) {
    tell(observer_, "free the folder on the disk");
    const bool wasThere =
        removeFolderOnDisk(mountPoint, recordedName(redirect), privateAccessOfOwner(home_).owner);
    tell(observer_, "the folder on the disk is free");
    return wasThere;
}

bool FolderRedirector::holdsOwnFiles(const FolderRedirect& redirect,
                                     const std::filesystem::path& mountPoint) const {
    return std::holds_alternative<Target::Folder>(places_.named(redirect.target).value)
           && holdsFiles(folderOnDisk(mountPoint, recordedName(redirect)));
}

void FolderRedirector::copyToDisk(const FolderRedirect& redirect, const std::filesystem::path& mountPoint) {
    if (!homeFolderOf(redirect.target)) {
        throw std::runtime_error("--copy is for folders and caches; this is a setting.");
    }
    const auto source = sourceOf(redirect);
    requireNothingMounted(home_ / source.folder);
    copies_.toDisk(source, mountPoint);
}

std::optional<std::filesystem::path> FolderRedirector::copyFromDisk(const FolderRedirect& redirect,
                                                                    const std::filesystem::path& mountPoint,
                                                                    const Record& record) {
    if (!homeFolderOf(redirect.target)) {
        throw std::runtime_error("--keep-files is for folders and caches; this is a setting.");
    }
    auto source = sourceOf(redirect);
    source.nameOnDisk = recordedName(redirect);
    return copies_.fromDisk(source, mountPoint, record);
}

std::optional<std::filesystem::path> FolderRedirector::moveOnDisk(const FolderRedirect& former,
                                                                  const RedirectTarget& target,
                                                                  const std::filesystem::path& mountPoint) {
    const auto from = recordedName(former);
    const int error = renameFolderOnDisk(mountPoint, from, nameOnDisk(target));
    if (error == 0 || error == ENOENT) {
        return std::nullopt;
    }
    if (error == EEXIST) {
        return folderOnDisk(mountPoint, from);
    }
    throw SystemCallError("rename", folderOnDisk(mountPoint, from), error);
}

void FolderRedirector::tidyOnDisk(const FolderRedirect& redirect, const std::filesystem::path& mountPoint) {
    removeEmptyFolderOnDisk(mountPoint, nameOnDisk(redirect.target));
}

void FolderRedirector::requireNothingMounted(const std::filesystem::path& folder) const {
    std::error_code error;
    if (!std::filesystem::is_directory(folder, error)) {
        return;
    }
    if (const auto inner = mounted_.mountedIn(folder)) {
        throw FolderInUse(fmt::format("“{}” stays: {}", folder.string(), *inner));
    }
}

void FolderRedirector::requireNothingMountedIn(const FolderRedirect& redirect,
                                               const std::filesystem::path& mountPoint) const {
    requireNothingMounted(folderOnDisk(mountPoint, recordedName(redirect)));
}

std::optional<std::string> FolderRedirector::hazard(const FolderRedirect& redirect) const {
    if (!redirect.restoreState || !backupOf(*redirect.restoreState)) {
        return std::nullopt;
    }
    try {
        const auto source = sourceOf(redirect);
        return GitExclusion(home_, redirect.id, observer_)
            .hazard(openInHome(home_, source.folder.parent_path()), source.folder.filename().string());
    } catch (const std::exception&) {
        traceCaught("redirects", "nothing is told of git");
        return std::nullopt;
    }
}

std::vector<StandingRedirect>
FolderRedirector::standing(const std::vector<std::filesystem::path>& mountPoints, StandingSearch search,
                           const std::vector<FolderRedirect>& known) const {
    auto found = findStandingRedirects(home_, mounted_.mounts(), mountPoints, search);
    const auto lookAt = [&](const RedirectTarget& target, const State& state, const auto& redirector) {
        const auto name = nameOnDisk(target);
        const bool isKnown = std::any_of(known.begin(), known.end(), [&](const FolderRedirect& redirect) {
            return redirect.restoreState && redirect.target == target;
        });
        const bool mayStand = search == StandingSearch::homeFolder
                              || std::any_of(mountPoints.begin(), mountPoints.end(),
                                             [&](const auto& disk) { return existsOnDisk(disk, name); });
        if (isKnown || !mayStand) {
            return;
        }
        try {
            if (const auto onDisk = redirector.standing(name)) {
                found.push_back({{.id = UUID::random(),
                                  .diskName = onDisk->parent_path().parent_path().filename().string(),
                                  .target = target,
                                  .restoreState = state},
                                 *onDisk});
            }
        } catch (const std::exception&) {
            traceCaught("redirects", "whether a setting leads to a disk is not known");
        }
    };
    lookAt({Target::NpmCache{}}, {State::ConfigLine{}}, npm_);
    lookAt({Target::TemporaryFolder{}}, {State::EnvironmentVariable{}}, temporaryFolder_);
    lookAt({Target::XcodeDerivedData{}}, {State::Preference{}}, xcode_);
    return found;
}

std::vector<StrayOriginal> FolderRedirector::strayOriginals(const std::vector<FolderRedirect>& known) const {
    return findStrayOriginals(home_, known);
}

} // namespace ramdisk
