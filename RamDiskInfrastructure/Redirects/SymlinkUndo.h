#pragma once

#include "RamDiskCore/Values/UUID.h"
#include "RamDiskInfrastructure/Redirects/HomeTree.h"
#include "RamDiskInfrastructure/Redirects/NameExchange.h"
#include "RamDiskInfrastructure/Redirects/RedirectStep.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>

namespace ramdisk {

/// Brings a folder back into the place of its link, wherever an `apply` or another undo was interrupted. It
/// goes by what it finds under three names: the folder's own, the backup's, and the temporary one under which
/// link and original exchange places.
class SymlinkUndo {
public:
    struct Names {
        /// The folder's name in messages.
        std::string shown;
        std::string folder;
        std::string temporary;
        std::optional<std::string> backup;
        /// The original's, where it is known.
        std::optional<std::uint64_t> inode{};
    };

    /// @param isOurs whether a link that leads there is the one that was put in place.
    SymlinkUndo(const OpenedFolder& folder, const Names& names,
                std::function<bool(const std::string&)> isOurs, NameExchange exchange,
                const StepObserver& observer);

    /// Whether the link or the original is here, in whatever state.
    /// @throws SystemCallError
    [[nodiscard]] bool findsAnything() const;

    /// Where nothing was found: whether that is because the original is back in its place.
    /// @throws SystemCallError
    [[nodiscard]] bool isUndone() const;

    /// @returns what the user should know.
    /// @throws SystemCallError
    [[nodiscard]] std::optional<std::string> run() const;

    /// The temporary name of a redirect, used while names are exchanged.
    [[nodiscard]] static std::string temporaryName(const UUID& redirect) {
        return ".ramdisk-" + redirect.text();
    }

    [[nodiscard]] static std::string originalIsGone(const std::string& shown) {
        return "The original of " + shown + " was no longer there to be put back.";
    }

    [[nodiscard]] static std::string notFound(const std::string& shown, const std::filesystem::path& backup,
                                              const std::string& obstacle);

private:
    [[nodiscard]] bool isOurLink(const std::string& name) const;
    void remove(const std::string& link) const;
    /// The name that the original has now, if that is not its own.
    [[nodiscard]] std::optional<std::string> findOriginal() const;
    void exchangeBack(const std::string& original) const;
    [[nodiscard]] std::optional<std::string> putBack(const std::string& original) const;
    /// Moves what is in the original's place out of the way.
    [[nodiscard]] std::optional<std::string> setAside() const;

    const OpenedFolder& folder_;
    const Names& names_;
    std::function<bool(const std::string&)> isOurs_;
    NameExchange exchange_;
    const StepObserver& observer_;
};

} // namespace ramdisk
