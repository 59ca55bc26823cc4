#include "RamDiskCore/Setup/SetupSteps.h"

#include "RamDiskCore/Disks/MakeFolders.h"
#include "RamDiskCore/Validation/DiskFolders.h"
#include "RamDiskCore/Values/Text.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>
#include <utility>

namespace ramdisk {

std::vector<std::string> checkedFolders(const std::vector<std::string>& entries) {
    auto checked = DiskFolders::check(entries);
    if (!checked.issues.empty()) {
        throw RamDiskError(RamDiskError::InvalidSpecification{std::move(checked.issues)});
    }
    return std::move(checked.folders);
}

void requireFolders(const std::vector<std::string>& entries, std::vector<ValidationIssue> otherIssues) {
    auto checked = DiskFolders::check(entries);
    std::move(checked.issues.begin(), checked.issues.end(), std::back_inserter(otherIssues));
    if (!otherIssues.empty()) {
        throw RamDiskError(RamDiskError::InvalidSpecification{std::move(otherIssues)});
    }
}

void requireStorable(const std::string& name) {
    if (replacingInvalidUTF8(name) != name) {
        throw std::runtime_error("“" + name
                                 + "” is not valid UTF-8, which the lists of disks and redirects are.");
    }
}

void makeFolders(FolderMaking& maker, const std::vector<std::string>& folders, const RamDisk& disk,
                 std::vector<RamDiskSetupProblem>& problems) {
    for (auto& error : makeFolders(maker, folders, disk.mountPoint.value())) {
        problems.push_back({RamDiskSetupProblem::FolderNotCreated{std::move(error)}});
    }
}

void noteFailures(std::vector<RedirectFailure> failures, std::vector<RamDiskSetupProblem>& problems) {
    for (auto& failure : failures) {
        problems.push_back({RamDiskSetupProblem::RedirectFailed{std::move(failure)}});
    }
}

void applyStoredRedirects(FolderRedirectsUseCase& redirects, const RamDisk& disk,
                          std::vector<RamDiskSetupProblem>& problems) {
    try {
        noteFailures(redirects.apply(disk), problems);
    } catch (const std::exception&) {
        const RamDiskSetupProblem problem{RamDiskSetupProblem::RedirectsNotSaved{std::current_exception()}};
        problems.push_back(problem);
    }
}

void addRedirects(FolderRedirectsUseCase& redirects, const std::vector<RedirectTarget>& targets,
                  const RamDisk& disk, std::vector<RamDiskSetupProblem>& problems) {
    if (targets.empty()) {
        return;
    }
    try {
        noteFailures(redirects.add(disk, targets), problems);
    } catch (const std::exception&) {
        const RamDiskSetupProblem problem{RamDiskSetupProblem::RedirectsNotSaved{std::current_exception()}};
        problems.push_back(problem);
    }
}

} // namespace ramdisk
