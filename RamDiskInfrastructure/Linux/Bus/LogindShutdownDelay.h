#pragma once

#include "RamDiskCore/Ports/ShutdownDelaying.h"
#include "RamDiskInfrastructure/Commands/FileDescriptor.h"

#include <memory>
#include <mutex>
#include <thread>

namespace ramdisk {

class MessageBus;

/// Delays shutdowns with a lock of logind. The administrator sets the limit (InhibitDelayMaxSec, 5 seconds by
/// default). After it logind goes on, even if somebody still holds the lock.
class LogindShutdownDelay final : public ShutdownDelaying {
public:
    /// @param limit how long logind may take to answer.
    explicit LogindShutdownDelay(std::chrono::milliseconds limit = std::chrono::seconds(5));
    ~LogindShutdownDelay() override;

    [[nodiscard]] ShutdownDelay start(Listener listener) override;
    void release() noexcept override;
    void stop() noexcept override;

private:
    void takeLock();
    void listen() noexcept;
    void heed(bool begins);

    std::chrono::milliseconds limit_;
    Listener listener_;
    std::unique_ptr<MessageBus> bus_; ///< The thread's own once there is one.
    FileDescriptor wake_;
    std::mutex mutex_;
    FileDescriptor lock_; ///< Guarded by the mutex.
    std::thread thread_;
};

} // namespace ramdisk
