#include "RamDiskInfrastructure/MacServices/HomeFolder.h"

#include <cstdlib>
#include <stdexcept>

#include <pwd.h>
#include <unistd.h>

namespace ramdisk {

std::filesystem::path homeFolder() {
    const char* const home = std::getenv("HOME");
    if (home != nullptr && *home != '\0') {
        if (*home != '/') {
            throw std::runtime_error("HOME is not an absolute path.");
        }
        return home;
    }
    const auto* const account = ::getpwuid(::getuid());
    if (account == nullptr || account->pw_dir == nullptr) {
        throw std::runtime_error("This account has no home folder.");
    }
    return account->pw_dir;
}

} // namespace ramdisk
