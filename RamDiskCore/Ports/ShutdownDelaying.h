#pragma once

#include "RamDiskCore/Ports/Port.h"

#include <chrono>
#include <functional>
#include <string>
#include <variant>

namespace ramdisk {

/// What is known of a shutdown of the machine.
enum class ShutdownNotice {
    /// It has begun, and waits for whoever delays it.
    begun,
    /// It was called off after all.
    calledOff,
};

/// The machine's shutdown now waits for this process, though never longer than `limit`.
struct ShutdownDelayed {
    std::chrono::microseconds limit{};
    friend bool operator==(const ShutdownDelayed&, const ShutdownDelayed&) = default;
};

/// Nothing here can delay a shutdown; `reason` is a sentence for the user.
struct ShutdownNotDelayed {
    std::string reason;
    friend bool operator==(const ShutdownNotDelayed&, const ShutdownNotDelayed&) = default;
};

using ShutdownDelay = std::variant<ShutdownDelayed, ShutdownNotDelayed>;

/// Keeps the machine from shutting down before files are saved.
///
/// The delay ends with `release`, with the object, and with the process, whatever ends it: a crash never
/// holds up a shutdown.
class ShutdownDelaying : public Port {
public:
    using Listener = std::function<void(ShutdownNotice)>;

    /// Delays shutdowns from now on; to be called once. `listener` is called on a thread of this object's,
    /// must be quick and must not throw, and is never called again once `stop` has returned.
    [[nodiscard]] virtual ShutdownDelay start(Listener listener) = 0;

    /// Lets a shutdown go on: what had to be saved is saved. A shutdown that is then called off is followed
    /// by a delay of the next one.
    virtual void release() noexcept = 0;

    /// Releases, and listens no longer. Not to be called by the listener.
    virtual void stop() noexcept = 0;
};

} // namespace ramdisk
