#pragma once

#include "RamDiskCore/Values/UUID.h"

#include <optional>

namespace ramdisk {

/// The extended attribute on the root folder of every volume that this system makes. Its value is the text of
/// a random UUID in UTF-8 without a terminator. Each marking makes a new one.
struct VolumeMark {
    static constexpr const char* attribute = "com.tavrin.ramdisk.created";

    /// What reading the mark gives.
    struct Reading {
        /// The attribute exists.
        bool isSet = false;
        /// Absent when the attribute's value is not a UUID.
        std::optional<UUID> instance;

        friend bool operator==(const Reading&, const Reading&) = default;
    };
};

} // namespace ramdisk
