#pragma once

#include "RamDiskCore/Ports/FolderMaking.h"
#include "RamDiskCore/Redirects/FolderRedirectsUseCase.h"
#include "RamDiskCore/Setup/RamDiskSetupResult.h"

#include <filesystem>
#include <string>
#include <vector>

/// The steps that are the same for a new disk and for changes to an existing one.
namespace ramdisk {

/// The folders, as `DiskFolders` gives them.
/// @throws RamDiskError `invalidSpecification`
[[nodiscard]] std::vector<std::string> checkedFolders(const std::vector<std::string>& entries);

/// Refuses a list of folders that is invalid, along with what else is wrong.
/// @throws RamDiskError `invalidSpecification` when there is either
void requireFolders(const std::vector<std::string>& entries, std::vector<ValidationIssue> otherIssues);

/// Refuses a name that no list can hold, before there is a disk of that name.
/// @throws std::runtime_error
void requireStorable(const std::string& name);

/// Makes the folders on a mounted disk. Each that fails becomes a problem.
void makeFolders(FolderMaking& maker, const std::vector<std::string>& folders, const RamDisk& disk,
                 std::vector<RamDiskSetupProblem>& problems);

/// Each failure becomes a problem.
void noteFailures(std::vector<RedirectFailure> failures, std::vector<RamDiskSetupProblem>& problems);

/// Puts the redirects in place that are stored for a disk of this name. Each that fails becomes a problem.
void applyStoredRedirects(FolderRedirectsUseCase& redirects, const RamDisk& disk,
                          std::vector<RamDiskSetupProblem>& problems);

/// Adds the redirects. Each that fails becomes a problem.
void addRedirects(FolderRedirectsUseCase& redirects, const std::vector<RedirectTarget>& targets,
                  const RamDisk& disk, std::vector<RamDiskSetupProblem>& problems);

} // namespace ramdisk
