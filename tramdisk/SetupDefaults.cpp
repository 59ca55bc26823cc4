#include "tramdisk/SetupDefaults.h"

#include "RamDiskCore/Validation/VolumeNameSuggester.h"
#include "tramdisk/UsageError.h"

#include <fmt/format.h>

#include <exception>
#include <optional>
#include <string>
#include <vector>

namespace ramdisk::cli {

namespace {

RamDiskSetup baseSetup(const std::optional<std::string>& templateTitle, const CommandContext& context) {
    if (templateTitle) {
        return context.session.templates->named(*templateTitle).setup;
    }
    try {
        context.stores.defaults->requireReadable();
    } catch (const std::exception& error) {
        context.console.warn(fmt::format("{} Until then, the defaults count.", error.what()));
    }
    const auto preferences = context.stores.preferences->load();
    RamDiskSetup setup;
    setup.specification.size = preferences.defaultSize;
    setup.specification.fileSystem = preferences.defaultFileSystem;
    setup.specification.access = preferences.newDiskAccess;
    setup.specification.isEncrypted = preferences.isEncryptionEnabledByDefault;
    setup.specification.isIndexingEnabled = preferences.isIndexingEnabledByDefault;
    return setup;
}

std::string freeName(const std::string& base, const CommandContext& context) {
    const auto now = context.services.validationContext.current();
    std::vector<std::string> taken(now.mountedVolumeNames.begin(), now.mountedVolumeNames.end());
    taken.insert(taken.end(), now.startupDiskNames.begin(), now.startupDiskNames.end());
    return VolumeNameSuggester::suggest(base, taken);
}

template <typename Value>
void append(std::vector<Value>& list, const std::vector<Value>& more) {
    list.insert(list.end(), more.begin(), more.end());
}

} // namespace

RamDiskSetup setupFrom(const SetupOptions& options, const CommandContext& context) {
    auto setup = baseSetup(options.templateTitle, context);
    auto& specification = setup.specification;
    specification.name = options.name ? *options.name : freeName(specification.name, context);
    specification.size = options.size.value_or(specification.size);
    specification.fileSystem = options.fileSystem.value_or(specification.fileSystem);
    specification.access = options.access.value_or(specification.access);
    specification.isEncrypted = options.isEncrypted.value_or(specification.isEncrypted);
    specification.isIndexingEnabled = options.isIndexingEnabled.value_or(specification.isIndexingEnabled);
    setup.createsAtLaunch = options.createsAtLaunch.value_or(setup.createsAtLaunch);
    setup.keepsFiles = options.keepsFiles.value_or(setup.keepsFiles && setup.createsAtLaunch);
    if (options.seedFolder) {
        setup.seedFolder = options.seedFolder;
    }
    append(setup.folders, options.folders);
    append(setup.redirects, options.redirects);
    if (setup.keepsFiles && !setup.createsAtLaunch) {
        throw UsageError(
            "Only a disk that is made at launch keeps its files: give --at-launch with --keep-files.");
    }
    return setup;
}

} // namespace ramdisk::cli
