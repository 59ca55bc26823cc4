#include "RamDiskUI/SessionText.h"

#include "RamDiskUI/ErrorText.h"

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <fmt/ranges.h>

namespace ramdisk {

namespace {

std::string textOf(const std::exception_ptr& pointer) {
    try {
        std::rethrow_exception(pointer);
    } catch (const std::exception& error) {
        return errorText(error);
    }
}

struct ProblemText {
    std::string operator()(const RamDiskSetupProblem::ProfileNotSaved& problem) const {
        return "It will not be created at launch: " + textOf(problem.error);
    }
    std::string operator()(const RamDiskSetupProblem::SeedNotCopied& problem) const {
        return "The initial contents could not be copied: " + textOf(problem.error);
    }
    std::string operator()(const RamDiskSetupProblem::FolderNotCreated& problem) const {
        return errorText(problem.error);
    }
    std::string operator()(const RamDiskSetupProblem::RedirectFailed& problem) const {
        return "Folders could not be moved to the RAM disk: " + failureText(problem.failure);
    }
    std::string operator()(const RamDiskSetupProblem::RedirectsNotSaved& problem) const {
        return "The list of moved folders could not be saved: " + textOf(problem.error);
    }
};

struct OutcomeText {
    std::string operator()(const StartupOutcome::Created& outcome) const {
        return fmt::format("“{}” is ready{}.", outcome.disk.name,
                           outcome.restoredContents ? ", with its saved files" : "");
    }
    std::string operator()(const StartupOutcome::AlreadyMounted& outcome) const {
        return fmt::format("“{}” is mounted already.", outcome.disk.name);
    }
    std::string operator()(const StartupOutcome::RestoreFailed& outcome) const {
        return fmt::format("“{}”: saved contents could not be restored. {}", outcome.disk.name,
                           errorText(outcome.error));
    }
    std::string operator()(const StartupOutcome::FoldersNotCreated& outcome) const {
        std::vector<std::string> texts;
        for (const auto& error : outcome.errors) {
            auto text = errorText(error);
            // One thought a sentence, also where a reason of the system's ends the text.
            texts.push_back(std::move(text.ends_with('.') ? text : text += "."));
        }
        return fmt::format("“{}”: {}", outcome.disk.name, fmt::join(texts, " "));
    }
    std::string operator()(const StartupOutcome::Failed& outcome) const {
        return fmt::format("“{}”: {}", outcome.profile.name, fmt::join(errorSentences(outcome.error), " "));
    }
};

} // namespace

std::string setupProblemsTitle(std::string_view diskName) {
    return fmt::format("“{}” is ready, but not everything worked", diskName);
}

std::string problemText(const RamDiskSetupProblem& problem) {
    return std::visit(ProblemText{}, problem.value);
}

std::string outcomeText(const StartupOutcome& outcome) {
    return std::visit(OutcomeText{}, outcome.value);
}

std::string lostText(const LostDisk& disk) {
    const auto when = [&] {
        if (!disk.savedAt) {
            return std::string("None of them were ever saved.");
        }
        const auto time = std::chrono::system_clock::to_time_t(*disk.savedAt);
        return fmt::format("They were last saved on {:%Y-%m-%d at %H:%M:%S}; what changed since is lost.",
                           fmt::localtime(time));
    };
    return fmt::format("“{}” was unmounted without its files being saved. {}", disk.name, when());
}

std::vector<std::string> attentionLines(const ShutdownReport& report) {
    std::vector<std::string> lines;
    for (const auto& failure : report.saveFailures) {
        lines.push_back(
            fmt::format("“{}”: contents not saved. {}", failure.ramDisk.name, errorText(failure.error)));
    }
    for (const auto& failure : report.ejectFailures) {
        lines.push_back(
            fmt::format("“{}”: still in use. {}", failure.ramDisk.name, errorText(failure.error)));
    }
    for (const auto& failure : report.redirectFailures) {
        lines.push_back(failureText(failure));
    }
    return lines;
}

} // namespace ramdisk
