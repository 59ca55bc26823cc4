#include "tramdisk/Syntax.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <utility>
#include <vector>

namespace ramdisk::cli {

void Syntax::add(const char* name, const std::string& help, Count count, Conversion convert) {
    const auto receive = [this, convert = std::move(convert)](const std::string& text) {
        conversions_.push_back([convert, text] { convert(text); });
    };
    const auto receiveAll = [receive](const std::vector<std::string>& texts) {
        std::for_each(texts.begin(), texts.end(), receive);
    };
    auto& option = count == Count::any
                       ? *app_.add_option_function<std::vector<std::string>>(name, receiveAll, help)
                       : *app_.add_option_function<std::string>(name, receive, help);
    option.required(count == Count::one);
    if (option.get_positional()) {
        // The name says what it is; the help would put "TEXT" behind it.
        option.type_name("");
    } else {
        // Else "--folder a b" would take both.
        option.allow_extra_args(false);
    }
}

void Syntax::number(const char* name, std::uint32_t& value, const std::string& help) {
    app_.add_option(name, value, help);
}

void Syntax::number(const char* name, std::uint64_t& value, const std::string& help) {
    app_.add_option(name, value, help);
}

void Syntax::number(const char* name, std::optional<std::uint32_t>& value, const std::string& help) {
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
