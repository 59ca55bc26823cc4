#pragma once

#include "RamDiskCore/Ports/CommandRunning.h"
#include "RamDiskInfrastructure/Redirects/SessionEnvironment.h"

#include <memory>
#include <string_view>

namespace ramdisk {

/// The environment that the user's service manager and the session bus give to programs that they start.
class SystemdUserEnvironment final : public SessionEnvironment {
public:
    /// Tools that are not installed are absent. Without systemctl nothing works. Without the bus's tool,
    /// programs that the bus starts keep their old environment.
    struct Tools {
        std::optional<std::filesystem::path> systemctl;
        std::optional<std::filesystem::path> dbusUpdate;
    };

    SystemdUserEnvironment(std::shared_ptr<CommandRunning> runner, Tools tools);

    [[nodiscard]] std::optional<std::string> value(const std::string& variable) override;
    void set(const std::string& variable, const std::string& value) override;
    void restore(const std::string& variable, const std::optional<std::string>& former) override;

private:
    CommandOutput systemctl(std::vector<std::string> arguments);
    void tellBus(const std::string& assignment);

    std::shared_ptr<CommandRunning> runner_;
    Tools tools_;
};

/// The value of one variable in the output of `systemctl show-environment`, which quotes like a shell.
[[nodiscard]] std::optional<std::string> valueInEnvironment(std::string_view environment,
                                                            std::string_view variable);

} // namespace ramdisk
