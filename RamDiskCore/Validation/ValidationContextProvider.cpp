#include "RamDiskCore/Validation/ValidationContextProvider.h"

namespace ramdisk {

ValidationContext
ValidationContextProvider::current(const std::optional<std::filesystem::path>& excluding) const {
    return {memory->read(), volumes->volumeNames(excluding),
            profiles ? profiles->startupDiskNames() : std::set<std::string>{}};
}

} // namespace ramdisk
