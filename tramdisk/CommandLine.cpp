#include "tramdisk/CommandLine.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <memory>
#include <string_view>
#include <vector>

namespace ramdisk::cli {

namespace {

/// Stands before a value that is to be taken as it is: the parser would take “[a,b]” for the two values a and
/// b. It is removed again from whatever value has it.
constexpr char literalMark = '\x1f';

std::string literal(std::string_view value) {
    const bool looksLikeAList = value.starts_with('[') && value.ends_with(']');
    return (looksLikeAList || value.starts_with(literalMark) ? std::string(1, literalMark) : std::string())
        .append(value);
}

std::string withoutMark(std::string value) {
    return value.starts_with(literalMark) ? value.substr(1) : value;
}

void removeMarksFromValues(CLI::App& app) {
    for (auto* option : app.get_options()) {
        if (option->get_items_expected_max() > 0) {
            option->transform(withoutMark);
        }
    }
    for (auto* subcommand : app.get_subcommands(nullptr)) {
        removeMarksFromValues(*subcommand);
    }
}

/// The arguments in the order that the parser wants, last first. It would take the argument after "--name="
/// for the name; split in two, such an option has the empty value that was meant.
std::vector<std::string> reversedArguments(int argumentCount, const char* const* arguments) {
    std::vector<std::string> list;
    bool areOptionsOver = false;
    for (int index = 1; index < argumentCount; ++index) {
        const std::string_view argument = arguments[index];
        areOptionsOver = areOptionsOver || argument == "--";
        const auto equals = argument.find('=');
        if (areOptionsOver || !argument.starts_with("--") || equals == argument.npos) {
            list.push_back(literal(argument));
        } else if (equals == argument.size() - 1) {
            list.emplace_back(argument.substr(0, equals));
            list.emplace_back();
        } else {
            list.push_back(std::string(argument.substr(0, equals + 1))
                           + literal(argument.substr(equals + 1)));
        }
    }
    std::reverse(list.begin(), list.end());
    return list;
}

std::string firstLine(std::string_view text) {
    return std::string(text.substr(0, text.find('\n')));
}

std::string heading(HelpSection section) {
    switch (section) {
    case HelpSection::disks:
        return "Disks";
    case HelpSection::startupDisks:
        return "Startup disks and saved files";
    case HelpSection::settings:
        break;
    }
    return "Folders, templates and settings";
}

/// The grammar of the command line. Subcommands keep what the library writes into; only after the whole line
/// proved well formed is that converted.
class Parser {
public:
    Parser();

    /// @throws UsageError
    Invocation parse(int argumentCount, const char* const* arguments);

private:
    struct Declared {
        std::unique_ptr<Syntax> syntax;
        Action action;
    };

    void add(CLI::App& parent, const Subcommand& subcommand, const std::string& section);
    [[nodiscard]] const Declared& chosen() const;
    [[nodiscard]] std::string unexpectedArgument() const;

    CLI::App app_;
    GlobalOptions global_;
    std::map<const CLI::App*, Declared> declared_;
};

Parser::Parser()
    : app_("Make, list and eject RAM disks: volumes that are stored in main memory.", "tramdisk") {
    app_.fallthrough();
    app_.require_subcommand(0, 1);
    app_.set_version_flag("--version", "tramdisk " TRAMDISK_VERSION, "Show the version");
    app_.set_help_flag("--help,-h", "Show this help");
    app_.add_flag("--json", global_.json, "Print one JSON document on standard output");
    app_.add_flag("--no-color", global_.noColor, "Print without colors");
    app_.add_flag("--quiet,-q", global_.quiet, "Print only results and errors");
    app_.add_flag("--trace", global_.trace, "Say on standard error why the program does what it does");
    for (const auto* registered : RegisteredSubcommand::all()) {
        add(app_, registered->subcommand(), heading(registered->section()));
    }
    removeMarksFromValues(app_);
}

void Parser::add(CLI::App& parent, const Subcommand& subcommand, const std::string& section) {
    auto& app = *parent.add_subcommand(subcommand.name, subcommand.help);
    app.group(section);
    if (subcommand.declare != nullptr) {
        auto syntax = std::make_unique<Syntax>(app);
        auto action = subcommand.declare(*syntax);
        declared_[&app] = {std::move(syntax), std::move(action)};
        return;
    }
    app.require_subcommand(0, 1);
    for (const auto& inner : subcommand.inner) {
        add(app, inner, "Subcommands");
    }
}

/// What the user named; of a group that he named alone, the first.
const Parser::Declared& Parser::chosen() const {
    const auto* app = app_.get_subcommands().front();
    if (!declared_.contains(app)) {
        const auto inner = app->get_subcommands();
        app = inner.empty() ? app->get_subcommands(nullptr).front() : inner.front();
    }
    return declared_.at(app);
}

Invocation Parser::parse(int argumentCount, const char* const* arguments) {
    try {
        app_.parse(reversedArguments(argumentCount, arguments));
    } catch (const CLI::CallForHelp&) {
        return {global_, nullptr, app_.help()};
    } catch (const CLI::CallForAllHelp&) {
        return {global_, nullptr, app_.help("", CLI::AppFormatMode::All)};
    } catch (const CLI::CallForVersion&) {
        return {global_, nullptr, app_.version() + "\n"};
    } catch (const CLI::ExtrasError&) {
        throw UsageError(unexpectedArgument());
    } catch (const CLI::ParseError& error) {
        throw UsageError(firstLine(error.what()));
    }
    if (app_.get_subcommands().empty()) {
        throw MissingSubcommand(app_.help());
    }
    const auto& [syntax, action] = chosen();
    syntax->finish();
    return {global_, action, {}};
}

std::string Parser::unexpectedArgument() const {
    const auto chosen = app_.get_subcommands();
    auto remaining = app_.remaining();
    for (const auto* subcommand : chosen) {
        const auto more = subcommand->remaining();
        remaining.insert(remaining.end(), more.begin(), more.end());
    }
    const auto argument = remaining.empty() ? std::string() : withoutMark(remaining.front());
    if (chosen.empty() && !argument.starts_with("-")) {
        return fmt::format("“{}” is not a subcommand. Run `tramdisk --help` to see them.", argument);
    }
    const auto command = chosen.empty() ? std::string("tramdisk") : "tramdisk " + chosen.front()->get_name();
    if (argument.starts_with("-")) {
        return fmt::format("“{}” is not an option of `{}`.", argument, command);
    }
    return fmt::format("`{}` takes no further argument “{}”.", command, argument);
}

} // namespace

Invocation parseCommandLine(int argumentCount, const char* const* arguments) {
    return Parser().parse(argumentCount, arguments);
}

} // namespace ramdisk::cli
