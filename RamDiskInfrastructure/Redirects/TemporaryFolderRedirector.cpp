#include "RamDiskInfrastructure/Redirects/TemporaryFolderRedirector.h"

#include <utility>

namespace ramdisk {

namespace {

constexpr const char* variable = "TMPDIR";

RedirectSetting temporaryFolderIn(const std::shared_ptr<SessionEnvironment>& environment) {
    if (!environment) {
        return {"variable", {}, {}, {}};
    }
    return {
        "variable", [environment] { return environment->value(variable); },
        [environment](const std::string& value) { environment->set(variable, value); },
        [environment](const std::optional<std::string>& former) { environment->restore(variable, former); }};
}

} // namespace

TemporaryFolderRedirector::TemporaryFolderRedirector(const std::shared_ptr<SessionEnvironment>& environment,
                                                     std::filesystem::path home, StepObserver observer)
    : SettingRedirector(temporaryFolderIn(environment), std::move(home), std::move(observer)) {}

} // namespace ramdisk
