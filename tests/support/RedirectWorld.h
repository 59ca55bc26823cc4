#pragma once

#include "RamDiskCore/Redirects/FolderRedirectsUseCase.h"
#include "RamDiskInfrastructure/Redirects/FolderRedirector.h"
#include "tests/support/Testing.h"

namespace ramdisk::test {

/// Copies with the standard library, or fails halfway.
class HaltingCopier final : public FolderCopying {
public:
    void copy(const std::filesystem::path& folder, const std::filesystem::path& volume) override;
    /// Why it fails after the first file; empty when it does not.
    std::string failure;
};

/// A home folder, a disk and the stored list of redirects, in real folders, and ways to interrupt the work on
/// them at any step.
class RedirectWorld {
public:
    RedirectWorld();

    [[nodiscard]] std::filesystem::path home() const { return scratch_.path() / "home of me"; }
    [[nodiscard]] std::filesystem::path mountPoint() const { return scratch_.path() / "Dev"; }
    [[nodiscard]] const std::filesystem::path& scratch() const { return scratch_.path(); }
    [[nodiscard]] std::filesystem::path onDisk(const std::string& name) const {
        return mountPoint() / "Redirected" / name;
    }
    /// The disk as a listing shows it, mounted or not.
    [[nodiscard]] RamDisk disk() const;
    /// Removes the disk as a power failure does: with everything on it, and without a report.
    void loseDisk();

    void write(const std::string& name, std::string_view text) const;
    [[nodiscard]] std::string read(const std::string& name) const;

    /// Everything below the home folder: kind, mode, owner, and the content or where a link leads.
    [[nodiscard]] std::map<std::string, std::string> tree() const;

    /// A use case in this process. `observer` is called at every step, and before and after every save of the
    /// list.
    [[nodiscard]] FolderRedirectsUseCase useCase(StepObserver observer = {}) const;

    /// Runs `work` in a child that is killed at the step with this number, as the observer counts.
    /// @returns whether it was killed. A child that ends by itself has made all its steps.
    [[nodiscard]] bool runKilledAt(int step, const std::function<void(FolderRedirectsUseCase&)>& work) const;

    std::shared_ptr<HaltingCopier> copier = std::make_shared<HaltingCopier>();
    FolderRedirector::Parts parts;
    bool isMounted = true;
    /// What tools would read from the environment.
    std::map<std::string, std::string> variables;
    std::set<std::string> startupDisks;

private:
    ScratchFolder scratch_;
};

/// Throws at the step with this number, as a step that fails.
[[nodiscard]] StepObserver failingAt(int step, bool& hasFailed);

[[nodiscard]] RedirectTarget folderTarget(const std::string& path);
[[nodiscard]] RedirectTarget cacheTarget(KnownCache cache);

/// The texts that a user reads.
[[nodiscard]] std::vector<std::string> texts(const std::vector<RedirectFailure>& failures);

} // namespace ramdisk::test
