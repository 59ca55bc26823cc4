#pragma once

#include "RamDiskCore/Ports/CommandRunning.h"
#include "tests/support/Testing.h"

namespace ramdisk::test {

inline CommandOutput succeeds(std::string output = {}, std::string errors = {}) {
    return {0, std::move(output), std::move(errors)};
}

inline CommandOutput fails(std::int32_t exitCode, std::string errors, std::string output = {}) {
    return {exitCode, std::move(output), std::move(errors)};
}

/// Runs nothing: it answers exact command lines, as `SystemCommand::description` shows them, from scripts.
/// A command without a script, a script that nobody used, and a secret in a command line each fail the
/// running test.
class ScriptedRunner : public CommandRunning {
public:
    using Answer = std::function<CommandOutput(const SystemCommand&)>;

    ScriptedRunner() = default;
    ~ScriptedRunner() override {
        for (const auto& script : scripts_) {
            ADD_FAILURE() << "nobody ran: " << script.line;
        }
    }

    /// Answers as the oldest script of this command line says. A command without one ends with status 127.
    [[nodiscard]] CommandOutput run(const SystemCommand& command) override {
        // Outside of the lock, since an answer may look at what was run so far, or run something itself.
        return take(command)(command);
    }

    /// Answers one command of this line. Scripts of the same line are used in their order.
    void once(std::string line, Answer answer) { scripts_.push_back({std::move(line), std::move(answer)}); }
    void once(std::string line, CommandOutput output = {}) {
        once(std::move(line), [output](const SystemCommand&) { return output; });
    }
    /// For a tool that does not finish in time.
    [[nodiscard]] static Answer hangs() {
        return [](const SystemCommand& command) -> CommandOutput { throw CommandTimeout(command); };
    }

    /// Everything that was run, in order.
    std::vector<SystemCommand> commands;
    [[nodiscard]] std::vector<std::string> lines() const {
        std::vector<std::string> lines;
        for (const auto& command : commands) {
            lines.push_back(command.description());
        }
        return lines;
    }
    /// The texts that no command line may hold.
    std::vector<std::string> secrets;

protected:
    /// Answers a command that has no script.
    [[nodiscard]] virtual CommandOutput otherwise(const SystemCommand& command) {
        ADD_FAILURE() << "no script for: " << command.description();
        return fails(127, command.toolName() + ": no script\n");
    }

private:
    struct Script {
        std::string line;
        Answer answer;
    };

    [[nodiscard]] Answer take(const SystemCommand& command) {
        const std::lock_guard lock(mutex_);
        commands.push_back(command);
        const auto line = command.description();
        for (const auto& secret : secrets) {
            EXPECT_EQ(line.find(secret), std::string::npos) << "a secret in: " << line;
        }
        const auto script = std::find_if(scripts_.begin(), scripts_.end(),
                                         [&](const Script& candidate) { return candidate.line == line; });
        if (script == scripts_.end()) {
            return [this](const SystemCommand& unknown) { return otherwise(unknown); };
        }
        auto answer = std::move(script->answer);
        scripts_.erase(script);
        return answer;
    }

    std::mutex mutex_;
    std::list<Script> scripts_;
};

} // namespace ramdisk::test
