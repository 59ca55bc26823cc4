#include "RamDiskCore/Redirects/RedirectSession.h"

#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskCore/Redirects/RedirectConflicts.h"
#include "RamDiskCore/Values/ReasonText.h"

#include <algorithm>
#include <exception>
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

void RedirectSession::tidy(const FolderRedirect& redirect, const std::filesystem::path& mountPoint) noexcept {
    try {
        redirecting_.tidyOnDisk(redirect, mountPoint);
    } catch (const std::exception&) {
        traceCaught("redirects", "an empty folder stays on the disk");
    }
}

void RedirectSession::fail(const FolderRedirect& redirect, const std::exception& error) {
    auto failure = RedirectFailure::of(error, redirect);
    if (dynamic_cast<const FolderInUse*>(&error) != nullptr) {
        failure.kind = RedirectFailure::Kind::inUse;
    }
    // What hinders a redirect often hinders its undoing as well.
    const bool isTold = std::any_of(failures_.begin(), failures_.end(), [&](const RedirectFailure& told) {
        return told.redirect.id == redirect.id && told.message == failure.message;
    });
    if (!isTold) {
        failures_.push_back(std::move(failure));
    }
}

void RedirectSession::note(const FolderRedirect& redirect, std::string text) {
    failures_.push_back({redirect, std::move(text), RedirectFailure::Kind::note});
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

RedirectSession::Outcome RedirectSession::follow(FolderRedirect& redirect, const RedirectTarget& target,
                                                 const std::filesystem::path& mountPoint) {
    if (sameTarget(redirecting_, redirect.target, target)) {
        return Outcome::done;
    }
    try {
        const auto stays = redirecting_.moveOnDisk(redirect, target, mountPoint);
        const auto former = shownName(redirecting_.place(redirect.target));
        redirect.target = target;
        store();
        note(redirect, "“" + former + "” is back in its place, since its tool keeps its files in “"
                           + shownName(redirecting_.place(target)) + "” now. "
                           + (stays ? "Its files of before stay in “" + stays->string() + "”."
                                    : "Its files on “" + redirect.diskName + "” go there with it."));
        return Outcome::done;
    } catch (const std::exception& error) {
        fail(redirect, error);
        return Outcome::failed;
    }
}

RedirectSession::Outcome RedirectSession::change(FolderRedirect& redirect, const Steps& steps) {
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
        redirect.restoreState = steps(record);
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

RedirectSession::Outcome RedirectSession::apply(FolderRedirect& redirect,
                                                const std::filesystem::path& mountPoint,
                                                RedirectStart start) {
    return change(redirect, [&](const FolderRedirecting::Record& record) {
        if (start == RedirectStart::copyOfOriginal) {
            redirecting_.copyToDisk(redirect, mountPoint);
        }
        return redirecting_.apply(redirect, mountPoint, record);
    });
}

RedirectSession::Outcome RedirectSession::bringFiles(FolderRedirect& redirect,
                                                     const FolderRedirect& asRecorded,
                                                     const std::filesystem::path& mountPoint) {
    std::optional<std::filesystem::path> original;
    const auto outcome = change(redirect, [&](const FolderRedirecting::Record& record) {
        original = redirecting_.copyFromDisk(asRecorded, mountPoint, record);
        return std::optional<RedirectRestoreState>();
    });
    if (outcome == Outcome::done && original) {
        note(redirect, "The original is kept as “" + original->string() + "”.");
    }
    return outcome;
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

void RedirectSession::takeAway(const FolderRedirect& stray) {
    try {
        redirecting_.undo(stray, *stray.restoreState, force_);
        const auto place = redirecting_.place(stray.target);
        note(stray,
             "“" + shownName(place)
                 + (place.homeFolder
                        ? "” was still on a disk, although no redirect is stored for it. The original "
                          "is back."
                        : "” still led to a disk, although no redirect is stored for it. Its setting is "
                          "removed, since nobody knows what it was before."));
    } catch (const std::exception& error) {
        // No later start would know of it, so its disk has to stay.
        fail(stray, FolderInUse(reasonText(error)));
    }
}

void RedirectSession::takeBack(FolderRedirect& redirect) {
    try {
        if (redirect.restoreState) {
            if (auto notice = redirecting_.undo(redirect, *redirect.restoreState, force_)) {
                failures_.push_back({redirect, std::move(*notice)});
            }
        }
    } catch (const OriginalNotFound& error) {
        if (!givesUp_) {
            fail(redirect, error);
            return;
        }
    } catch (const FolderInUse& error) {
        // It is in place as before.
        redirect.applying.reset();
        store();
        fail(redirect, error);
        return;
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
