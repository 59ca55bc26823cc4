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
    using Receiver = std::function<void(const std::string& text)>;

    explicit Syntax(CLI::App& app) : app_(app) {}
    Syntax(const Syntax&) = delete;
    Syntax& operator=(const Syntax&) = delete;
    ~Syntax() = default;

    /// An argument without dashes that must be given.
    template <typename Value>
    void argument(const char* name, Value& value, const std::string& help) {
        addRequired(name, help, receiver(value));
    }
    /// One that may be left out.
    template <typename Value>
    void argument(const char* name, std::optional<Value>& value, const std::string& help) {
        addOptional(name, help, receiver(value));
    }
    /// Any number of them.
    template <typename Value>
    void arguments(const char* name, std::vector<Value>& values, const std::string& help) {
        addMany(name, help, appender(values));
    }

    /// An option with a value, such as "--name".
    template <typename Value>
    void option(const char* name, std::optional<Value>& value, const std::string& help) {
        addOptional(name, help, receiver(value));
    }
    template <typename Value>
    void requiredOption(const char* name, Value& value, const std::string& help) {
        addRequired(name, help, receiver(value));
    }
    /// One that may be given several times, with a value each.
    template <typename Value>
    void repeatableOption(const char* name, std::vector<Value>& values, const std::string& help) {
        addRepeatable(name, help, appender(values));
    }
    void number(const char* name, std::uint32_t& value, const std::string& help);
    void number(const char* name, std::uint64_t& value, const std::string& help);

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
    template <typename Target>
    struct ValueOf {
        using Type = Target;
    };
    template <typename Value>
    struct ValueOf<std::optional<Value>> {
        using Type = Value;
    };

    template <typename Target>
    Receiver receiver(Target& target) {
        return [this, &target](const std::string& text) {
            conversions_.push_back(
                [&target, text] { target = valueFrom<typename ValueOf<Target>::Type>(text); });
        };
    }
    template <typename Value>
    Receiver appender(std::vector<Value>& values) {
        return [this, &values](const std::string& text) {
            conversions_.push_back([&values, text] { values.push_back(valueFrom<Value>(text)); });
        };
    }

    void addRequired(const char* name, const std::string& help, const Receiver& receiver);
    void addOptional(const char* name, const std::string& help, const Receiver& receiver);
    void addMany(const char* name, const std::string& help, const Receiver& receiver);
    void addRepeatable(const char* name, const std::string& help, const Receiver& receiver);

    CLI::App& app_;
    std::vector<std::function<void()>> conversions_;
    std::vector<std::function<void()>> checks_;
    /// What the switches write into. A deque, since they must not move.
    std::deque<bool> switches_;
};

} // namespace ramdisk::cli
