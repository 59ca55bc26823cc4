#pragma once

#include "RamDiskCore/Ports/FolderMaking.h"

namespace ramdisk {

/// Makes folders through the file system, one component after another and through no symbolic link. What root
/// makes belongs to the owner of the volume.
class FileManagerFolderMaker final : public FolderMaking {
public:
    void make(const std::string& relativePath, const std::filesystem::path& volume) override;
};

} // namespace ramdisk
