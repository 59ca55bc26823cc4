#pragma once

#include "RamDiskCore/Ports/Port.h"
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

/// Neither the link nor the original of a redirect is where it was recorded. The text says where to look.
class OriginalNotFound : public std::runtime_error {
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
    /// @returns what the user should know, such as where those files are kept.
    /// @throws OriginalNotFound; std::exception when it is not back yet and another try is worth it.
    virtual std::optional<std::string> undo(const FolderRedirect& redirect,
                                            const RedirectRestoreState& state) = 0;

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

    /// Folders of the user's that still lie under the name of a backup although none of the `known` redirects
    /// moved them. Looks only where redirects are likely, and for a few seconds at most.
    [[nodiscard]] virtual std::vector<std::filesystem::path>
    strayOriginals(const std::vector<FolderRedirect>& /*known*/) const {
        return {};
    }
};

} // namespace ramdisk
