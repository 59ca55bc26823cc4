#include "RamDiskInfrastructure/Commands/ProcessCommandRunner.h"
#include "RamDiskInfrastructure/Linux/LinuxHost.h"
#include "RamDiskInfrastructure/Linux/Redirects/SystemdUserEnvironment.h"
#include "RamDiskInfrastructure/Linux/SystemTools.h"
#include "RamDiskInfrastructure/PlatformRedirects.h"
#include "RamDiskInfrastructure/Redirects/FolderRedirector.h"

namespace ramdisk {

std::shared_ptr<FolderRedirecting> makeFolderRedirecting() {
    const auto host = LinuxHost::current();
    return std::make_shared<FolderRedirector>(FolderRedirector::Parts{
        .home = host.home,
        .reserved = {host.applicationSupport, host.configuration, host.records, host.privateMounts},
        .environment = std::make_shared<SystemdUserEnvironment>(
            std::make_shared<ProcessCommandRunner>(),
            SystemdUserEnvironment::Tools{findSystemTool("systemctl"),
                                          findSystemTool("dbus-update-activation-environment")})});
}

} // namespace ramdisk
