#include "RamDiskInfrastructure/Commands/ProcessCommandRunner.h"

#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskInfrastructure/Commands/ChildPlatform.h"
#include "RamDiskInfrastructure/Commands/ChildProcess.h"
#include "RamDiskInfrastructure/Commands/PipeCollector.h"
#include "RamDiskInfrastructure/Commands/Watchdog.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <limits>
#include <string_view>
#include <system_error>

#include <poll.h>

namespace ramdisk {

namespace {

using Clock = Watchdog::Clock;
using TimePoint = Watchdog::TimePoint;

/// How long descendants may go on writing after a child without a time limit.
constexpr std::chrono::seconds drainTime{2};
/// How often a child is looked at where the system does not tell of its end.
constexpr std::chrono::milliseconds firstLook{1};
constexpr std::chrono::milliseconds slowestLook{20};

/// The child's input, written from the command's own bytes. Errors are ignored: a child may end without
/// having read it all.
class InputFeed {
public:
    explicit InputFeed(const std::optional<std::string>& bytes) {
        if (bytes) {
            left_ = *bytes;
            pipe_ = makePipe();
            prepareForWriting(pipe_.writingEnd);
        }
    }

    /// For the child; must be closed here once it has it.
    [[nodiscard]] FileDescriptor& readingEnd() noexcept { return pipe_.readingEnd; }
    [[nodiscard]] int descriptor() const noexcept { return pipe_.writingEnd.get(); }
    [[nodiscard]] bool isFinished() const noexcept { return !pipe_.writingEnd; }

    void write() noexcept {
        while (!left_.empty()) {
            const auto written = writeWithoutSignal(pipe_.writingEnd, left_);
            if (written >= 0) {
                left_.remove_prefix(static_cast<std::size_t>(written));
            } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
                return;
            } else if (errno != EINTR) {
                break;
            }
        }
        pipe_.writingEnd.reset();
    }

private:
    std::string_view left_;
    Pipe pipe_;
};

/// One command from its start to its end.
class CommandRun {
public:
    explicit CommandRun(const SystemCommand& command)
        : command_(command),
          input_(command.standardInput),
          child_(command, {command.standardInput ? std::optional(input_.readingEnd().get()) : std::nullopt,
                           output_.writingEnd().get(), error_.writingEnd().get()}),
          watchdog_(command.timeout, Clock::now()) {
        input_.readingEnd().reset();
        output_.writingEnd().reset();
        error_.writingEnd().reset();
    }

    CommandOutput finish() {
        input_.write();
        waitForChild();
        watchdog_.stop();
        if (watchdog_.didFire()) {
            throw CommandTimeout({command_.executable, command_.arguments, std::nullopt, command_.timeout});
        }
        drain();
        auto output = child_.ending();
        output.standardOutput = output_.takeData();
        output.standardError = error_.takeData();
        return output;
    }

private:
    void waitForChild() {
        auto look = firstLook;
        while (!child_.isReaped()) {
            auto deadline = watchdog_.nextDeadline();
            if (!deadline && areStreamsFinished() && input_.isFinished()) {
                child_.reap();
                return;
            }
            if (const auto now = Clock::now(); !child_.exitDescriptor()) {
                deadline = std::min(deadline.value_or(TimePoint::max()), now + look);
                look = std::min(2 * look, slowestLook);
            }
            if (exchange(deadline, child_.exitDescriptor().get(), input_.descriptor())) {
                child_.reap();
            } else if (!child_.exitDescriptor()) {
                child_.tryReap();
            }
            signalIfDue();
        }
    }

    /// A child that ended in time is never signalled, even when nobody looked until now.
    void signalIfDue() {
        const auto deadline = watchdog_.nextDeadline();
        if (!deadline || Clock::now() < *deadline || child_.tryReap()) {
            return;
        }
        if (const auto due = watchdog_.takeDueSignal(Clock::now())) {
            trace("commands", [&] {
                return fmt::format("{} is not done in {} seconds and gets signal {}", command_.toolName(),
                                   command_.timeout.value_or(0), *due);
            });
            child_.signal(*due);
        }
    }

    void drain() {
        const auto deadline = watchdog_.limit().value_or(Clock::now() + drainTime);
        while (!areStreamsFinished() && Clock::now() < deadline) {
            exchange(deadline, -1, -1);
        }
        output_.readWaiting();
        error_.readWaiting();
    }

    [[nodiscard]] bool areStreamsFinished() const { return output_.isFinished() && error_.isFinished(); }

    /// Waits until something can be moved or the deadline has come, and moves it.
    /// @returns whether the exit descriptor has something to say.
    bool exchange(std::optional<TimePoint> deadline, int exit, int input) {
        std::array<pollfd, 4> watched{{{output_.descriptor(), POLLIN, 0},
                                       {error_.descriptor(), POLLIN, 0},
                                       {input, POLLOUT, 0},
                                       {exit, POLLIN, 0}}};
        if (::poll(watched.data(), watched.size(), millisecondsUntil(deadline)) < 0) {
            if (errno == EINTR) {
                return false;
            }
            throw std::system_error(errno, std::generic_category(), "could not wait for a command");
        }
        if (watched[0].revents != 0) {
            output_.read();
        }
        if (watched[1].revents != 0) {
            error_.read();
        }
        if (watched[2].revents != 0) {
            input_.write();
        }
        return watched[3].revents != 0;
    }

    /// For `poll`, which takes any negative number as no limit.
    static int millisecondsUntil(std::optional<TimePoint> deadline) {
        if (!deadline) {
            return -1;
        }
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(*deadline - Clock::now()).count();
        using Left = decltype(left);
        return static_cast<int>(std::clamp(left, Left{0}, Left{std::numeric_limits<int>::max()}));
    }

    const SystemCommand& command_;
    InputFeed input_;
    PipeCollector output_;
    PipeCollector error_;
    ChildProcess child_;
    Watchdog watchdog_;
};

} // namespace

CommandOutput ProcessCommandRunner::run(const SystemCommand& command) {
    const auto start = Clock::now();
    try {
        auto output = CommandRun(command).finish();
        trace("commands", [&] {
            const auto taken = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
            return fmt::format("{}: exit status {} in {:.1f} ms", command.description(), output.exitCode,
                               taken);
        });
        return output;
    } catch (const std::exception& error) {
        trace("commands", [&] { return fmt::format("{}: {}", command.description(), error.what()); });
        throw;
    }
}

} // namespace ramdisk
