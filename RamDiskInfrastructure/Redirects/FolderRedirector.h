#pragma once

#include "RamDiskCore/Ports/FolderRedirecting.h"
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
    std::optional<std::string> undo(const FolderRedirect& redirect,
                                    const RedirectRestoreState& state) override;
    [[nodiscard]] bool isInForce(const FolderRedirect& redirect,
                                 const std::filesystem::path& mountPoint) const override;
    bool freeOnDisk(const FolderRedirect& redirect, const std::filesystem::path& mountPoint) override;
    [[nodiscard]] std::vector<std::filesystem::path>
    strayOriginals(const std::vector<FolderRedirect>& known) const override;

private:
    std::filesystem::path home_;
    NpmCacheRedirector npm_;
    SymlinkFolderRedirector folders_;
    TemporaryFolderRedirector temporaryFolder_;
    XcodeDerivedDataRedirector xcode_;
    ToolPlaces places_;
};

} // namespace ramdisk
