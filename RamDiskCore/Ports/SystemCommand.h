#pragma once

#include <chrono>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ramdisk {

/// A tool to run: no shell, no quoting, every argument reaches it as it is.
struct SystemCommand {
    /// Absolute path of the tool.
    std::filesystem::path executable;
    std::vector<std::string> arguments;
    /// Bytes for the child's input. They may be a secret: no description ever shows them.
    std::optional<std::string> standardInput;
    /// In seconds; absent means no limit.
    std::optional<double> timeout;

    /// This command with a time limit.
    [[nodiscard]] SystemCommand withTimeout(double seconds) const;

    /// The executable's path and the arguments, joined with single blanks.
    [[nodiscard]] std::string description() const;

    /// The name by which messages call the tool.
    [[nodiscard]] std::string toolName() const { return executable.filename().string(); }

    friend bool operator==(const SystemCommand&, const SystemCommand&) = default;
};

/// How a child ended and what it wrote.
struct CommandOutput {
    /// The exit status; for a child that died of a signal, 128 plus the signal, as a shell tells it.
    std::int32_t exitCode = 0;
    std::string standardOutput;
    std::string standardError;
    /// The signal that ended the child, absent when it exited by itself.
    std::optional<int> signal = std::nullopt;

    /// The streams as text: UTF-8 with invalid sequences replaced.
    [[nodiscard]] std::string standardOutputText() const;
    [[nodiscard]] std::string standardErrorText() const;

    /// The last line that says something, of the errors or else of the output; usage texts are passed over.
    /// With neither, how the child ended.
    [[nodiscard]] std::string summary() const;

    friend bool operator==(const CommandOutput&, const CommandOutput&) = default;
};

/// A command did not finish within its time limit and was ended. The command is carried without its input.
class CommandTimeout : public std::exception {
public:
    explicit CommandTimeout(SystemCommand command);

    [[nodiscard]] const SystemCommand& command() const noexcept { return command_; }
    /// Such as "hdiutil did not finish in 30 seconds".
    [[nodiscard]] const char* what() const noexcept override { return text_.c_str(); }

private:
    SystemCommand command_;
    std::string text_;
};

/// A checked command failed. The command is carried without its input, which may be a secret.
class CommandFailure : public std::exception {
public:
    CommandFailure(SystemCommand command, CommandOutput output);

    [[nodiscard]] const SystemCommand& command() const noexcept { return command_; }
    [[nodiscard]] const CommandOutput& output() const noexcept { return output_; }
    /// The tool's name and the summary of what it wrote.
    [[nodiscard]] const char* what() const noexcept override { return text_.c_str(); }

private:
    SystemCommand command_;
    CommandOutput output_;
    std::string text_;
};

} // namespace ramdisk
