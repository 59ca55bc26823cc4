#include "RamDiskInfrastructure/MacServices/MediaIDs.h"

#include <type_traits>

#include <CoreFoundation/CoreFoundation.h>
#include <IOKit/IOKitLib.h>

namespace ramdisk {

static_assert(std::is_same_v<io_service_t, std::uint32_t>, "registry objects are kept as plain numbers");

MediaIDs::~MediaIDs() {
    for (const auto& [name, entry] : entries_) {
        IOObjectRelease(entry.object);
    }
}

std::optional<std::uint64_t> MediaIDs::identifier(const std::string& bsdName) {
    const std::lock_guard guard(mutex_);
    if (const auto known = entries_.find(bsdName); known != entries_.end()) {
        if (IORegistryEntryInPlane(known->second.object, kIOServicePlane)) {
            return known->second.identifier;
        }
        IOObjectRelease(known->second.object);
        entries_.erase(known);
    }
    // The matching call takes over the dictionary, also when it finds nothing.
    const auto matching = IOBSDNameMatching(kIOMainPortDefault, 0, bsdName.c_str());
    const io_service_t service =
        matching == nullptr ? IO_OBJECT_NULL : IOServiceGetMatchingService(kIOMainPortDefault, matching);
    if (service == IO_OBJECT_NULL) {
        return std::nullopt;
    }
    std::uint64_t identifier = 0;
    if (IORegistryEntryGetRegistryEntryID(service, &identifier) != KERN_SUCCESS) {
        IOObjectRelease(service);
        return std::nullopt;
    }
    entries_[bsdName] = Entry{identifier, service};
    return identifier;
}

MediaIDs& sharedMediaIDs() {
    static MediaIDs shared;
    return shared;
}

} // namespace ramdisk
