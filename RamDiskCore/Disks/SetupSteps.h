#pragma once

#include "RamDiskCore/Disks/RamDiskSetupResult.h"
#include "RamDiskCore/Ports/FolderMaking.h"
#include "RamDiskCore/Redirects/FolderRedirectsUseCase.h"

#include <filesystem>
#include <string>
#include <vector>

/// The steps that a new disk's set-up and the changes to a standing one have in common.
namespace ramdisk {

/// Entries as `DiskFolders` gives them back.
/// @throws RamDiskError `invalidSpecification`
[[nodiscard]] std::vector<std::string> checkedFolders(const std::vector<std::string>& entries);

/// Makes the folders below the volume's top and gives why those that failed did.
[[nodiscard]] std::vector<RamDiskError> makeFolders(FolderMaking& maker,
                                                    const std::vector<std::string>& folders,
                                                    const std::filesystem::path& volume);

/// The same for a mounted disk; each that fails is a problem.
void makeFolders(FolderMaking& maker, const std::vector<std::string>& folders, const RamDisk& disk,
                 std::vector<RamDiskSetupProblem>& problems);

/// Each failure becomes a problem.
void noteFailures(std::vector<RedirectFailure> failures, std::vector<RamDiskSetupProblem>& problems);

/// Adds the redirects; each that fails is a problem.
void addRedirects(FolderRedirectsUseCase& redirects, const std::vector<RedirectTarget>& targets,
                  const RamDisk& disk, std::vector<RamDiskSetupProblem>& problems);

} // namespace ramdisk
