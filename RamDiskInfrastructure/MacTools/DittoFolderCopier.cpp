#include "RamDiskInfrastructure/MacTools/DittoFolderCopier.h"

#include "RamDiskCore/Values/RamDiskError.h"
#include "RamDiskInfrastructure/MacTools/ToolPaths.h"

#include <utility>

namespace ramdisk {

DittoFolderCopier::DittoFolderCopier(std::shared_ptr<CommandRunning> runner) : runner_(std::move(runner)) {}

void DittoFolderCopier::requireSource(const std::filesystem::path& folder) const {
    std::error_code error;
    if (!std::filesystem::is_directory(folder, error)) {
        throw RamDiskError(RamDiskError::ContentsTransferFailed{"“" + folder.string()
                                                                + "” is not a folder that can be read."});
    }
}

void DittoFolderCopier::copy(const std::filesystem::path& folder, const std::filesystem::path& volume) {
    try {
        // Absolute, so that no folder's name is taken for an option.
        runner_->runChecked(
            {toolPaths::ditto,
             {std::filesystem::absolute(folder).string(), std::filesystem::absolute(volume).string()},
             std::nullopt,
             std::nullopt});
    } catch (const std::exception& error) {
        throw RamDiskError(RamDiskError::ContentsTransferFailed{error.what()});
    }
}

} // namespace ramdisk
