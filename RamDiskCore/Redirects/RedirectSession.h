#pragma once

#include "RamDiskCore/Ports/FolderRedirecting.h"
#include "RamDiskCore/Ports/RedirectRepository.h"
#include "RamDiskCore/Redirects/RedirectFailure.h"

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
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

    /// Pointers to the redirects in the list that fulfil the condition. Valid until something is added or
    /// removed.
    [[nodiscard]] std::vector<FolderRedirect*>
    where(const std::function<bool(const FolderRedirect&)>& condition);

    /// The same, the last one first: one that was put in place through another is undone before it.
    [[nodiscard]] std::vector<FolderRedirect*>
    inReverse(const std::function<bool(const FolderRedirect&)>& condition);

    /// Removes the folder of an undone redirect from its disk.
    void free(const FolderRedirect& asRecorded, const std::filesystem::path& mountPoint);

    /// The same, only if the folder holds nothing.
    void tidy(const FolderRedirect& redirect, const std::filesystem::path& mountPoint) noexcept;

    /// Gives the redirect the place that its tool uses now. Nothing of it may be in place.
    Outcome settle(FolderRedirect& redirect);

    /// Lets an undone redirect follow its tool to the place `target`, with its files on the disk. Tells it.
    Outcome follow(FolderRedirect& redirect, const RedirectTarget& target,
                   const std::filesystem::path& mountPoint);

    /// Puts a redirect of the list in place. On failure it is undone.
    Outcome apply(FolderRedirect& redirect, const std::filesystem::path& mountPoint,
                  RedirectStart start = RedirectStart::empty);

    /// Brings the files of an undone redirect, which was as recorded, into the place of its original, and
    /// tells where that is kept. On failure the original is back.
    Outcome bringFiles(FolderRedirect& redirect, const FolderRedirect& asRecorded,
                       const std::filesystem::path& mountPoint);

    /// Undoes a redirect of the list. Does nothing when nothing of it is in place.
    Outcome undo(FolderRedirect& redirect);

    /// Undoes what no list tells of, and tells it.
    void takeAway(const FolderRedirect& stray);

    /// From now on a redirect whose original is not found counts as undone.
    void giveUpLostOriginals() noexcept { givesUp_ = true; }

    /// From now on a folder is taken out of its place even if a program uses it.
    void useForce() noexcept { force_ = Force::yes; }

    /// Notes what went wrong with a redirect, once.
    void fail(const FolderRedirect& redirect, const std::exception& error);

    /// Notes what belongs to a success.
    void note(const FolderRedirect& redirect, std::string text);

    void store() { repository_.save(list_); }

private:
    using Steps = std::function<std::optional<RedirectRestoreState>(const FolderRedirecting::Record&)>;
    Outcome change(FolderRedirect& redirect, const Steps& steps);
    /// Brings the original back and clears what was recorded of it.
    void takeBack(FolderRedirect& redirect);

    RedirectRepository& repository_;
    FolderRedirecting& redirecting_;
    RedirectRepository::List list_;
    std::vector<RedirectFailure> failures_;
    bool givesUp_ = false;
    Force force_ = Force::no;
};

} // namespace ramdisk
