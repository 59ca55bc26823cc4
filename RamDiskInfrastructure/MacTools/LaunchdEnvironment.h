#pragma once

#include "RamDiskCore/Ports/CommandRunning.h"
#include "RamDiskInfrastructure/Redirects/SessionEnvironment.h"

#include <memory>

namespace ramdisk {

/// The environment that launchd gives to the apps it opens.
class LaunchdEnvironment final : public SessionEnvironment {
public:
    explicit LaunchdEnvironment(std::shared_ptr<CommandRunning> runner);

    [[nodiscard]] std::optional<std::string> value(const std::string& variable) override;
    void set(const std::string& variable, const std::string& value) override;
    void restore(const std::string& variable, const std::optional<std::string>& former) override;

private:
    std::shared_ptr<CommandRunning> runner_;
};

} // namespace ramdisk
