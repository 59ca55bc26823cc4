#include "RamDiskInfrastructure/MacTools/LaunchdEnvironment.h"

#include "RamDiskInfrastructure/MacTools/ToolPaths.h"

#include <utility>
#include <vector>

namespace ramdisk {

namespace {

constexpr double timeLimit = 15;

SystemCommand launchctl(std::vector<std::string> arguments) {
    return {toolPaths::launchctl, std::move(arguments), std::nullopt, timeLimit};
}

} // namespace

LaunchdEnvironment::LaunchdEnvironment(std::shared_ptr<CommandRunning> runner) : runner_(std::move(runner)) {}

std::optional<std::string> LaunchdEnvironment::value(const std::string& variable) {
    // A variable that is not set is no output, with one exit status or another.
    auto text = runner_->run(launchctl({"getenv", variable})).standardOutput;
    if (text.ends_with('\n')) {
        text.pop_back();
    }
    return text.empty() ? std::nullopt : std::optional(std::move(text));
}

void LaunchdEnvironment::set(const std::string& variable, const std::string& value) {
    runner_->runChecked(launchctl({"setenv", variable, value}));
}

void LaunchdEnvironment::restore(const std::string& variable, const std::optional<std::string>& former) {
    runner_->runChecked(former ? launchctl({"setenv", variable, *former})
                               : launchctl({"unsetenv", variable}));
}

} // namespace ramdisk
