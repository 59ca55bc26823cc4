#include "RamDiskCore/Validation/ValidationContextProvider.h"

#include "RamDiskCore/Values/Text.h"

namespace ramdisk {

ValidationContext
ValidationContextProvider::current(const std::optional<std::filesystem::path>& excluding) const {
    return {memory->read(), volumes->volumeNames(excluding),
            profiles ? profiles->startupDiskNames() : std::set<std::string>{}};
}

ValidationContext ValidationContextProvider::currentFor(const RamDisk& disk) const {
    auto context = current(disk.mountPoint);
    std::erase_if(context.startupDiskNames,
                  [&disk](const std::string& name) { return namesEqual(name, disk.name); });
    return context;
}

} // namespace ramdisk
