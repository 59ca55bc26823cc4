#pragma once

#include "tramdisk/TypedValues.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace ramdisk::cli {

/// Declares the arguments and options of one subcommand. Each is given the variable that receives its value,
/// which outlives the parsing. Texts are converted only after the whole line proved well formed, in the order
/// of declaration; a text without a meaning is a UsageError.
class Syntax {
public:
    explicit Syntax(CLI::App& app) : app_(app) {}
    Syntax(const Syntax&) = delete;
    Syntax& operator=(const Syntax&) = delete;
    ~Syntax() = default;

    /// An argument or, with dashes before its name, an option with a value. The variable says how often it is
    /// given: a plain value must be, an optional may be, and a vector takes any number.
    template <typename Value>
    void value(const char* name, Value& value, const std::string& help) {
        add(name, help, Count::one, [&value](const std::string& text) { value = valueFrom<Value>(text); });
    }
    template <typename Value>
    void value(const char* name, std::optional<Value>& value, const std::string& help) {
        add(name, help, Count::atMostOne,
            [&value](const std::string& text) { value = valueFrom<Value>(text); });
    }
    template <typename Value>
    void value(const char* name, std::vector<Value>& values, const std::string& help) {
        add(name, help, Count::any,
            [&values](const std::string& text) { values.push_back(valueFrom<Value>(text)); });
    }
    void number(const char* name, std::uint32_t& value, const std::string& help);
    void number(const char* name, std::uint64_t& value, const std::string& help);
    /// Absent where it is not given.
    void number(const char* name, std::optional<std::uint32_t>& value, const std::string& help);

    /// An option without a value.
    void flag(const char* name, bool& value, const std::string& help);
    /// The same; absent where it is not given.
    void flag(const char* name, std::optional<bool>& value, const std::string& help);
    /// "--NAME" and "--no-NAME", of which at most one may be given. `name` is without dashes.
    void onOff(const std::string& name, std::optional<bool>& value, const std::string& help,
               const std::string& helpOff);

    /// Has `check` called after all values are converted. It throws UsageError when they do not go together.
    void check(std::function<void()> check) { checks_.push_back(std::move(check)); }

    /// Converts and checks what was given. Called once, after the line was parsed.
    /// @throws UsageError
    void finish();

private:
    enum class Count { atMostOne, one, any };
    using Conversion = std::function<void(const std::string& text)>;

    void add(const char* name, const std::string& help, Count count, Conversion convert);

    CLI::App& app_;
    std::vector<std::function<void()>> conversions_;
    std::vector<std::function<void()>> checks_;
    /// What the switches write into. A deque, since they must not move.
    std::deque<bool> switches_;
};

} // namespace ramdisk::cli
