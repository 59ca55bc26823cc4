#pragma once

#include "tests/tramdisk/Disks.h"

namespace ramdisk::test {

/// A machine whose disks keep their files, and a session on it.
class KeptDisks : public testing::Test {
protected:
    void SetUp() override {
        SKIP_UNLESS_ROOT();
        machine.emplace();
        // No keyring answers here.
        ASSERT_EQ(machine->run({"settings", "set", "allowsKeyFile", "true"}).status, 0);
    }
    void TearDown() override {
        if (session.valid()) {
            killSession();
        }
    }

    std::filesystem::path makeKept(const std::string& name, const std::vector<std::string>& more = {}) const {
        std::vector<std::string> arguments{"--size", "32M", "--at-launch", "--keep-files"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return mountPointOf(machine->create(name, arguments));
    }
    /// Returns when the session is up.
    void startSession(const std::vector<std::string>& options = {}) {
        std::vector<std::string> arguments{"session"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        session = std::async(std::launch::async, [this, arguments] { return machine->run(arguments); });
        for (int attempt = 0; attempt < 3000; ++attempt) {
            const auto state = machine->run({"session", "status", "--json"}).json();
            if (state.value("phase", "") == "running") {
                process = state.at("processID").get<pid_t>();
                return;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        FAIL() << "the session did not start";
    }
    Outcome endSession() {
        kill(process, SIGTERM);
        return session.get();
    }
    void killSession() {
        kill(process, SIGKILL);
        session.wait();
        session = {};
    }
    [[nodiscard]] std::filesystem::path support() const {
        return machine->folder() / "home/data/Tavrin RamDisk";
    }
    [[nodiscard]] std::filesystem::path savedContents() const { return support() / "Saved Contents"; }

    std::optional<TestMachine> machine;
    std::future<Outcome> session;
    pid_t process = 0;
};

} // namespace ramdisk::test
