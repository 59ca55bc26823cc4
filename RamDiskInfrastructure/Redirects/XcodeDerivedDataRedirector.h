#pragma once

#include "RamDiskInfrastructure/Redirects/PreferenceDomain.h"
#include "RamDiskInfrastructure/Redirects/SettingRedirector.h"

#include <filesystem>
#include <memory>

namespace ramdisk {

/// Has Xcode keep its build products on a disk, by its own preference.
class XcodeDerivedDataRedirector final : public SettingRedirector<RedirectRestoreState::Preference> {
public:
    static constexpr const char* domain = "com.apple.dt.Xcode";
    static constexpr const char* key = "IDECustomDerivedDataLocation";

    /// @param preferences Xcode's; null where there is no Xcode, and every `apply` says so.
    XcodeDerivedDataRedirector(const std::shared_ptr<PreferenceDomain>& preferences,
                               std::filesystem::path home, StepObserver observer);

    RedirectRestoreState apply(const RedirectDestination& destination,
                               const FolderRedirecting::Record& record) const;

private:
    bool hasXcode_;
};

} // namespace ramdisk
