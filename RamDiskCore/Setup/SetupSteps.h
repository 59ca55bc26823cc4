#pragma once

#include "RamDiskCore/Ports/FolderMaking.h"
#include "RamDiskCore/Redirects/FolderRedirectsUseCase.h"
#include "RamDiskCore/Setup/RamDiskSetupResult.h"

#include <filesystem>
#include <string>
#include <vector>

/// The steps that a new disk's set-up and the changes to a standing one have in common.
namespace ramdisk {

/// Entries as `DiskFolders` gives them back.
/// @throws RamDiskError `invalidSpecification`
[[nodiscard]] std::vector<std::string> checkedFolders(const std::vector<std::string>& entries);

/// Makes the folders on a mounted disk; each that fails is a problem.
void makeFolders(FolderMaking& maker, const std::vector<std::string>& folders, const RamDisk& disk,
                 std::vector<RamDiskSetupProblem>& problems);

/// Each failure becomes a problem.
void noteFailures(std::vector<RedirectFailure> failures, std::vector<RamDiskSetupProblem>& problems);

/// Adds the redirects; each that fails is a problem.
void addRedirects(FolderRedirectsUseCase& redirects, const std::vector<RedirectTarget>& targets,
                  const RamDisk& disk, std::vector<RamDiskSetupProblem>& problems);

} // namespace ramdisk
