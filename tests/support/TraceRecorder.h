#pragma once

#include "RamDiskCore/Ports/Tracing.h"
#include "tests/support/Testing.h"

namespace ramdisk::test {

/// Keeps what this process traces. Listens from its first use on, for good.
class TraceRecorder final : public TraceObserving {
public:
    static TraceRecorder& shared() {
        static auto* const recorder = [] {
            auto* const made = new TraceRecorder;
            installTraceObserver(*made);
            return made;
        }();
        return *recorder;
    }

    void note(std::string_view subject, std::string_view text) noexcept override {
        const std::lock_guard lock(mutex_);
        text_.append(subject).append(": ").append(text).append("\n");
    }

    /// Everything since the last time.
    [[nodiscard]] std::string take() {
        const std::lock_guard lock(mutex_);
        return std::exchange(text_, {});
    }

private:
    std::mutex mutex_;
    std::string text_;
};

} // namespace ramdisk::test
