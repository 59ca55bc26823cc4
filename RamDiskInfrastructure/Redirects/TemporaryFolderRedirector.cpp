#include "RamDiskInfrastructure/Redirects/TemporaryFolderRedirector.h"

#include <utility>

namespace ramdisk {

namespace {

constexpr const char* variable = "TMPDIR";

} // namespace

TemporaryFolderRedirector::TemporaryFolderRedirector(const std::shared_ptr<SessionEnvironment>& environment,
                                                     std::filesystem::path home, StepObserver observer)
    : SettingRedirector(
        {"variable", [environment] { return environment->value(variable); },
         [environment](const std::string& value) { environment->set(variable, value); },
         [environment](const std::optional<std::string>& former) { environment->restore(variable, former); }},
        std::move(home), std::move(observer)) {}

} // namespace ramdisk
