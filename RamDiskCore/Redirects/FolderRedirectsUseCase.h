#pragma once

#include "RamDiskCore/Ports/FolderRedirecting.h"
#include "RamDiskCore/Ports/RamDiskInventory.h"
#include "RamDiskCore/Ports/RedirectRepository.h"
#include "RamDiskCore/Ports/StartupDiskNaming.h"
#include "RamDiskCore/Redirects/RedirectFailure.h"

#include <cstddef>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace ramdisk {

class RedirectSession;

/// Keeps tools' folders on disks. It stores which ones, puts them in place while their disk is mounted, and
/// undoes them when the disk goes.
///
/// One process at a time works on redirects; the others wait. What goes wrong with one redirect is returned
/// and does not stop the others. A process that is killed leaves a list from which `repair` puts everything
/// right.
///
/// All methods but those that read block. They throw std::exception when the list cannot be stored; then
/// nothing has changed that the stored list does not show. Methods that take a disk throw RamDiskError
/// `notMounted` when it is not mounted.
class FolderRedirectsUseCase {
public:
    /// What becomes of a redirect whose original is not found.
    enum class LostOriginals { keptListed, givenUp };

    using Failures = std::vector<RedirectFailure>;

    FolderRedirectsUseCase(std::shared_ptr<RedirectRepository> repository,
                           std::shared_ptr<FolderRedirecting> redirecting,
                           std::shared_ptr<RamDiskInventory> inventory,
                           std::shared_ptr<const StartupDiskNaming> startupDisks);

    /// Every stored redirect, in force or not.
    [[nodiscard]] std::vector<FolderRedirect> list() const;

    /// How many stored entries this version does not understand; they are kept as they are.
    [[nodiscard]] std::size_t notUnderstood() const { return repository_->notUnderstood(); }

    /// The redirects of the disk with this name, whether it is attached or not.
    [[nodiscard]] std::vector<FolderRedirect> redirects(const std::string& diskName) const;

    /// How things stand with each of these redirects.
    /// @throws RamDiskError `inventoryUnavailable`
    [[nodiscard]] std::vector<RedirectStatus> statuses(const std::vector<FolderRedirect>& redirects) const;

    /// Stores the targets for the disk and puts them in place. A target that fails is not stored, unless it
    /// could not be undone. A target that the disk has already is put in place if it is not in force.
    Failures add(const RamDisk& disk, const std::vector<RedirectTarget>& targets);

    /// Undoes the targets, removes them from the list, and removes their folders from a disk that is mounted.
    /// Tells of targets that the disk does not have.
    /// One that cannot be undone stays stored; with `LostOriginals::givenUp` not if its original was not
    /// found.
    Failures remove(const std::string& diskName, const std::vector<RedirectTarget>& targets,
                    LostOriginals lost = LostOriginals::keptListed);

    /// Gives the disk exactly these targets: removes the others, adds the new ones.
    Failures change(const RamDisk& disk, const std::vector<RedirectTarget>& targets);

    /// Puts all stored redirects of a disk that was just mounted in place. Redirects that an earlier disk of
    /// this name left are undone first. All of them stay stored.
    Failures apply(const RamDisk& disk);

    /// Undoes all redirects of a disk, before it is ejected or after it vanished. They stay stored.
    Failures undo(const std::string& diskName);

    /// Undoes redirects that are half done, and redirects that are stored as in force but do not lead to a
    /// mounted disk.
    /// @throws RamDiskError `inventoryUnavailable` with nothing done.
    Failures undoLost();

    /// The same, and tells of originals that no stored redirect knows.
    /// @throws RamDiskError `inventoryUnavailable` with nothing done.
    Failures repair();

    /// Moves the redirects of a disk to its new name, and to its new mount point if that changed. A redirect
    /// that an earlier disk of the new name left is removed from the list if it conflicts and is not in
    /// place.
    Failures rename(const std::string& oldName, const std::string& newName);

    /// Undoes all redirects of the disk and removes them from the list. One that cannot be undone stays
    /// stored.
    Failures forget(const std::string& diskName);

private:
    /// Absent when it is not mounted, or when that cannot be told.
    [[nodiscard]] std::optional<std::filesystem::path> whereMounted(const std::string& diskName) const;
    Failures inSession(const std::function<void(RedirectSession&)>& work);

    std::shared_ptr<RedirectRepository> repository_;
    std::shared_ptr<FolderRedirecting> redirecting_;
    std::shared_ptr<RamDiskInventory> inventory_;
    std::shared_ptr<const StartupDiskNaming> startupDisks_;
};

} // namespace ramdisk
