#pragma once

#include "tests/support/RedirectWorld.h"

#include <functional>
#include <string>

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
};

/// Interrupts the work at every single step, once by killing the process and once by a failure: putting the
/// redirect in place, undoing it, and repairing an interrupted undo. Does so with the disk still there and
/// with the disk gone. Each time the next start must restore everything as it was and report nothing.
void expectEveryInterruptionIsRepaired(const RedirectScene& scene);

} // namespace ramdisk::test
