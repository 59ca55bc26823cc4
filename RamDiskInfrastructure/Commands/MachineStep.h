#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace ramdisk {

/// One change to the machine, with a description that can be shown before it is made.
struct MachineStep {
    std::string description;
    std::function<void()> perform;
};

/// Told before each step; may throw to make that step fail. For tests that fail or kill at every step.
using StepObserver = std::function<void(std::string_view description)>;

/// Performs the steps in order; the first that throws ends the run.
void perform(const std::vector<MachineStep>& steps, const StepObserver& observer);

/// What the steps would do, one a line.
[[nodiscard]] std::vector<std::string> descriptions(const std::vector<MachineStep>& steps);

} // namespace ramdisk
