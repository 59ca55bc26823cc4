#include "RamDiskInfrastructure/Redirects/TemporaryFolderRedirector.h"

#include "RamDiskInfrastructure/Redirects/FolderOnDisk.h"

#include <utility>

namespace ramdisk {

namespace {

constexpr const char* variable = "TMPDIR";

} // namespace

TemporaryFolderRedirector::TemporaryFolderRedirector(std::shared_ptr<SessionEnvironment> environment,
                                                     std::filesystem::path home, StepObserver observer)
    : environment_(std::move(environment)),
      home_(std::move(home)),
      observer_(std::move(observer)) {}

RedirectRestoreState TemporaryFolderRedirector::apply(const RedirectDestination& destination,
                                                      const FolderRedirecting::Record& record) const {
    auto former = environment_->value(variable);
    if (former && isFolderOnDisk(*former, destination.name)) {
        // Left behind by a redirect that no list knows any more: nobody wants it back.
        former.reset();
    }
    tell(observer_, "make the folder on the disk");
    makeFolderOnDisk(destination.mountPoint, destination.name, privateAccessOfOwner(home_));
    const RedirectRestoreState state{RedirectRestoreState::EnvironmentVariable{former}};
    record(state);
    tell(observer_, "set the variable");
    environment_->set(variable, folderOnDisk(destination.mountPoint, destination.name).string());
    return state;
}

void TemporaryFolderRedirector::undo(const std::string& name,
                                     const RedirectRestoreState::EnvironmentVariable& former) const {
    const auto current = environment_->value(variable);
    // After a new login the session has forgotten ours, and a value of its own stays.
    if (current && isFolderOnDisk(*current, name)) {
        tell(observer_, "put the variable back");
        environment_->restore(variable, former.value);
    }
}

bool TemporaryFolderRedirector::isInForce(const RedirectDestination& destination) const {
    return existsOnDisk(destination.mountPoint, destination.name)
           && environment_->value(variable)
                  == folderOnDisk(destination.mountPoint, destination.name).string();
}

} // namespace ramdisk
