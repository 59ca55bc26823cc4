#pragma once

#include "RamDiskCore/Ports/ShutdownDelaying.h"

namespace ramdisk {

/// No delay: before macOS shuts down it asks only applications. A command gets SIGTERM and little time.
class CommandShutdownDelay final : public ShutdownDelaying {
public:
    [[nodiscard]] ShutdownDelay start(Listener /*listener*/) override {
        return ShutdownNotDelayed{
            "A shutdown does not wait until files are saved, since macOS only waits for applications."};
    }
    void release() noexcept override {}
    void stop() noexcept override {}
};

} // namespace ramdisk
