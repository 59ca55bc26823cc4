#pragma once

#include "RamDiskCore/Ports/Port.h"

#include <chrono>
#include <functional>

namespace ramdisk {

/// Runs pieces of work later, on threads of its own. A task handles its own errors and must not throw.
class TaskScheduling : public Port {
public:
    /// Runs `task` as soon as a thread is free.
    virtual void post(std::function<void()> task) = 0;
    /// Runs `task` as soon as a thread is free after `delay`. Until then it costs memory only.
    virtual void postAfter(std::chrono::milliseconds delay, std::function<void()> task) = 0;
};

} // namespace ramdisk
