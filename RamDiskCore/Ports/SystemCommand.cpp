#include "RamDiskCore/Ports/SystemCommand.h"

#include "RamDiskCore/Values/Text.h"
#include "RamDiskCore/Values/VolumePassphrase.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

namespace ramdisk {

namespace {

/// An error is passed around, kept and logged: the input, which may be a secret, does not travel with it.
SystemCommand withoutInput(SystemCommand command) {
    if (command.standardInput) {
        wipe(*command.standardInput);
        command.standardInput.reset();
    }
    return command;
}

/// Everything up to the first line break of `text` and that break, taken off `text`. An empty piece between a
/// carriage return and a line feed does no harm: empty lines say nothing.
std::string_view takeLine(std::string_view& text) {
    static constexpr std::array<std::string_view, 7> breaks{"\n",     "\v",     "\f",    "\r",
                                                            "\u0085", "\u2028", "\u2029"};
    auto end = text.size();
    std::size_t breakLength = 0;
    for (const auto lineBreak : breaks) {
        const auto position = text.substr(0, end).find(lineBreak);
        if (position != std::string_view::npos) {
            end = position;
            breakLength = lineBreak.size();
        }
    }
    const auto line = text.substr(0, end);
    text.remove_prefix(end + breakLength);
    return line;
}

bool isUsage(std::string_view line) {
    constexpr std::string_view usage = "usage";
    return line.size() >= usage.size()
           && std::equal(usage.begin(), usage.end(), line.begin(), [](char expected, char character) {
                  return character == expected || character == expected - 'a' + 'A';
              });
}

/// The last line that says something; empty when none does.
std::string lastMeaningfulLine(std::string_view text) {
    std::string_view last;
    while (!text.empty()) {
        const auto line = trimmed(takeLine(text));
        if (!line.empty() && !isUsage(line)) {
            last = line;
        }
    }
    return std::string(last);
}

} // namespace

SystemCommand SystemCommand::withTimeout(double seconds) const {
    auto limited = *this;
    limited.timeout = seconds;
    return limited;
}

std::string SystemCommand::description() const {
    auto text = executable.string();
    for (const auto& argument : arguments) {
        text.append(" ").append(argument);
    }
    return text;
}

std::string CommandOutput::standardOutputText() const {
    return replacingInvalidUTF8(standardOutput);
}

std::string CommandOutput::standardErrorText() const {
    return replacingInvalidUTF8(standardError);
}

std::string CommandOutput::summary() const {
    if (auto line = lastMeaningfulLine(standardErrorText()); !line.empty()) {
        return line;
    }
    if (auto line = lastMeaningfulLine(standardOutputText()); !line.empty()) {
        return line;
    }
    return signal ? fmt::format("ended by signal {}", *signal) : fmt::format("exit code {}", exitCode);
}

CommandTimeout::CommandTimeout(SystemCommand command)
    : command_(withoutInput(std::move(command))),
      text_(fmt::format("{} did not finish in {:.0f} seconds", command_.toolName(),
                        std::trunc(command_.timeout.value_or(0)))) {}

CommandFailure::CommandFailure(SystemCommand command, CommandOutput output)
    : command_(withoutInput(std::move(command))),
      output_(std::move(output)),
      text_(command_.toolName() + ": " + output_.summary()) {}

} // namespace ramdisk
