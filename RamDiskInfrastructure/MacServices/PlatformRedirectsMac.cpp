#include "RamDiskInfrastructure/Commands/ProcessCommandRunner.h"
#include "RamDiskInfrastructure/MacServices/CFUserDefaults.h"
#include "RamDiskInfrastructure/MacServices/HomeFolder.h"
#include "RamDiskInfrastructure/MacTools/LaunchdEnvironment.h"
#include "RamDiskInfrastructure/PlatformRedirects.h"
#include "RamDiskInfrastructure/Redirects/FolderRedirector.h"

namespace ramdisk {

std::shared_ptr<FolderRedirecting> makeFolderRedirecting() {
    return std::make_shared<FolderRedirector>(FolderRedirector::Parts{
        .home = homeFolder(),
        .reserved = {applicationSupportFolder(), homeFolder() / "Library/Preferences",
                     homeFolder() / "Library/RamDisks"},
        .environment = std::make_shared<LaunchdEnvironment>(std::make_shared<ProcessCommandRunner>()),
        .xcode = std::make_shared<PreferenceDomain>(
            std::make_shared<CFUserDefaults>(XcodeDerivedDataRedirector::domain))});
}

} // namespace ramdisk
