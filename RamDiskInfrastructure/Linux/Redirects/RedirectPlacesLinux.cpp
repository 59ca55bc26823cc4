#include "RamDiskInfrastructure/Redirects/RedirectPlaces.h"

namespace ramdisk {

HomeLayout homeLayout() {
    return HomeLayout::xdg;
}

std::filesystem::path comparableFolder(const std::filesystem::path& relative) {
    return relative;
}

} // namespace ramdisk
