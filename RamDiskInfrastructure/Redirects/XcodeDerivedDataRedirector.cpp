#include "RamDiskInfrastructure/Redirects/XcodeDerivedDataRedirector.h"

#include <stdexcept>
#include <utility>

namespace ramdisk {

namespace {

RedirectSetting settingIn(const std::shared_ptr<PreferenceDomain>& preferences) {
    constexpr auto key = XcodeDerivedDataRedirector::key;
    if (!preferences) {
        return {"preference", {}, {}, {}};
    }
    return {"preference", [preferences] { return preferences->text(key); },
            [preferences](const std::string& value) { preferences->set(key, value); },
            [preferences](const std::optional<std::string>& former) { preferences->set(key, former); }};
}

} // namespace

XcodeDerivedDataRedirector::XcodeDerivedDataRedirector(const std::shared_ptr<PreferenceDomain>& preferences,
                                                       std::filesystem::path home, StepObserver observer)
    : SettingRedirector(settingIn(preferences), std::move(home), std::move(observer)),
      hasXcode_(preferences != nullptr) {}

RedirectRestoreState XcodeDerivedDataRedirector::apply(const RedirectDestination& destination,
                                                       const FolderRedirecting::Record& record) const {
    if (!hasXcode_) {
        throw std::runtime_error("Xcode runs on macOS only, so its build products stay where they are.");
    }
    return SettingRedirector::apply(destination, record);
}

} // namespace ramdisk
