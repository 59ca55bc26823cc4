#pragma once

#include "RamDiskInfrastructure/Redirects/PreferenceDomain.h"
#include "RamDiskInfrastructure/Redirects/RedirectStep.h"

#include <filesystem>
#include <memory>

namespace ramdisk {

/// Has Xcode keep its build products on a disk, by its own preference.
class XcodeDerivedDataRedirector {
public:
    static constexpr const char* domain = "com.apple.dt.Xcode";
    static constexpr const char* key = "IDECustomDerivedDataLocation";

    /// @param preferences Xcode's; null where there is no Xcode, and every `apply` says so.
    XcodeDerivedDataRedirector(std::shared_ptr<PreferenceDomain> preferences, std::filesystem::path home,
                               StepObserver observer);

    RedirectRestoreState apply(const RedirectDestination& destination,
                               const FolderRedirecting::Record& record) const;
    void undo(const std::string& name, const RedirectRestoreState::Preference& former) const;
    [[nodiscard]] bool isInForce(const RedirectDestination& destination) const;

private:
    std::shared_ptr<PreferenceDomain> preferences_;
    std::filesystem::path home_;
    StepObserver observer_;
};

} // namespace ramdisk
