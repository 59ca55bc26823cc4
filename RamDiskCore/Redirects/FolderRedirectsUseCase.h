#pragma once

#include "RamDiskCore/Ports/FolderRedirecting.h"
#include "RamDiskCore/Ports/RamDiskInventory.h"
#include "RamDiskCore/Ports/RedirectRepository.h"
#include "RamDiskCore/Ports/StartupDiskNaming.h"
#include "RamDiskCore/Redirects/RedirectFailure.h"
#include "RamDiskCore/Values/RamDisk.h"

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

    /// What becomes of the files that a removed redirect has on the disk.
    enum class FilesOnDisk {
        /// The redirect is not removed if they are the user's own.
        guarded,
        discarded,
        /// They become the folder, and the original is kept beside it.
        putBack,
    };

    using Failures = std::vector<RedirectFailure>;

    FolderRedirectsUseCase(std::shared_ptr<RedirectRepository> repository,
                           std::shared_ptr<FolderRedirecting> redirecting,
                           std::shared_ptr<RamDiskInventory> inventory,
                           std::shared_ptr<const StartupDiskNaming> startupDisks);

    /// Whether the list can be read, or there is none.
    [[nodiscard]] bool isReadable() const { return repository_->isReadable(); }

    /// Every stored redirect, in force or not.
    /// @throws std::runtime_error when the list cannot be read, as every method does but `repair`.
    [[nodiscard]] std::vector<FolderRedirect> list() const;

    /// How many stored entries this version does not understand; they are kept as they are.
    [[nodiscard]] std::size_t notUnderstood() const { return repository_->notUnderstood(); }

    /// The redirects of the disk with this name, whether it is attached or not.
    [[nodiscard]] std::vector<FolderRedirect> redirects(const std::string& diskName) const;

    /// How things stand with each of these redirects.
    /// @throws RamDiskError `inventoryUnavailable`
    [[nodiscard]] std::vector<RedirectStatus> statuses(const std::vector<FolderRedirect>& redirects) const;

    /// Refuses targets that name no folder below the home folder, before there is a disk for them.
    /// @throws RamDiskError `invalidSpecification`
    void requirePlaces(const std::vector<RedirectTarget>& targets) const;

    /// Stores the targets for the disk and puts them in place. A target that fails is not stored, unless it
    /// could not be undone. A target that the disk has already is put in place if it is not in force.
    Failures add(const RamDisk& disk, const std::vector<RedirectTarget>& targets,
                 RedirectStart start = RedirectStart::empty);

    /// Undoes the targets, removes them from the list, and removes their folders from a disk that is mounted.
    /// Tells of targets that the disk does not have.
    /// One that cannot be undone stays stored; with `LostOriginals::givenUp` not if its original was not
    /// found. The folder on the disk is removed last: killed before, it is there for another try.
    Failures remove(const std::string& diskName, const std::vector<RedirectTarget>& targets,
                    LostOriginals lost = LostOriginals::keptListed, FilesOnDisk files = FilesOnDisk::guarded);

    /// Gives the disk exactly these targets: removes the others unless they hold files of the user's own, and
    /// adds the new ones.
    Failures change(const RamDisk& disk, const std::vector<RedirectTarget>& targets);

    /// Puts all stored redirects of a disk that was just mounted in place. Redirects that an earlier disk of
    /// this name left are undone first. All of them stay stored.
    Failures apply(const RamDisk& disk);

    /// Undoes all redirects of a disk, before it is ejected or after it vanished. They stay stored.
    /// @param force whether folders that programs use are taken out of their place as well.
    Failures undo(const std::string& diskName, Force force = Force::no);

    /// The same for a disk that stays, whose files are to be replaced or found elsewhere.
    /// @throws RamDiskError `ejectFailed` when a program uses such a folder, or it cannot be taken away. It
    ///         names both, and everything is in place as before.
    Failures undoUnlessInUse(const RamDisk& disk);

    /// Undoes redirects that are half done, and redirects that are stored as in force but do not lead to a
    /// mounted disk.
    /// @throws RamDiskError `inventoryUnavailable` with nothing done.
    Failures undoLost();

    /// The same, takes away what stands without being listed, and tells of originals that no stored redirect
    /// knows. A list that cannot be read is set aside and made anew from what the machine shows.
    /// @throws RamDiskError `inventoryUnavailable` with nothing done.
    Failures repair();

    /// Moves the redirects of a disk to its new name, and to its new mount point if that changed. A redirect
    /// that an earlier disk of the new name left is removed from the list if it conflicts and is not in
    /// place.
    Failures rename(const std::string& oldName, const std::string& newName);

    /// Undoes all redirects of the disk and removes them from the list. One that cannot be undone, or that
    /// has files of the user's own on a mounted disk, stays stored.
    Failures forget(const std::string& diskName);

private:
    /// Absent when it is not mounted, or when that cannot be told.
    [[nodiscard]] std::optional<std::filesystem::path> whereMounted(const std::string& diskName) const;
    /// Where the disk of this name is mounted; absent when it is not.
    [[nodiscard]] static std::optional<std::filesystem::path> mountPointOf(const std::vector<RamDisk>& disks,
                                                                           const std::string& name);
    /// @throws std::runtime_error when the list cannot be read.
    void requireReadable() const;
    /// What stands of redirects, the home folder searched as well if the list does not tell everything.
    [[nodiscard]] std::vector<StandingRedirect>
    standing(const std::vector<std::filesystem::path>& mountPoints) const;
    /// Makes the list anew. @returns what to tell.
    Failures rebuildList();
    Failures inSession(const std::function<void(RedirectSession&)>& work);

    std::shared_ptr<RedirectRepository> repository_;
    std::shared_ptr<FolderRedirecting> redirecting_;
    std::shared_ptr<RamDiskInventory> inventory_;
    std::shared_ptr<const StartupDiskNaming> startupDisks_;
};

} // namespace ramdisk
