#pragma once

#include "tramdisk/CommandLine.h"

#include <CLI/CLI.hpp>

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace ramdisk::cli {

/// The grammar of the command line. Subcommands come in groups, each in a file of its own, which keep what
/// the library writes into; only after the whole line proved well formed is that read.
class Parser {
public:
    using Command = decltype(Invocation::command);
    using Reader = std::function<Command()>;
    using GroupReader = std::function<Command(const CLI::App& group)>;

    Parser();

    /// @throws UsageError
    Invocation parse(int argumentCount, const char* const* arguments);

    /// Adds a subcommand; `reader` makes the invocation out of what was written for it.
    CLI::App& add(const char* name, const char* help, Reader reader);

    /// The same for a subcommand that has some of its own, of which at most one is given; `reader` asks the
    /// group which.
    CLI::App& addGroup(const char* name, const char* help, GroupReader reader);

private:
    [[nodiscard]] std::string unexpectedArgument() const;

    CLI::App app_;
    GlobalOptions global_;
    std::map<const CLI::App*, Reader> readers_;
};

void addDiskSubcommands(Parser& parser);
void addSettingsSubcommands(Parser& parser);
void addStartupSubcommands(Parser& parser);
void addSurroundingsSubcommands(Parser& parser);

/// The argument that names one disk.
void addReference(CLI::App& app, std::string& reference);
/// An option that may be given several times, with one text each.
void addTexts(CLI::App& app, const std::string& name, std::vector<std::string>& texts, const char* help);

/// The texts of a switch that overrules a setting, either way: "--NAME" and "--no-NAME".
struct Switch {
    bool on = false;
    bool off = false;

    void addTo(CLI::App& app, const std::string& name, const char* help, const char* helpOff);
    [[nodiscard]] std::optional<bool> read() const { return on || off ? std::optional(on) : std::nullopt; }
};

} // namespace ramdisk::cli
