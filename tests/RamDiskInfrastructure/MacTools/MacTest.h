#pragma once

#include "RamDiskUI/ErrorText.h"
#include "tests/support/ScriptedMac.h"

#include <regex>

namespace ramdisk::test {

/// A scripted Mac, a folder of the test's own, and the adapters over both.
class MacTest : public testing::Test {
protected:
    [[nodiscard]] RamDiskServices services() const { return makeMacServices(adapters); }

    /// The text that a user reads of what `action` throws, which holds no secret.
    template <typename Action>
    std::string textOf(const Action& action) const {
        try {
            action();
        } catch (const RamDiskError& error) {
            for (const auto& secret : mac->secrets) {
                EXPECT_EQ(errorText(error).find(secret), std::string::npos);
            }
            return errorText(error);
        }
        return "nothing was thrown";
    }

    /// The commands since the last look, without the folders of the tools and of the test and without the
    /// identifiers of mount points and partial images.
    std::vector<std::string> ran() {
        const std::regex cut("/usr/s?bin/|" + folder.path().string() + "/|(RamDisk-|partial-)[0-9A-F-]{36}");
        std::vector<std::string> texts;
        for (const auto& command : std::exchange(mac->commands, {})) {
            texts.push_back(std::regex_replace(command.description(), cut, "$1"));
        }
        return texts;
    }

    /// No folder to mount on is left.
    void expectNoMountPoints() const {
        EXPECT_TRUE(!std::filesystem::exists(mounts) || std::filesystem::is_empty(mounts));
    }

    ScratchFolder folder;
    std::filesystem::path mounts = folder.path() / "mounts";
    std::shared_ptr<ScriptedMac> mac = std::make_shared<ScriptedMac>();
    MacAdapters adapters = adaptersOn(mac, mounts);
};

} // namespace ramdisk::test
