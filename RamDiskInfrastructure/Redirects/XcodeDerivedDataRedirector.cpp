#include "RamDiskInfrastructure/Redirects/XcodeDerivedDataRedirector.h"

#include "RamDiskInfrastructure/Redirects/FolderOnDisk.h"

#include <stdexcept>
#include <utility>

namespace ramdisk {

XcodeDerivedDataRedirector::XcodeDerivedDataRedirector(std::shared_ptr<PreferenceDomain> preferences,
                                                       std::filesystem::path home, StepObserver observer)
    : preferences_(std::move(preferences)),
      home_(std::move(home)),
      observer_(std::move(observer)) {}

RedirectRestoreState XcodeDerivedDataRedirector::apply(const RedirectDestination& destination,
                                                       const FolderRedirecting::Record& record) const {
    if (!preferences_) {
        throw std::runtime_error("Xcode runs on macOS only, so its build products stay where they are.");
    }
    auto former = preferences_->text(key);
    if (former && isFolderOnDisk(*former, destination.name)) {
        // Left behind by a redirect that no list knows any more: nobody wants it back.
        former.reset();
    }
    tell(observer_, "make the folder on the disk");
    makeFolderOnDisk(destination.mountPoint, destination.name, privateAccessOfOwner(home_));
    const RedirectRestoreState state{RedirectRestoreState::Preference{former}};
    record(state);
    tell(observer_, "set the preference");
    preferences_->set(key, folderOnDisk(destination.mountPoint, destination.name).string());
    return state;
}

void XcodeDerivedDataRedirector::undo(const std::string& name,
                                      const RedirectRestoreState::Preference& former) const {
    if (!preferences_) {
        return;
    }
    const auto current = preferences_->text(key);
    // Another place that the user chose meanwhile stays.
    if (current && isFolderOnDisk(*current, name)) {
        tell(observer_, "put the preference back");
        preferences_->set(key, former.value);
    }
}

bool XcodeDerivedDataRedirector::isInForce(const RedirectDestination& destination) const {
    return preferences_ && existsOnDisk(destination.mountPoint, destination.name)
           && preferences_->text(key) == folderOnDisk(destination.mountPoint, destination.name).string();
}

} // namespace ramdisk
