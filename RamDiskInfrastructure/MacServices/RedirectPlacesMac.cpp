#include "RamDiskCore/Values/Text.h"
#include "RamDiskInfrastructure/Redirects/RedirectPlaces.h"

namespace ramdisk {

HomeLayout homeLayout() {
    return HomeLayout::library;
}

std::filesystem::path comparableFolder(const std::filesystem::path& relative) {
    std::filesystem::path folded;
    for (const auto& component : relative) {
        folded /= foldedName(component.string());
    }
    return folded;
}

} // namespace ramdisk
