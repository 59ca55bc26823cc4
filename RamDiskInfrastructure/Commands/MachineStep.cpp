#include "RamDiskInfrastructure/Commands/MachineStep.h"

namespace ramdisk {

void perform(const std::vector<MachineStep>& steps, const StepObserver& observer) {
    for (const auto& step : steps) {
        if (observer) {
            observer(step.description);
        }
        step.perform();
    }
}

std::vector<std::string> descriptions(const std::vector<MachineStep>& steps) {
    std::vector<std::string> lines;
    lines.reserve(steps.size());
    for (const auto& step : steps) {
        lines.push_back(step.description);
    }
    return lines;
}

} // namespace ramdisk
