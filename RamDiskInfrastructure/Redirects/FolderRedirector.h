#pragma once

#include "RamDiskCore/Ports/FolderCopying.h"
#include "RamDiskCore/Ports/FolderRedirecting.h"
#include "RamDiskInfrastructure/Redirects/FolderCopies.h"
#include "RamDiskInfrastructure/Redirects/FolderMounting.h"
#include "RamDiskInfrastructure/Redirects/MountedFolderRedirector.h"
#include "RamDiskInfrastructure/Redirects/NpmCacheRedirector.h"
#include "RamDiskInfrastructure/Redirects/SymlinkFolderRedirector.h"
#include "RamDiskInfrastructure/Redirects/TemporaryFolderRedirector.h"
#include "RamDiskInfrastructure/Redirects/ToolPlaces.h"
#include "RamDiskInfrastructure/Redirects/XcodeDerivedDataRedirector.h"

#include <filesystem>
#include <memory>
#include <vector>

namespace ramdisk {

/// Passes each target to the redirector of its kind.
class FolderRedirector final : public FolderRedirecting {
public:
    struct Parts {
        std::filesystem::path home;
        /// Folders of this system's own, which must not be moved.
        std::vector<std::filesystem::path> reserved{};
        std::shared_ptr<SessionEnvironment> environment{};
        /// Null where there is no Xcode.
        std::shared_ptr<PreferenceDomain> xcode{};
        /// Copies folders to a disk and back.
        std::shared_ptr<FolderCopying> copier{};
        /// Null where folders cannot be mounted; links do it then.
        std::shared_ptr<FolderMounting> mounting{};
        NameExchange exchange = NameExchange::whereSupported;
        /// Empty outside of tests.
        StepObserver observer{};
        /// The environment that tools are started with, as far as this process may trust it.
        VariableLookup variables{[](const char*) { return std::optional<std::string>(); }};
    };

    explicit FolderRedirector(const Parts& parts);

    [[nodiscard]] RedirectPlace place(const RedirectTarget& target) const override;
    [[nodiscard]] RedirectTarget settled(const RedirectTarget& target) const override;
    [[nodiscard]] RedirectStatus
    status(const FolderRedirect& redirect,
           const std::optional<std::filesystem::path>& mountPoint) const override;
    RedirectRestoreState apply(const FolderRedirect& redirect, const std::filesystem::path& mountPoint,
                               const Record& record) override;
    std::optional<std::string> undo(const FolderRedirect& redirect, const RedirectRestoreState& state,
                                    Force force) override;
    [[nodiscard]] bool isInForce(const FolderRedirect& redirect,
                                 const std::filesystem::path& mountPoint) const override;
    bool freeOnDisk(const FolderRedirect& redirect, const std::filesystem::path& mountPoint) override;
    [[nodiscard]] bool holdsOwnFiles(const FolderRedirect& redirect,
                                     const std::filesystem::path& mountPoint) const override;
    void copyToDisk(const FolderRedirect& redirect, const std::filesystem::path& mountPoint) override;
    std::optional<std::filesystem::path> copyFromDisk(const FolderRedirect& redirect,
                                                      const std::filesystem::path& mountPoint,
                                                      const Record& record) override;
    std::optional<std::filesystem::path> moveOnDisk(const FolderRedirect& former,
                                                    const RedirectTarget& target,
                                                    const std::filesystem::path& mountPoint) override;
    void tidyOnDisk(const FolderRedirect& redirect, const std::filesystem::path& mountPoint) override;
    void requireNothingMountedIn(const FolderRedirect& redirect,
                                 const std::filesystem::path& mountPoint) const override;
    [[nodiscard]] std::optional<std::string> hazard(const FolderRedirect& redirect) const override;
    [[nodiscard]] std::vector<StandingRedirect>
    standing(const std::vector<std::filesystem::path>& mountPoints, StandingSearch search,
             const std::vector<FolderRedirect>& known) const override;
    [[nodiscard]] std::vector<StrayOriginal>
    strayOriginals(const std::vector<FolderRedirect>& known) const override;

private:
    RedirectRestoreState applyFolder(const FolderRedirect& redirect, const std::filesystem::path& mountPoint,
                                     const Record& record) const;
    [[nodiscard]] std::optional<std::string> undoFolder(const FolderRedirect& redirect,
                                                        const SymlinkFolderRedirector::Recorded& recorded,
                                                        Force force) const;
    /// @throws FolderInUse
    void requireNothingMounted(const std::filesystem::path& folder) const;
    /// Why a folder that is on its disk is not in force.
    [[nodiscard]] RedirectStatus::Condition whatReplaced(const FolderRedirect& redirect) const;

    std::filesystem::path home_;
    StepObserver observer_;
    NpmCacheRedirector npm_;
    SymlinkFolderRedirector folders_;
    MountedFolderRedirector mounted_;
    FolderCopies copies_;
    TemporaryFolderRedirector temporaryFolder_;
    XcodeDerivedDataRedirector xcode_;
    ToolPlaces places_;
};

} // namespace ramdisk
