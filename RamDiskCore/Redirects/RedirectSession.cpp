#include "RamDiskCore/Redirects/RedirectSession.h"

#include "RamDiskCore/Redirects/RedirectConflicts.h"

#include <algorithm>
#include <string>
#include <utility>

namespace ramdisk {

std::vector<FolderRedirect*>
RedirectSession::where(const std::function<bool(const FolderRedirect&)>& condition) {
    std::vector<FolderRedirect*> found;
    for (auto& redirect : list_) {
        if (condition(redirect)) {
            found.push_back(&redirect);
        }
    }
    return found;
}

std::vector<FolderRedirect*>
RedirectSession::inReverse(const std::function<bool(const FolderRedirect&)>& condition) {
    auto found = where(condition);
    std::reverse(found.begin(), found.end());
    return found;
}

void RedirectSession::free(const FolderRedirect& asRecorded, const std::filesystem::path& mountPoint) {
    try {
        redirecting_.freeOnDisk(asRecorded, mountPoint);
    } catch (const std::exception& error) {
        fail(asRecorded, error);
    }
}

void RedirectSession::fail(const FolderRedirect& redirect, const std::exception& error) {
    if (const auto* const ours = dynamic_cast<const RamDiskError*>(&error)) {
        failures_.push_back({redirect, *ours});
    } else {
        failures_.push_back({redirect, std::string(error.what())});
    }
}

RedirectSession::Outcome RedirectSession::settle(FolderRedirect& redirect) {
    try {
        redirect.target = redirecting_.settled(redirect.target);
        return Outcome::done;
    } catch (const std::exception& error) {
        fail(redirect, error);
        return Outcome::failed;
    }
}

RedirectSession::Outcome RedirectSession::apply(FolderRedirect& redirect,
                                                const std::filesystem::path& mountPoint) {
    std::exception_ptr notStored;
    const auto record = [&](const RedirectRestoreState& state) {
        auto stored = std::exchange(redirect.restoreState, state);
        try {
            store();
        } catch (...) {
            // The old list stands, and the step that this was to undo is not made.
            redirect.restoreState = std::move(stored);
            notStored = std::current_exception();
            throw;
        }
    };
    redirect.applying = true;
    store();
    try {
        redirect.restoreState = redirecting_.apply(redirect, mountPoint, record);
    } catch (const std::exception& error) {
        if (!notStored) {
            fail(redirect, error);
        }
        takeBack(redirect);
        if (notStored) {
            std::rethrow_exception(notStored);
        }
        return Outcome::failed;
    }
    redirect.applying.reset();
    store();
    return Outcome::done;
}

RedirectSession::Outcome RedirectSession::undo(FolderRedirect& redirect) {
    if (!mayBeInPlace(redirect)) {
        return Outcome::done;
    }
    const auto before = redirect.applying;
    redirect.applying = true;
    if (before != redirect.applying) {
        store();
    }
    takeBack(redirect);
    return mayBeInPlace(redirect) ? Outcome::failed : Outcome::done;
}

void RedirectSession::takeBack(FolderRedirect& redirect) {
    try {
        if (redirect.restoreState) {
            if (auto notice = redirecting_.undo(redirect, *redirect.restoreState)) {
                failures_.push_back({redirect, std::move(*notice)});
            }
        }
    } catch (const OriginalNotFound& error) {
        if (!givesUp_) {
            fail(redirect, error);
            return;
        }
    } catch (const std::exception& error) {
        // It stays marked as half done, so that the next start tries again.
        fail(redirect, error);
        return;
    }
    redirect.restoreState.reset();
    redirect.applying.reset();
    store();
}

} // namespace ramdisk
