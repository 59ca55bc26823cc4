#pragma once

#include "RamDiskCore/Ports/FolderRedirecting.h"
#include "RamDiskCore/Ports/RedirectRepository.h"
#include "RamDiskCore/Redirects/RedirectFailure.h"

#include <exception>
#include <filesystem>
#include <functional>
#include <vector>

namespace ramdisk {

/// One piece of work on the list of redirects, done inside an `update` of the repository. Each change is
/// stored before the step that needs it, so the stored list is never behind the machine.
class RedirectSession {
public:
    enum class Outcome { done, failed };

    RedirectSession(RedirectRepository& repository, FolderRedirecting& redirecting)
        : repository_(repository),
          redirecting_(redirecting),
          list_(repository.load()) {}

    [[nodiscard]] RedirectRepository::List& list() noexcept { return list_; }
    [[nodiscard]] const FolderRedirecting& redirecting() const noexcept { return redirecting_; }
    [[nodiscard]] std::vector<RedirectFailure>& failures() noexcept { return failures_; }

    /// The places in the list of those that fulfil the condition. Valid until something is added or removed.
    [[nodiscard]] std::vector<FolderRedirect*>
    where(const std::function<bool(const FolderRedirect&)>& condition);

    /// Puts an element of the list in place; on failure takes back what was done of it.
    Outcome apply(FolderRedirect& redirect, const std::filesystem::path& mountPoint);

    /// Takes an element of the list away; does nothing when nothing of it is in place.
    Outcome undo(FolderRedirect& redirect);

    /// Tells what went wrong with a redirect.
    void fail(const FolderRedirect& redirect, const std::exception& error);

    void store() { repository_.save(list_); }

private:
    /// Brings the original back and clears the record of it, without a word of what went wrong before.
    void takeBack(FolderRedirect& redirect);

    RedirectRepository& repository_;
    FolderRedirecting& redirecting_;
    RedirectRepository::List list_;
    std::vector<RedirectFailure> failures_;
};

} // namespace ramdisk
