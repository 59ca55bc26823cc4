#include "RamDiskInfrastructure/Linux/Redirects/SystemdUserEnvironment.h"

#include "RamDiskCore/Ports/Tracing.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace ramdisk {

namespace {

constexpr double timeLimit = 15;
/// What a program without TMPDIR uses.
constexpr const char* usualTemporaryFolder = "/tmp";

char unescaped(char letter) {
    switch (letter) {
    case 'n':
        return '\n';
    case 't':
        return '\t';
    case 'r':
        return '\r';
    default:
        return letter;
    }
}

/// Takes $'…', "…" and bare text; all three know the backslash.
std::string unquoted(std::string_view text) {
    if (text.starts_with("$'") && text.ends_with('\'') && text.size() > 2) {
        text = text.substr(2, text.size() - 3);
    } else if (text.size() > 1 && text.starts_with('"') && text.ends_with('"')) {
        text = text.substr(1, text.size() - 2);
    }
    std::string value;
    for (std::size_t index = 0; index < text.size(); ++index) {
        if (text[index] == '\\' && index + 1 < text.size()) {
            value += unescaped(text[++index]);
        } else {
            value += text[index];
        }
    }
    return value;
}

} // namespace

std::optional<std::string> valueInEnvironment(std::string_view environment, std::string_view variable) {
    while (!environment.empty()) {
        const auto line = environment.substr(0, environment.find('\n'));
        environment.remove_prefix(std::min(line.size() + 1, environment.size()));
        if (line.size() > variable.size() && line.starts_with(variable) && line[variable.size()] == '=') {
            return unquoted(line.substr(variable.size() + 1));
        }
    }
    return std::nullopt;
}

SystemdUserEnvironment::SystemdUserEnvironment(std::shared_ptr<CommandRunning> runner, Tools tools)
    : runner_(std::move(runner)),
      tools_(std::move(tools)) {}

CommandOutput SystemdUserEnvironment::systemctl(std::vector<std::string> arguments) {
    constexpr const char* noManager =
        "No service manager of this session can give new programs another temporary folder: ";
    if (!tools_.systemctl) {
        throw std::runtime_error(std::string(noManager) + "systemctl is not installed");
    }
    arguments.insert(arguments.begin(), "--user");
    try {
        return runner_->runChecked({*tools_.systemctl, std::move(arguments), std::nullopt, timeLimit});
    } catch (const CommandFailure& failure) {
        throw std::runtime_error(noManager + failure.output().summary());
    }
}

void SystemdUserEnvironment::tellBus(const std::string& assignment) {
    if (!tools_.dbusUpdate) {
        return;
    }
    try {
        // Its exit status says nothing, and a session without a bus has nothing that it could start.
        [[maybe_unused]] const auto output =
            runner_->run({*tools_.dbusUpdate, {assignment}, std::nullopt, timeLimit});
    } catch (const std::exception&) {
        traceCaught("redirects", "what the bus starts keeps its environment");
    }
}

std::optional<std::string> SystemdUserEnvironment::value(const std::string& variable) {
    return valueInEnvironment(systemctl({"show-environment"}).standardOutput, variable);
}

// `value` reads what the manager has, so the manager is the first to hear of a new value and the last to hear
// of the former one: whatever was interrupted in between shows, and is undone.

void SystemdUserEnvironment::set(const std::string& variable, const std::string& value) {
    systemctl({"set-environment", variable + "=" + value});
    tellBus(variable + "=" + value);
}

void SystemdUserEnvironment::restore(const std::string& variable, const std::optional<std::string>& former) {
    // The bus cannot forget a variable.
    tellBus(variable + "=" + former.value_or(usualTemporaryFolder));
    if (former) {
        systemctl({"set-environment", variable + "=" + *former});
    } else {
        systemctl({"unset-environment", variable});
    }
}

} // namespace ramdisk
