#include "RamDiskCore/Ports/CommandRunning.h"

#include <utility>

namespace ramdisk {

CommandOutput CommandRunning::runChecked(const SystemCommand& command) {
    auto output = run(command);
    if (output.exitCode != 0 || output.signal) {
        throw CommandFailure(command, std::move(output));
    }
    return output;
}

} // namespace ramdisk
