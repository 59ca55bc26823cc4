#pragma once

#include "RamDiskCore/Ports/Port.h"
#include "RamDiskCore/Values/FolderRedirect.h"

#include <filesystem>
#include <functional>
#include <optional>
#include <string>

namespace ramdisk {

/// What a redirect takes up, to tell whether two of them get into each other's way.
struct RedirectPlace {
    /// The folder below the home folder that is moved, without "." and "..", and in a form in which folders
    /// that are the same have the same path. Absent for a target that is a setting rather than a folder.
    std::optional<std::filesystem::path> homeFolder;
    /// What its folder on the disk is called.
    std::string nameOnDisk;
};

/// Puts redirects in place and takes them away.
///
/// A process can be killed, and the power can fail, between any two steps. So what undoes a step is recorded
/// before the step is made, and `undo` goes by what it really finds: it puts right whatever an `apply` or an
/// `undo` left that was interrupted anywhere, and may be called as often as anybody likes. Callers hold the
/// lock of the redirects meanwhile.
class FolderRedirecting : public Port {
public:
    /// Stores what undoes the redirect as it stands from the next step on. May throw: then that step is not
    /// made, and the exception is passed on.
    using Record = std::function<void(const RedirectRestoreState&)>;

    /// What the target takes up. Looks at no disk.
    /// @throws RamDiskError `invalidSpecification` when the target names no folder below the home folder.
    [[nodiscard]] virtual RedirectPlace place(const RedirectTarget& target) const = 0;

    /// Makes the folder on the disk mounted at `mountPoint`, and has the tool use it. What a folder on the
    /// disk holds already stays in it.
    /// @returns what undoes the finished redirect; the last that was recorded.
    /// @throws std::exception with the redirect partly in place: whoever recorded something calls `undo`.
    virtual RedirectRestoreState apply(const FolderRedirect& redirect,
                                       const std::filesystem::path& mountPoint, const Record& record) = 0;

    /// Brings the original back; the disk may be long gone. What programs wrote in its place meanwhile is
    /// never deleted.
    /// @returns what the user should know, such as where those files are kept.
    /// @throws std::exception when it is not back yet and another try is worth it.
    virtual std::optional<std::string> undo(const FolderRedirect& redirect,
                                            const RedirectRestoreState& state) = 0;

    /// Whether the redirect still leads to its folder on the disk mounted at `mountPoint`, and that folder is
    /// there.
    [[nodiscard]] virtual bool isInForce(const FolderRedirect& redirect,
                                         const std::filesystem::path& mountPoint) const = 0;
};

} // namespace ramdisk
