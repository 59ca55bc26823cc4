#include "tests/support/ScriptedRunner.h"

#include <gtest/gtest.h>

#include <utility>

namespace ramdisk::test {

ScriptedRunner::~ScriptedRunner() {
    for (const auto& script : scripts_) {
        if (!script.wasUsed) {
            ADD_FAILURE() << "nobody ran: " << script.line;
        }
    }
}

CommandOutput ScriptedRunner::run(const SystemCommand& command) {
    // Outside of the lock, since an answer may look at what was run so far, or run something itself.
    return take(command)(command);
}

ScriptedRunner::Answer ScriptedRunner::take(const SystemCommand& command) {
    const std::lock_guard lock(mutex_);
    commands.push_back(command);
    const auto line = command.description();
    for (const auto& secret : secrets) {
        EXPECT_EQ(line.find(secret), std::string::npos) << "a secret in: " << line;
    }
    auto script = scripts_.end();
    for (auto candidate = scripts_.begin(); candidate != scripts_.end(); ++candidate) {
        const bool isBetter = script == scripts_.end() || (script->isLasting && !candidate->isLasting);
        if (candidate->line == line && isBetter) {
            script = candidate;
        }
    }
    if (script == scripts_.end()) {
        return [this](const SystemCommand& unknown) { return otherwise(unknown); };
    }
    script->wasUsed = true;
    auto answer = script->answer;
    if (!script->isLasting) {
        scripts_.erase(script);
    }
    return answer;
}

CommandOutput ScriptedRunner::otherwise(const SystemCommand& command) {
    ADD_FAILURE() << "no script for: " << command.description();
    return fails(127, command.toolName() + ": no script\n");
}

void ScriptedRunner::once(std::string line, Answer answer) {
    scripts_.push_back({std::move(line), std::move(answer)});
}

void ScriptedRunner::once(std::string line, CommandOutput output) {
    once(std::move(line), [output](const SystemCommand&) { return output; });
}

void ScriptedRunner::always(std::string line, Answer answer) {
    scripts_.push_back({std::move(line), std::move(answer), true});
}

void ScriptedRunner::always(std::string line, CommandOutput output) {
    always(std::move(line), [output](const SystemCommand&) { return output; });
}

ScriptedRunner::Answer ScriptedRunner::hangs() {
    return [](const SystemCommand& command) -> CommandOutput { throw CommandTimeout(command); };
}

std::vector<std::string> ScriptedRunner::lines() const {
    std::vector<std::string> lines;
    for (const auto& command : commands) {
        lines.push_back(command.description());
    }
    return lines;
}

} // namespace ramdisk::test
