#pragma once

#include "RamDiskCore/Ports/Port.h"
#include "RamDiskCore/Values/UUID.h"

#include <filesystem>
#include <functional>
#include <future>
#include <optional>
#include <string>
#include <vector>

namespace ramdisk {

/// The filling of a disk with saved files, as it is noted before it begins.
struct Filling {
    /// The disk, by the identifier in its mark; before it exists, the profile's own identifier.
    UUID instance;
    /// The file name of the copy that replaces everything on the disk. Absent when the latest copy is added
    /// to what is there.
    std::optional<std::string> replacement = std::nullopt;

    friend bool operator==(const Filling&, const Filling&) = default;
};

/// Tells where the saved files of startup disks lie and keeps two processes from working on the same ones.
/// Each disk has locks of its own, so that saving one does not hold up another.
class ContentStorageLocating : public Port {
public:
    /// The image with the saved files of a profile; it need not exist.
    [[nodiscard]] virtual std::filesystem::path imageLocation(const UUID& profile) const = 0;

    /// Where files wait that were copied out of a disk during a resize; it need not exist.
    [[nodiscard]] virtual std::filesystem::path unfinishedResizes() const = 0;

    /// Runs `body` when nobody else works on the profile's saved files. Waiting for that holds no thread. The
    /// future ends when the lock is free again, and holds what went wrong.
    [[nodiscard]] virtual std::future<void> withLock(const UUID& profile,
                                                     std::function<void()> body) const = 0;
    /// Whether somebody works on the profile's saved files now. False when that cannot be told.
    [[nodiscard]] virtual bool isLocked(const UUID& profile) const = 0;

    /// The same for the profile's unfinished resize.
    [[nodiscard]] virtual std::future<void> withResizeLock(const UUID& profile,
                                                           std::function<void()> body) const = 0;
    [[nodiscard]] virtual bool isResizeLocked(const UUID& profile) const = 0;

    /// The disk whose files the profile's saved copies are, by the identifier in its mark. Absent when that
    /// was never noted, or the note cannot be read.
    [[nodiscard]] virtual std::optional<UUID> boundInstance(const UUID& profile) const = 0;
    /// Notes it, safely on the system disk, or removes the note.
    /// @throws std::exception
    virtual void bind(const UUID& profile, const std::optional<UUID>& instance) = 0;

    /// The filling that was under way when this was last noted. While the profile is locked, it is going on;
    /// otherwise it was interrupted.
    [[nodiscard]] virtual std::optional<Filling> filling(const UUID& profile) const = 0;
    /// @throws std::exception
    virtual void setFilling(const UUID& profile, const std::optional<Filling>& filling) = 0;

    /// The disk that keeps the profile's files, as long as none of them were ever saved.
    [[nodiscard]] virtual std::optional<UUID> unsavedInstance(const UUID& profile) const = 0;
    /// @throws std::exception
    virtual void setUnsavedInstance(const UUID& profile, const std::optional<UUID>& instance) = 0;

    /// The profiles for which this disk keeps files, by all of these notes. The list of startup disks may not
    /// hold them any more.
    [[nodiscard]] virtual std::vector<UUID> ownersOf(const UUID& instance) const = 0;

    /// The folder of saved files, other than this one, that keeps the disk's files or did when it was last
    /// there. Absent where disks cannot remember that.
    [[nodiscard]] virtual std::optional<std::filesystem::path> keptElsewhere(const UUID& /*instance*/) const {
        return std::nullopt;
    }

    /// The profiles that have saved copies, whether the list of startup disks holds them or not.
    [[nodiscard]] virtual std::vector<UUID> savedProfiles() const = 0;
};

} // namespace ramdisk
