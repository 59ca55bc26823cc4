#pragma once

#include "tests/support/RedirectWorld.h"

namespace ramdisk::test {

/// What a redirect is tested with.
struct RedirectScene {
    RedirectTarget target;
    /// Fills the home folder and sets the parts.
    std::function<void(RedirectWorld&)> prepare;
    /// What the redirect changes outside the home folder, as text.
    std::function<std::string(const RedirectWorld&)> outside = [](const RedirectWorld&) {
        return std::string();
    };
    RedirectStart start = RedirectStart::empty;
};

/// Interrupts the work at every single step, once by killing the process and once by a failure: putting the
/// redirect in place, undoing it, and repairing an interrupted undo. Does so with the disk still there and
/// with the disk gone. Each time the next start must restore everything as it was and report nothing.
void expectEveryInterruptionIsRepaired(const RedirectScene& scene);

/// Kills the removal of the redirect at every single step, with the files on the disk deleted and with them
/// kept. Nothing is lost, and the removal can be done again. For folders.
void expectEveryInterruptedRemovalIsRepaired(const RedirectScene& scene);

} // namespace ramdisk::test
