#include "tramdisk/Syntax.h"

#include <CLI/CLI.hpp>

#include <vector>

namespace ramdisk::cli {

namespace {

/// The help names an argument without dashes by what it is, and needs no "TEXT" behind that.
CLI::Option& withoutTypeOfArgument(CLI::Option& option) {
    if (option.get_positional()) {
        option.type_name("");
    }
    return option;
}

CLI::Option& addText(CLI::App& app, const char* name, const std::string& help,
                     const Syntax::Receiver& receiver) {
    return withoutTypeOfArgument(*app.add_option_function<std::string>(name, receiver, help));
}

CLI::Option& addTexts(CLI::App& app, const char* name, const std::string& help,
                      const Syntax::Receiver& receiver) {
    return withoutTypeOfArgument(*app.add_option_function<std::vector<std::string>>(
        name,
        [receiver](const std::vector<std::string>& texts) {
            for (const auto& text : texts) {
                receiver(text);
            }
        },
        help));
}

} // namespace

void Syntax::addRequired(const char* name, const std::string& help, const Receiver& receiver) {
    addText(app_, name, help, receiver).required();
}

void Syntax::addOptional(const char* name, const std::string& help, const Receiver& receiver) {
    addText(app_, name, help, receiver);
}

void Syntax::addMany(const char* name, const std::string& help, const Receiver& receiver) {
    addTexts(app_, name, help, receiver);
}

void Syntax::addRepeatable(const char* name, const std::string& help, const Receiver& receiver) {
    // Else "--folder a b" would take both.
    addTexts(app_, name, help, receiver).allow_extra_args(false);
}

void Syntax::number(const char* name, std::uint32_t& value, const std::string& help) {
    app_.add_option(name, value, help);
}

void Syntax::number(const char* name, std::uint64_t& value, const std::string& help) {
    app_.add_option(name, value, help);
}

void Syntax::flag(const char* name, bool& value, const std::string& help) {
    app_.add_flag(name, value, help);
}

void Syntax::flag(const char* name, std::optional<bool>& value, const std::string& help) {
    bool& on = switches_.emplace_back(false);
    app_.add_flag(name, on, help);
    conversions_.push_back([&] { value = on ? std::optional(true) : std::nullopt; });
}

void Syntax::onOff(const std::string& name, std::optional<bool>& value, const std::string& help,
                   const std::string& helpOff) {
    bool& off = switches_.emplace_back(false);
    bool& on = switches_.emplace_back(false);
    auto* without = app_.add_flag("--no-" + name, off, helpOff);
    app_.add_flag("--" + name, on, help)->excludes(without);
    conversions_.push_back([&] { value = on || off ? std::optional(on) : std::nullopt; });
}

void Syntax::finish() {
    for (const auto& convert : conversions_) {
        convert();
    }
    for (const auto& check : checks_) {
        check();
    }
}

} // namespace ramdisk::cli
