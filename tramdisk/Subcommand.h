#pragma once

#include "tramdisk/CommandContext.h"
#include "tramdisk/Syntax.h"

#include <functional>
#include <memory>
#include <vector>

namespace ramdisk::cli {

/// Carries out a subcommand whose arguments are read, and tells how it went. Failures that end it are thrown;
/// a UsageError among them still means that the command line is invalid.
using Action = std::function<ExitStatus(const CommandContext& context)>;

/// One word of the command line and what it stands for: something to do, or a group of such words.
struct Subcommand {
    /// `Command` is a struct of the values that the user gives, with
    /// - `void declare(Syntax&)`, where there are any,
    /// - `void check() const`, where values exclude each other; throws UsageError,
    /// - `ExitStatus run(const CommandContext&) const`.
    template <typename Command>
    [[nodiscard]] static Subcommand of(const char* name, const char* help) {
        return {name, help, declareCommand<Command>, {}};
    }

    /// The first of `inner` is what the group's name alone means.
    [[nodiscard]] static Subcommand group(const char* name, const char* help, std::vector<Subcommand> inner) {
        return {name, help, nullptr, std::move(inner)};
    }

    /// What the user types; also the order in the help.
    const char* name;
    /// One imperative.
    const char* help;
    /// Declares the arguments and gives what is to be done with them. Null for a group.
    Action (*declare)(Syntax& syntax);
    std::vector<Subcommand> inner;

private:
    template <typename Command>
    static Action declareCommand(Syntax& syntax) {
        const auto command = std::make_shared<Command>();
        if constexpr (requires { command->declare(syntax); }) {
            command->declare(syntax);
        }
        if constexpr (requires { command->check(); }) {
            syntax.check([command] { command->check(); });
        }
        return [command](const CommandContext& context) { return command->run(context); };
    }
};

/// The headings below which the help shows subcommands.
enum class HelpSection { disks, startupDisks, settings };

/// Makes a subcommand known. A constant of this type in a source of Subcommands/ is all that the program
/// needs to have it.
class RegisteredSubcommand {
public:
    RegisteredSubcommand(HelpSection section, Subcommand subcommand) noexcept;
    RegisteredSubcommand(const RegisteredSubcommand&) = delete;
    RegisteredSubcommand& operator=(const RegisteredSubcommand&) = delete;
    ~RegisteredSubcommand() = default;

    [[nodiscard]] HelpSection section() const noexcept { return section_; }
    [[nodiscard]] const Subcommand& subcommand() const noexcept { return subcommand_; }

    /// All of them by section and name, since the order in which sources are initialized is not defined.
    /// Complete once `main` runs.
    [[nodiscard]] static std::vector<const RegisteredSubcommand*> all();

private:
    HelpSection section_;
    Subcommand subcommand_;
    const RegisteredSubcommand* next_;
};

} // namespace ramdisk::cli
