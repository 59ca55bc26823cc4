#include "RamDiskInfrastructure/MacTools/AttachedImageListing.h"

#include "RamDiskCore/Values/RamDiskError.h"
#include "RamDiskInfrastructure/MacTools/ToolPaths.h"

namespace ramdisk {

namespace {

const SystemCommand& infoCommand() {
    static const SystemCommand command{toolPaths::hdiutil, {"info", "-plist"}, std::nullopt, 30.0};
    return command;
}

} // namespace

HDIUtilInfoParser::Info attachedImages(CommandRunning& runner) {
    return HDIUtilInfoParser::info(runner.runChecked(infoCommand()).standardOutput);
}

std::vector<AttachedRamImage> attachedRamImages(CommandRunning& runner) {
    try {
        return HDIUtilInfoParser::ramImages(runner.runChecked(infoCommand()).standardOutput);
    } catch (const std::exception& error) {
        throw RamDiskError(RamDiskError::InventoryUnavailable{error.what()});
    }
}

} // namespace ramdisk
