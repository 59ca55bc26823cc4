#include "tramdisk/CommandLine.h"

#include "tramdisk/Parser.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>

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

} // namespace

Parser::Parser()
    : app_("Makes, lists and ejects RAM disks: volumes whose storage is main memory.", "tramdisk") {
    app_.fallthrough();
    app_.require_subcommand(0, 1);
    app_.set_version_flag("--version", "tramdisk " TRAMDISK_VERSION);
    app_.set_help_flag("--help,-h", "Show this help");
    app_.add_flag("--json", global_.json, "One JSON document on standard output");
    app_.add_flag("--no-color", global_.noColor, "No colors");
    app_.add_flag("--quiet,-q", global_.quiet, "Print results and errors only");
    app_.add_flag("--trace", global_.trace, "Say on standard error why the program does what it does");
    addDiskSubcommands(*this);
    addStartupSubcommands(*this);
    addSurroundingsSubcommands(*this);
    addSettingsSubcommands(*this);
    removeMarksFromValues(app_);
}

Invocation Parser::parse(int argumentCount, const char* const* arguments) {
    try {
        app_.parse(reversedArguments(argumentCount, arguments));
    } catch (const CLI::CallForHelp&) {
        return {global_, PrintInvocation{app_.help()}};
    } catch (const CLI::CallForAllHelp&) {
        return {global_, PrintInvocation{app_.help("", CLI::AppFormatMode::All)}};
    } catch (const CLI::CallForVersion&) {
        return {global_, PrintInvocation{app_.version() + "\n"}};
    } catch (const CLI::ExtrasError&) {
        throw UsageError(unexpectedArgument());
    } catch (const CLI::ParseError& error) {
        throw UsageError(firstLine(error.what()));
    }
    if (app_.get_subcommands().empty()) {
        throw MissingSubcommand(app_.help());
    }
    return {global_, readers_.at(app_.get_subcommands().front())()};
}

CLI::App& Parser::add(const char* name, const char* help, Reader reader) {
    auto* subcommand = app_.add_subcommand(name, help);
    readers_[subcommand] = std::move(reader);
    return *subcommand;
}

CLI::App& Parser::addGroup(const char* name, const char* help, GroupReader reader) {
    auto& group = add(name, help, {});
    group.require_subcommand(0, 1);
    readers_[&group] = [&group, reader = std::move(reader)] { return reader(group); };
    return group;
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

void addReference(CLI::App& app, std::string& reference) {
    app.add_option("REF", reference, "A device, a mount point or a name")->required();
}

void addTexts(CLI::App& app, const std::string& name, std::vector<std::string>& texts, const char* help) {
    app.add_option(name, texts, help)->allow_extra_args(false);
}

void Switch::addTo(CLI::App& app, const std::string& name, const char* help, const char* helpOff) {
    auto* without = app.add_flag("--no-" + name, off, helpOff);
    app.add_flag("--" + name, on, help)->excludes(without);
}

Invocation parseCommandLine(int argumentCount, const char* const* arguments) {
    return Parser().parse(argumentCount, arguments);
}

} // namespace ramdisk::cli
