#include "RamDiskCore/Values/VolumePassphrase.h"

#include <atomic>
#include <cstddef>
#include <utility>

namespace ramdisk {

VolumePassphrase::VolumePassphrase(std::string_view value) : value_(value) {}

VolumePassphrase::VolumePassphrase(const VolumePassphrase& other) = default;

VolumePassphrase::VolumePassphrase(VolumePassphrase&& other) noexcept : value_(std::move(other.value_)) {
    // A short text is copied out of the string object and left behind in it.
    wipe(other.value_);
}

VolumePassphrase& VolumePassphrase::operator=(const VolumePassphrase& other) {
    if (this != &other) {
        *this = VolumePassphrase(other);
    }
    return *this;
}

VolumePassphrase& VolumePassphrase::operator=(VolumePassphrase&& other) noexcept {
    if (this != &other) {
        wipe(value_);
        value_ = std::move(other.value_);
        // Where the strings traded buffers, `other` now holds the wiped one; else a short copy of the text.
        wipe(other.value_);
    }
    return *this;
}

VolumePassphrase::~VolumePassphrase() {
    wipe(value_);
}

std::string_view VolumePassphrase::description() noexcept {
    return "VolumePassphrase(<redacted>)";
}

void wipe(std::string& text) noexcept {
    // Up to the capacity: what was longer once, or was moved from, still lies behind the end. Never
    // allocates.
    text.resize(text.capacity());
    volatile char* bytes = text.data();
    for (std::size_t index = 0; index < text.size(); ++index) {
        bytes[index] = '\0';
    }
    std::atomic_signal_fence(std::memory_order_seq_cst);
    text.clear();
}

} // namespace ramdisk
