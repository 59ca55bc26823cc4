#pragma once

#include "RamDiskCore/Ports/FolderRedirecting.h"
#include "RamDiskCore/Ports/RamDiskInventory.h"
#include "RamDiskCore/Ports/RedirectRepository.h"
#include "RamDiskCore/Ports/StartupDiskNaming.h"
#include "RamDiskCore/Redirects/RedirectFailure.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace ramdisk {

class RedirectSession;

/// Keeps tools' folders on disks: which ones, put in place while their disk is mounted, and taken away when
/// it goes.
///
/// One process at a time works on redirects; the others wait. What goes wrong with one redirect is told
/// beside those that went well. A process that is killed leaves a list from which `repair` puts everything
/// right. All methods but the two that read block, and throw std::exception when the list cannot be stored;
/// nothing was then changed that the stored list does not tell of. Those that are given a disk throw
/// RamDiskError `notMounted` when it is not.
class FolderRedirectsUseCase {
public:
    using Failures = std::vector<RedirectFailure>;

    FolderRedirectsUseCase(std::shared_ptr<RedirectRepository> repository,
                           std::shared_ptr<FolderRedirecting> redirecting,
                           std::shared_ptr<RamDiskInventory> inventory,
                           std::shared_ptr<const StartupDiskNaming> startupDisks);

    /// Every stored redirect, in force or not.
    [[nodiscard]] std::vector<FolderRedirect> list() const;

    /// Those of the disk that goes by this name, whether it is attached or not.
    [[nodiscard]] std::vector<FolderRedirect> redirects(const std::string& diskName) const;

    /// Stores the targets for the disk and puts them in place. One that fails is not stored, unless what was
    /// done of it could not be taken back. One that the disk has already is put in place if it is not.
    Failures add(const RamDisk& disk, const std::vector<RedirectTarget>& targets);

    /// Takes the targets away and forgets them; those that the disk does not have are passed over. One that
    /// cannot be taken away stays stored.
    Failures remove(const std::string& diskName, const std::vector<RedirectTarget>& targets);

    /// Gives the disk exactly these targets: removes the others, adds the new ones.
    Failures change(const RamDisk& disk, const std::vector<RedirectTarget>& targets);

    /// Puts all stored redirects of a disk that was just mounted in place. Those that a former disk of the
    /// name left behind are undone first. All of them stay stored.
    Failures apply(const RamDisk& disk);

    /// Takes all redirects of a disk away, before it is ejected or after it vanished. They stay stored.
    Failures undo(const std::string& diskName);

    /// Undoes what is half done, and what is recorded as in force without leading to a mounted disk.
    /// @throws RamDiskError `inventoryUnavailable` with nothing done.
    Failures repair();

    /// Hands the redirects of a disk over to its new name, and leads them to its new mount point where that
    /// moved. What a former disk of the new name left behind gives way.
    Failures rename(const std::string& oldName, const std::string& newName);

    /// Takes all redirects of the disk away and forgets them. One that cannot be taken away stays stored.
    Failures forget(const std::string& diskName);

private:
    Failures inSession(const std::function<void(RedirectSession&)>& work);

    std::shared_ptr<RedirectRepository> repository_;
    std::shared_ptr<FolderRedirecting> redirecting_;
    std::shared_ptr<RamDiskInventory> inventory_;
    std::shared_ptr<const StartupDiskNaming> startupDisks_;
};

} // namespace ramdisk
