#pragma once

#include "RamDiskCore/Ports/FolderCopying.h"

namespace ramdisk {

/// Copies a folder with the system's own tree copier. Links stay links; hard links and sparse files stay what
/// they are; attributes and ACLs are copied. If the caller may not give files to other owners, the copies are
/// the caller's own. The root folder of the volume keeps its own owner, mode and dates.
class TreeFolderCopier final : public FolderCopying {
public:
    void requireSource(const std::filesystem::path& folder) const override;
    void copy(const std::filesystem::path& folder, const std::filesystem::path& volume) override;
};

} // namespace ramdisk
