#include "RamDiskInfrastructure/MacTools/MDUtilIndexController.h"

#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskCore/Values/ASCII.h"
#include "RamDiskCore/Values/Text.h"
#include "RamDiskInfrastructure/MacTools/ToolPaths.h"

#include <algorithm>
#include <string_view>
#include <utility>

namespace ramdisk {

namespace {

SystemCommand setCommand(SearchIndexing indexing, const std::string& volume) {
    return {toolPaths::mdutil,
            {"-i", indexing == SearchIndexing::on ? "on" : "off", volume},
            std::nullopt,
            std::nullopt};
}

/// Calls `line` with each line of the text, without the white space around it.
template <typename Line>
void forEachTrimmedLine(std::string_view text, Line line) {
    while (!text.empty()) {
        const auto end = std::min(text.find('\n'), text.size());
        line(trimmed(text.substr(0, end)));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
}

/// The state that the last of the tool's sentences tells. A sentence begins its line; one that stands
/// elsewhere is part of a path, since a volume may have any name. The path comes first.
std::optional<SearchIndexing> stateIn(std::string_view text) {
    constexpr std::pair<std::string_view, SearchIndexing> sentences[] = {
        {"indexing enabled", SearchIndexing::on},
        {"indexing disabled", SearchIndexing::off},
        {"indexing and searching disabled", SearchIndexing::off},
        {"spotlight server is disabled", SearchIndexing::off},
    };
    std::optional<SearchIndexing> state;
    forEachTrimmedLine(text, [&](std::string_view line) {
        const auto lowered = lowerCased(std::string(line));
        for (const auto& [sentence, told] : sentences) {
            if (lowered.starts_with(sentence)) {
                state = told;
            }
        }
    });
    return state;
}

/// The last line in which the tool speaks of an error; empty when it does not. What else it writes to
/// standard error is a log.
std::string errorIn(const CommandOutput& output) {
    std::string error;
    for (const auto* stream : {&output.standardOutput, &output.standardError}) {
        forEachTrimmedLine(*stream, [&error](std::string_view line) {
            if (line.starts_with("Error:")) {
                error = line;
            }
        });
    }
    return error;
}

} // namespace

MDUtilIndexController::MDUtilIndexController(std::shared_ptr<CommandRunning> runner)
    : runner_(std::move(runner)) {}

void MDUtilIndexController::set(SearchIndexing indexing, const std::filesystem::path& volume) {
    const auto command = setCommand(indexing, volume.string());
    auto output = runner_->run(command);
    auto error = errorIn(output);
    if ((output.exitCode == 0 && error.empty()) || isSwitched(indexing, volume)) {
        return;
    }
    if (!error.empty()) {
        output.standardError = std::move(error);
    }
    throw CommandFailure(command, std::move(output));
}

bool MDUtilIndexController::isSwitched(SearchIndexing indexing, const std::filesystem::path& volume) {
    try {
        return state(volume) == indexing;
    } catch (const std::exception&) {
        traceCaught("indexing", "what the tool said first is told");
        return false;
    }
}

std::optional<SearchIndexing> MDUtilIndexController::state(const std::filesystem::path& volume) {
    const auto output = runner_->run({toolPaths::mdutil, {"-s", volume.string()}, std::nullopt, 30.0});
    const auto state = stateIn(output.standardOutput);
    return state ? state : stateIn(output.standardError);
}

std::vector<std::string> MDUtilIndexController::plan(SearchIndexing indexing) const {
    return {setCommand(indexing, "MOUNT-POINT").description()};
}

} // namespace ramdisk
