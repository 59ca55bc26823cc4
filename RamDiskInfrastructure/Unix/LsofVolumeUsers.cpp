#include "RamDiskInfrastructure/Unix/LsofVolumeUsers.h"

#include "RamDiskCore/Values/Text.h"

#include <algorithm>
#include <charconv>
#include <utility>

namespace ramdisk {

namespace {

template <typename Line>
void forEachLine(std::string_view text, Line line) {
    while (!text.empty()) {
        const auto end = std::min(text.find('\n'), text.size());
        line(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
}

std::optional<std::int32_t> processID(std::string_view digits) {
    if (digits.size() > 1 && digits.front() == '+' && digits[1] != '-') {
        digits.remove_prefix(1);
    }
    std::int32_t value = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    if (error != std::errc() || end != digits.data() + digits.size()) {
        return std::nullopt;
    }
    return value;
}

/// The byte that two hexadecimal digits stand for.
std::optional<char> byteOf(std::string_view digits) {
    unsigned value = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value, 16);
    const bool isByte = digits.size() == 2 && error == std::errc() && end == digits.data() + digits.size();
    return isByte ? std::optional(static_cast<char>(value)) : std::nullopt;
}

/// The name as it is: the tool writes a backslash before what it takes for unprintable, such as \x20 for a
/// blank.
std::string withoutEscapes(std::string_view text) {
    constexpr std::string_view letters = "\\bfnrt";
    constexpr std::string_view characters = "\\\b\f\n\r\t";
    std::string name;
    while (!text.empty()) {
        const auto letter = text.size() > 1 ? letters.find(text[1]) : std::string_view::npos;
        const auto byte = text.substr(0, 2) == "\\x" ? byteOf(text.substr(2, 2)) : std::nullopt;
        const bool isEscape = text.front() == '\\' && letter != std::string_view::npos;
        name += byte ? *byte : isEscape ? characters[letter] : text.front();
        text.remove_prefix(byte ? 4 : isEscape ? 2 : 1);
    }
    return replacingInvalidUTF8(name);
}

/// The tool exits with 1 also when nothing is open, and warns of file systems that it cannot see.
bool isFailure(const CommandOutput& output) {
    if (output.exitCode == 0 || (output.exitCode == 1 && !output.standardOutput.empty())) {
        return false;
    }
    bool hasError = output.exitCode != 1;
    const auto errors = output.standardErrorText();
    forEachLine(errors, [&hasError](std::string_view line) {
        constexpr std::string_view error = "lsof: ";
        constexpr std::string_view warning = "lsof: WARNING";
        hasError =
            hasError || (line.substr(0, error.size()) == error && line.substr(0, warning.size()) != warning);
    });
    return hasError;
}

} // namespace

LsofVolumeUsers::LsofVolumeUsers(std::shared_ptr<CommandRunning> runner, std::filesystem::path lsof)
    : runner_(std::move(runner)),
      lsof_(std::move(lsof)) {}

std::vector<VolumeUser> LsofVolumeUsers::users(const std::filesystem::path& mountPoint) {
    const SystemCommand command{lsof_, {"-F", "pc", "+f", "--", mountPoint.string()}, std::nullopt, 30.0};
    auto output = runner_->run(command);
    if (isFailure(output)) {
        throw CommandFailure(command, std::move(output));
    }
    return parseLsofFields(output.standardOutputText());
}

std::vector<VolumeUser> parseLsofFields(std::string_view text) {
    std::vector<VolumeUser> users;
    auto current = users.end();
    forEachLine(text, [&](std::string_view line) {
        if (line.empty()) {
            return;
        }
        const auto value = line.substr(1);
        if (line.front() == 'p') {
            const auto id = processID(value);
            current = std::find_if(users.begin(), users.end(),
                                   [&id](const VolumeUser& user) { return id && user.processID == *id; });
            if (id && current == users.end()) {
                current = users.insert(users.end(), VolumeUser{*id, {}});
            }
        } else if (line.front() == 'c' && current != users.end() && current->name.empty()) {
            current->name = withoutEscapes(value);
        }
    });
    return users;
}

} // namespace ramdisk
