#include "RamDiskUI/PlatformWords.h"

#include "RamDiskInfrastructure/Stores/CacheFolders.h"

#include <string_view>

namespace ramdisk {

namespace {

struct Words {
    std::string_view onMac;
    std::string_view elsewhere;
};

constexpr Words words[] = {
    {"Spotlight indexing", "Search indexing"},
    {"password", "passphrase"},
    {"the keychain", "the keyring"},
    {" are kept on this Mac, and the main window offers to put them back.", " are kept on this computer."},
    {", in the main window.", "."},
    {" Eject it in Finder or Disk Utility.", " Unmount it by hand."},
};

} // namespace

std::string withPlatformWords(std::string text) {
    if (homeLayout() == HomeLayout::library) {
        return text;
    }
    for (const auto& [onMac, elsewhere] : words) {
        if (const auto found = text.find(onMac); found != text.npos) {
            text.replace(found, onMac.size(), elsewhere);
        }
    }
    return text;
}

} // namespace ramdisk
