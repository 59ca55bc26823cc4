#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskInfrastructure/Stores/RunningSession.h"
#include "RamDiskUI/SessionText.h"
#include "tramdisk/KeptDisks.h"
#include "tramdisk/ListJSON.h"
#include "tramdisk/ProgressLine.h"
#include "tramdisk/RedirectTargetText.h"
#include "tramdisk/SessionSignals.h"
#include "tramdisk/Subcommand.h"
#include "tramdisk/TracePrinter.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <stdexcept>

namespace ramdisk::cli {

namespace {

constexpr std::chrono::minutes trimmingInterval{10};

LaunchReport launch(const CommandContext& context) {
    auto report = [&] {
        ProgressLine progress(context.console.options(), "Filling");
        return context.session.lifecycle->launch(progress.observer());
    }();
    tellRedirectFailures(report.redirectFailures, context);
    bool isTitleTold = false;
    if (!report.isListReadable || report.notUnderstood > 0) {
        context.console.fail(launchAttentionTitle);
        isTitleTold = true;
    }
    if (!report.isListReadable) {
        context.console.fail(unreadableListText);
    }
    tellNotUnderstood(report.notUnderstood, "startup disk", context);
    for (const auto& outcome : report.outcomes) {
        if (!outcome.needsAttention()) {
            context.console.confirm(outcomeText(outcome));
            continue;
        }
        if (!isTitleTold) {
            context.console.fail(launchAttentionTitle);
            isTitleTold = true;
        }
        context.console.fail(outcomeText(outcome));
        if (const auto* failed = std::get_if<StartupOutcome::RestoreFailed>(&outcome.value)) {
            context.console.hint(unrestoredHint(failed->disk.name));
        }
    }
    return report;
}

void trimDisks(const CommandContext& context) {
    try {
        for (const auto& disk : context.services.list->listOwn()) {
            context.services.memoryTrimming->trim(disk);
        }
    } catch (const std::exception&) {
        // The list could not be read just now; the next time will do.
        traceCaught("trim", "put off to the next time");
    }
}

/// Puts folders back whose disk somebody unmounted, and tells it. What stays as it was is told once.
void leaveLostDisks(std::vector<RedirectFailure>& told, const CommandContext& context) {
    std::vector<FolderRedirect> before;
    std::vector<FolderRedirect> after;
    try {
        before = context.session.redirects->list();
        auto failures = context.session.redirects->undoLost();
        std::erase_if(failures, [&told](const RedirectFailure& failure) {
            return std::find(told.begin(), told.end(), failure) != told.end();
        });
        tellRedirectFailures(failures, context);
        told.insert(told.end(), failures.begin(), failures.end());
        after = context.session.redirects->list();
    } catch (const std::exception&) {
        traceCaught("redirects", "what a change of mounts asks for is put off to the next one");
        return;
    }
    for (const auto& former : before) {
        const bool isUndone = std::any_of(after.begin(), after.end(), [&](const FolderRedirect& redirect) {
            return redirect.id == former.id && !redirect.restoreState;
        });
        if (former.restoreState && isUndone) {
            context.console.warn(fmt::format("“{}” is gone. {} is back in its place.", former.diskName,
                                             targetText(former.target)));
        }
    }
    static_cast<void>(std::fflush(stdout));
}

/// Tells the disks that somebody unmounted although they were to keep their files.
void tellLostDisks(std::vector<LostDisk>& told, const CommandContext& context) {
    try {
        for (auto& disk : context.session.lifecycle->noticeLostDisks()) {
            context.console.fail(lostText(disk));
            told.push_back(std::move(disk));
        }
    } catch (const std::exception&) {
        traceCaught("session", "whether a disk was lost is put off to the next look");
    }
}

/// Until it is asked to end. Meanwhile deleted files give their memory back now and then, and a disk that
/// goes takes no folder with it.
std::vector<LostDisk> waitForEnd(SessionSignals& signals, const CommandContext& context) {
    std::vector<LostDisk> lost;
    std::vector<RedirectFailure> toldOfRedirects;
    tellLostDisks(lost, context);
    using Clock = std::chrono::steady_clock;
    auto nextTrim = Clock::now() + trimmingInterval;
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(nextTrim - Clock::now());
        const auto event = signals.wait(std::max(left, std::chrono::milliseconds{0}));
        tellLostDisks(lost, context);
        if (event == SessionEvent::endRequested) {
            return lost;
        }
        if (event == SessionEvent::mountsChanged) {
            leaveLostDisks(toldOfRedirects, context);
        }
        if (Clock::now() >= nextTrim) {
            trimDisks(context);
            nextTrim = Clock::now() + trimmingInterval;
        }
    }
}

/// Watches for disks that go while the session runs, where that is possible.
class MountWatch {
public:
    explicit MountWatch(const CommandContext& context) : watching_(context.platform.mountWatching) {
        try {
            if (watching_) {
                watching_->start([] { SessionSignals::noteMounts(); });
            }
        } catch (const std::exception& error) {
            context.console.note(error.what());
        }
    }
    MountWatch(const MountWatch&) = delete;
    MountWatch& operator=(const MountWatch&) = delete;
    ~MountWatch() {
        if (watching_) {
            watching_->stop();
        }
    }

private:
    std::shared_ptr<MountWatching> watching_;
};

ShutdownReport quit(const CommandContext& context) {
    auto report = [&] {
        ProgressLine progress(context.console.options(), "Saving");
        return context.session.lifecycle->quit(Force::no, progress.observer());
    }();
    for (const auto& disk : report.ejected) {
        context.console.confirm(fmt::format("“{}” is ejected.", disk.name));
    }
    if (report.needsAttention()) {
        context.console.fail(quitAttentionTitle);
        for (const auto& line : attentionLines(report)) {
            context.console.fail(line);
        }
        for (const auto& failure : report.saveFailures) {
            if (const auto hint = savingHint(failure.ramDisk.name, failure.error)) {
                context.console.hint(*hint);
            }
        }
    }
    return report;
}

Json documentOf(const LaunchReport& launched, const std::vector<LostDisk>& lost,
                const ShutdownReport& report) {
    auto told = Json::array();
    for (const auto& disk : lost) {
        told.push_back({{"name", disk.name}, {"text", lostText(disk)}});
    }
    return {{"launch", listJSON(launched.outcomes)},
            {"lost", std::move(told)},
            {"redirectFailures", listJSON(launched.redirectFailures)},
            {"shutdown", toJSON(report)}};
}

/// Has the machine wait for us, as long as it does.
void delayShutdown(ShutdownDelaying& delay, const CommandContext& context) {
    const auto outcome = delay.start([](ShutdownNotice notice) {
        if (notice == ShutdownNotice::begun) {
            SessionSignals::request();
        }
    });
    if (const auto* delayed = std::get_if<ShutdownDelayed>(&outcome)) {
        const auto seconds = std::chrono::duration<double>(delayed->limit).count();
        context.console.note(fmt::format(
            "A shutdown of the machine waits up to {:g} seconds for files to be saved.", seconds));
    } else {
        context.console.note(std::get<ShutdownNotDelayed>(outcome).reason);
    }
}

struct SessionRunCommand {
    ExitStatus run(const CommandContext& context) const {
        installSessionTracePrinter(context.console.options());
        const auto session = RunningSession::begin(context.stores.applicationSupport);
        if (!session) {
            const auto other = RunningSession::find(context.stores.applicationSupport);
            throw std::runtime_error(
                fmt::format("A session is already running (process {}).", other ? other->processID : 0));
        }
        // Before the first disk is made, so that none is left standing.
        SessionSignals signals;
        auto& delay = *context.platform.shutdownDelay;
        delayShutdown(delay, context);
        const auto launched = launch(context);
        session->tell(SessionPhase::running);
        context.console.confirm("Running; ends on SIGTERM or SIGINT.");
        static_cast<void>(std::fflush(stdout));
        const auto lost = [&] {
            const MountWatch watch(context);
            return waitForEnd(signals, context);
        }();
        session->tell(SessionPhase::quitting);
        const bool isListReadable = context.session.profiles->isReadable();
        const auto report = quit(context);
        if (!isListReadable) {
            // The next launch makes no disk from it.
            context.console.fail(unreadableListText);
        }
        delay.stop();
        if (context.console.wantsJSON()) {
            context.console.printDocument(compactText(documentOf(launched, lost, report)));
        }
        const bool isWell =
            !launched.needsAttention() && lost.empty() && !report.needsAttention() && isListReadable;
        return isWell ? succeeded : failed;
    }
};

struct SessionStatusCommand {
    ExitStatus run(const CommandContext& context) const {
        const auto state = RunningSession::find(context.stores.applicationSupport);
        if (context.console.wantsJSON()) {
            Json json{{"isRunning", state.has_value()}};
            if (state) {
                json["processID"] = state->processID;
                json["phase"] = rawValue(state->phase);
            }
            context.console.printDocument(compactText(json));
        } else if (!state) {
            context.console.print("No session is running.");
        } else if (state->phase == SessionPhase::quitting) {
            context.console.print(stillWorkingTitle);
            context.console.print(stillWorkingText);
        } else {
            context.console.print(fmt::format("A session is running (process {}, {}).", state->processID,
                                              rawValue(state->phase)));
        }
        return succeeded;
    }
};

const RegisteredSubcommand sessionSubcommand{
    HelpSection::startupDisks,
    Subcommand::group(
        "session", "Make the startup disks; save and eject them at the end",
        {Subcommand::of<SessionRunCommand>("run", "Run until SIGTERM, SIGINT or SIGHUP"),
         Subcommand::of<SessionStatusCommand>("status", "Show what the running session does")})};

} // namespace

} // namespace ramdisk::cli
