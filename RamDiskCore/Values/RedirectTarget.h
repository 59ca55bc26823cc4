#pragma once

#include "RamDiskCore/Values/KnownCache.h"

#include <string>
#include <variant>

namespace ramdisk {

/// Which folder of which tool is kept on a disk.
struct RedirectTarget {
    /// Xcode's build products and indexes.
    struct XcodeDerivedData {
        friend bool operator==(const XcodeDerivedData&, const XcodeDerivedData&) = default;
    };
    struct NpmCache {
        friend bool operator==(const NpmCache&, const NpmCache&) = default;
    };
    /// Any folder of the user's choice.
    struct Folder {
        /// Relative to the home folder.
        std::string path;
        friend bool operator==(const Folder&, const Folder&) = default;
    };
    struct Cache {
        KnownCache cache{};
        friend bool operator==(const Cache&, const Cache&) = default;
    };
    /// The temporary files of newly opened apps.
    struct TemporaryFolder {
        friend bool operator==(const TemporaryFolder&, const TemporaryFolder&) = default;
    };

    std::variant<XcodeDerivedData, NpmCache, Folder, Cache, TemporaryFolder> value;

    friend bool operator==(const RedirectTarget&, const RedirectTarget&) = default;
};

} // namespace ramdisk
