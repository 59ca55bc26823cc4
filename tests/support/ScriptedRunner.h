#pragma once

#include "RamDiskCore/Ports/CommandRunning.h"

#include <functional>
#include <list>
#include <mutex>
#include <string>
#include <vector>

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
    ~ScriptedRunner() override;

    /// Answers as the oldest script of this command line says. A command without one ends with status 127.
    [[nodiscard]] CommandOutput run(const SystemCommand& command) override;

    /// Answers one command of this line. Scripts of the same line are used in their order.
    void once(std::string line, Answer answer);
    void once(std::string line, CommandOutput output = {});
    /// Answers every command of this line, once all its `once` are used; there has to be at least one.
    void always(std::string line, Answer answer);
    void always(std::string line, CommandOutput output = {});

    /// For a tool that does not finish in time.
    [[nodiscard]] static Answer hangs();

    /// Everything that was run, in order.
    std::vector<SystemCommand> commands;
    [[nodiscard]] std::vector<std::string> lines() const;
    /// The texts that no command line may hold.
    std::vector<std::string> secrets;

protected:
    /// Answers a command that has no script.
    [[nodiscard]] virtual CommandOutput otherwise(const SystemCommand& command);

private:
    struct Script {
        std::string line;
        Answer answer;
        bool isLasting = false;
        bool wasUsed = false;
    };

    [[nodiscard]] Answer take(const SystemCommand& command);

    std::mutex mutex_;
    std::list<Script> scripts_;
};

} // namespace ramdisk::test
