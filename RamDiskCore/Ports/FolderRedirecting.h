#pragma once

#include "RamDiskCore/Ports/Port.h"
#include "RamDiskCore/Ports/RamDeviceAllocating.h"
#include "RamDiskCore/Values/FolderRedirect.h"
#include "RamDiskCore/Values/RedirectStatus.h"

#include <filesystem>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace ramdisk {

/// What a redirect occupies, to tell whether two of them conflict.
struct RedirectPlace {
    /// The folder below the home folder that is moved, without "." and "..", and in a form in which folders
    /// that are the same have the same path. Absent for a target that is a setting rather than a folder.
    std::optional<std::filesystem::path> homeFolder;
    /// What its folder on the disk is called.
    std::string nameOnDisk;
};

/// What a folder on a disk begins with, if there is none yet.
enum class RedirectStart { empty, copyOfOriginal };

/// Where redirects that stand are looked for: among the mounts and on the disks, or below the home folder
/// too, which takes seconds.
enum class StandingSearch { disks, homeFolder };

/// A redirect as the machine shows it.
struct StandingRedirect {
    /// The disk has the name of its mount folder. A setting's former value is not known, so undoing removes
    /// the setting.
    FolderRedirect redirect;
    /// The folder on the disk that it leads to.
    std::filesystem::path onDisk;
};

/// A folder of the user's that still lies under the name of a backup.
struct StrayOriginal {
    std::filesystem::path place;
    /// The name that it had.
    std::string name;
    /// Whether something else has that name by now.
    bool isNameTaken = false;
};

/// Neither the link nor the original of a redirect is where it was recorded. The text says where to look.
class OriginalNotFound : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A program uses the folder on the disk, or nobody may take it out of the original's place. Nothing changed,
/// and the disk could not go.
class FolderInUse : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Puts redirects in place and takes them away.
///
/// A process can be killed, and the power can fail, between any two steps. So what undoes a step is recorded
/// before the step is made. `undo` goes by what it really finds: it repairs whatever an interrupted `apply`
/// or `undo` left, and may be called any number of times. Callers hold the lock of the redirects meanwhile.
class FolderRedirecting : public Port {
public:
    /// Stores what undoes the redirect from the next step on. May throw: then that step is not made, and the
    /// exception is passed on.
    using Record = std::function<void(const RedirectRestoreState&)>;

    /// What the target occupies. Looks at no disk.
    /// @throws RamDiskError `invalidSpecification` when the target names no folder below the home folder.
    [[nodiscard]] virtual RedirectPlace place(const RedirectTarget& target) const = 0;

    /// The target with the place that its tool uses now, in the form that is stored: a cache that a variable
    /// moved becomes the folder that it is. So a redirect is undone where it was made, whatever the variables
    /// say by then.
    /// @throws std::exception naming the variable that makes the redirect impossible or pointless.
    [[nodiscard]] virtual RedirectTarget settled(const RedirectTarget& target) const { return target; }

    /// How things stand with a stored redirect. Changes nothing and looks at a bounded number of files.
    /// @param mountPoint where its disk is mounted; absent when it is not.
    [[nodiscard]] virtual RedirectStatus
    status(const FolderRedirect& redirect, const std::optional<std::filesystem::path>& mountPoint) const {
        return {redirect.target,
                mountPoint ? RedirectStatus::Condition::inPlace : RedirectStatus::Condition::diskNotMounted};
    }

    /// Makes the folder on the disk mounted at `mountPoint`, and lets the tool use it. If the folder exists
    /// already, its contents stay.
    /// @returns what undoes the finished redirect; the last that was recorded.
    /// @throws std::exception with the redirect partly in place. A caller that recorded something then calls
    ///         `undo`.
    virtual RedirectRestoreState apply(const FolderRedirect& redirect,
                                       const std::filesystem::path& mountPoint, const Record& record) = 0;

    /// Brings the original back, even if the disk is long gone. What programs wrote in its place meanwhile is
    /// never deleted.
    /// @param force whether to do so even if a program uses the folder on the disk.
    /// @returns what the user should know, such as where those files are kept.
    /// @throws OriginalNotFound; FolderInUse; std::exception when it is not back yet and another try is worth
    ///         it.
    virtual std::optional<std::string> undo(const FolderRedirect& redirect, const RedirectRestoreState& state,
                                            Force force) = 0;

