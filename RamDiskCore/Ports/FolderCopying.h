#pragma once

#include "RamDiskCore/Ports/Port.h"

#include <filesystem>

namespace ramdisk {

/// Fills a volume from a folder.
class FolderCopying : public Port {
public:
    /// Whether `folder` can be copied at all, told before there is a volume.
    /// @throws RamDiskError `contentsTransferFailed`
    virtual void requireSource(const std::filesystem::path& /*folder*/) const {}

    /// Copies what is inside `folder` to the root of the volume mounted at `volume`, with its metadata. What
    /// is there under other names stays; a failure leaves what was copied so far.
    /// @throws RamDiskError `contentsTransferFailed`
    virtual void copy(const std::filesystem::path& folder, const std::filesystem::path& volume) = 0;
};

} // namespace ramdisk
