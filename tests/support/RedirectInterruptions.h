#pragma once

#include "tests/support/RedirectWorld.h"

#include <functional>
#include <string>

namespace ramdisk::test {

/// What a redirect is tried on.
struct RedirectScene {
    RedirectTarget target;
    /// Fills the home folder and sets the parts.
    std::function<void(RedirectWorld&)> prepare;
    /// What the redirect changes outside of the home folder, as text.
    std::function<std::string(const RedirectWorld&)> outside = [](const RedirectWorld&) {
        return std::string();
    };
};

/// Kills the process at, and fails, every single step of putting the redirect in place, of taking it away,
/// and of repairing the latter, with the disk still there and with the disk gone. Each time the next start
/// has to bring back everything as it was, and say nothing.
void expectEveryInterruptionIsRepaired(const RedirectScene& scene);

} // namespace ramdisk::test
