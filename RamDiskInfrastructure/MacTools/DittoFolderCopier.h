#pragma once

#include "RamDiskCore/Ports/CommandRunning.h"
#include "RamDiskCore/Ports/FolderCopying.h"

#include <memory>

namespace ramdisk {

/// Copies folders with macOS's `ditto`, which keeps resource forks, access control lists and attributes.
class DittoFolderCopier final : public FolderCopying {
public:
    explicit DittoFolderCopier(std::shared_ptr<CommandRunning> runner);

    void requireSource(const std::filesystem::path& folder) const override;
    void copy(const std::filesystem::path& folder, const std::filesystem::path& volume) override;

private:
    std::shared_ptr<CommandRunning> runner_;
};

} // namespace ramdisk
