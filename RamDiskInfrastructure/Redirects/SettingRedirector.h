#pragma once

#include "RamDiskInfrastructure/Redirects/FolderOnDisk.h"
#include "RamDiskInfrastructure/Redirects/RedirectStep.h"

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <utility>

namespace ramdisk {

/// A single value outside of this system that tells a tool where its folder lies. Absent when it is not set.
struct RedirectSetting {
    /// What kind of value it is, for those who watch the steps.
    std::string kind;
    std::function<std::optional<std::string>()> read;
    std::function<void(const std::string&)> set;
    /// Gives it its former value, or removes it.
    std::function<void(const std::optional<std::string>&)> restore;
};

/// Has a tool keep its folder on a disk by a setting. `Former` is the record of what the setting was.
template <typename Former>
class SettingRedirector {
public:
    /// @param setting without functions where there is no such setting: then nothing is ever to be undone.
    SettingRedirector(RedirectSetting setting, std::filesystem::path home, StepObserver observer)
        : setting_(std::move(setting)),
          home_(std::move(home)),
          observer_(std::move(observer)) {}

    /// Killed before it recorded anything, it leaves the setting as it was, and perhaps a folder on the disk.
    /// Killed after that, it leaves the former value or ours, and `undo` is right for both.
    /// @throws std::exception as a kill would leave it.
    RedirectRestoreState apply(const RedirectDestination& destination,
                               const FolderRedirecting::Record& record) const {
        auto former = setting_.read();
        if (former && isFolderOnDisk(*former, destination.name)) {
            // Left behind by a redirect that no list knows any more: nobody wants it back.
            former.reset();
        }
        tell(observer_, "make the folder on the disk");
        makeFolderOnDisk(destination.mountPoint, destination.name, privateAccessOfOwner(home_));
        const RedirectRestoreState state{Former{former}};
        record(state);
        tell(observer_, "set the " + setting_.kind);
        setting_.set(folderOnDisk(destination.mountPoint, destination.name).string());
        return state;
    }

    /// Changes nothing but a value of ours: one that the user or a new session set meanwhile stays, and so
    /// does the folder on the disk. Killed on the way, it leaves ours or the former value, and can be
    /// repeated.
    /// @throws std::exception likewise.
    void undo(const std::string& name, const Former& former) const {
        if (standing(name)) {
            tell(observer_, "put the " + setting_.kind + " back");
            setting_.restore(former.value);
        }
    }

    /// The folder of this name, on whatever disk, that the setting leads to; absent when it leads elsewhere.
    /// @throws std::exception when that cannot be told.
    [[nodiscard]] std::optional<std::filesystem::path> standing(const std::string& name) const {
        const auto current = setting_.read ? setting_.read() : std::nullopt;
        return current && isFolderOnDisk(*current, name) ? std::optional<std::filesystem::path>(*current)
                                                         : std::nullopt;
    }

    [[nodiscard]] bool isInForce(const RedirectDestination& destination) const {
        return setting_.read && existsOnDisk(destination.mountPoint, destination.name)
               && setting_.read() == folderOnDisk(destination.mountPoint, destination.name).string();
    }

private:
    RedirectSetting setting_;
    std::filesystem::path home_;
    StepObserver observer_;
};

} // namespace ramdisk