    /// Whether the redirect still leads to its folder on the disk mounted at `mountPoint`, and that folder is
    /// there.
    [[nodiscard]] virtual bool isInForce(const FolderRedirect& redirect,
                                         const std::filesystem::path& mountPoint) const = 0;

    /// Removes the folder of an undone redirect from the disk mounted at `mountPoint`, with everything in it.
    /// `redirect` is as it was recorded before it was undone.
    /// @returns whether there was one.
    /// @throws std::exception with part of it removed.
    virtual bool freeOnDisk(const FolderRedirect& /*redirect*/, const std::filesystem::path& /*mountPoint*/) {
        return false;
    }

    /// Whether the folder on the disk holds files that nobody but the user can bring back: a folder of his
    /// own, as against a cache.
    [[nodiscard]] virtual bool holdsOwnFiles(const FolderRedirect& /*redirect*/,
                                             const std::filesystem::path& /*mountPoint*/) const {
        return false;
    }

    /// Makes the folder on the disk, with everything that the original holds. Killed, it leaves no folder of
    /// that name.
    /// @throws std::exception with nothing left on the disk.
    virtual void copyToDisk(const FolderRedirect& /*redirect*/, const std::filesystem::path& /*mountPoint*/) {
        throw std::runtime_error("It is no folder, so nothing can be copied.");
    }

    /// Copies the folder on the disk into the place of the original, which gets the name of a backup. The
    /// redirect is undone; `redirect` is as it was recorded before. What undoes this is recorded as for
    /// `apply`; the folder on the disk stays.
    /// Without a folder on the disk nothing is done.
    /// @returns the new name of the original; absent when there was none, or nothing was done.
    /// @throws std::exception; `undo` then brings the original back, if something was recorded.
    virtual std::optional<std::filesystem::path> copyFromDisk(const FolderRedirect& /*redirect*/,
                                                              const std::filesystem::path& /*mountPoint*/,
                                                              const Record& /*record*/) {
        throw std::runtime_error("It is no folder, so there are no files to keep.");
    }

    /// Gives the folder on the disk of an undone redirect the name that it has for another target.
    /// @returns where the folder stays because there is one of that name; absent otherwise.
    /// @throws std::exception with nothing changed.
    virtual std::optional<std::filesystem::path> moveOnDisk(const FolderRedirect& /*former*/,
                                                            const RedirectTarget& /*target*/,
                                                            const std::filesystem::path& /*mountPoint*/) {
        return std::nullopt;
    }

    /// Removes the folder of an undone redirect from the disk, if it holds nothing.
    virtual void tidyOnDisk(const FolderRedirect& /*redirect*/, const std::filesystem::path& /*mountPoint*/) {
    }

    /// Whether the folder on the disk can be removed or copied as a whole: nothing is mounted in it.
    /// @throws FolderInUse that names what is mounted there.
    virtual void requireNothingMountedIn(const FolderRedirect& /*redirect*/,
                                         const std::filesystem::path& /*mountPoint*/) const {}

    /// What may delete the files of a redirect that is in place, and what prevents that, as one sentence.
    /// Absent when there is nothing to tell.
    [[nodiscard]] virtual std::optional<std::string> hazard(const FolderRedirect& /*redirect*/) const {
        return std::nullopt;
    }

    /// Redirects that are in place, as far as what is on the machine shows it, whether a list tells of them
    /// or not. Looks for a few seconds at most.
    /// @param mountPoints of the disks that are there.
    /// @param known settings among these are not asked for, since some take a process to ask.
    [[nodiscard]] virtual std::vector<StandingRedirect>
    standing(const std::vector<std::filesystem::path>& /*mountPoints*/, StandingSearch /*search*/,
             const std::vector<FolderRedirect>& /*known*/) const {
        return {};
    }

    /// Originals that none of the `known` redirects moved. Looks only where redirects are likely, and for a
    /// few seconds at most.
    [[nodiscard]] virtual std::vector<StrayOriginal>
    strayOriginals(const std::vector<FolderRedirect>& /*known*/) const {
        return {};
    }
};

} // namespace ramdisk
