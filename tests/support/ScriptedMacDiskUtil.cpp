#include "RamDiskInfrastructure/MacTools/MacFormat.h"
#include "tests/support/ScriptedMac.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <fstream>

namespace ramdisk::test {

namespace {

/// Stands for the files of a volume on the folder where it is mounted.
constexpr const char* mountedFile = ".mounted";

std::optional<FileSystem> fileSystemOfToolName(const std::string& name) {
    for (const auto fileSystem : allFileSystems) {
        if (name == diskUtilName(fileSystem)) {
            return fileSystem;
        }
    }
    return std::nullopt;
}

} // namespace

void ScriptedMac::leave(Volume& volume) {
    if (volume.mountPoint) {
        std::error_code ignored;
        if (volume.files) {
            std::filesystem::rename(*volume.mountPoint, *volume.files);
            std::filesystem::create_directory(*volume.mountPoint);
        }
        std::filesystem::remove(*volume.mountPoint / mountedFile, ignored);
        volume.mountPoint.reset();
    }
}

CommandOutput ScriptedMac::diskutil(const SystemCommand& command) {
    const auto& words = command.arguments;
    if (words.size() == 4 && words[0] == "image" && words[1] == "attach" && words[2] == "--noMount") {
        return hasDiskImages2
                   ? attach(words[3], {})
                   : fails(1, "diskutil: did not recognize verb \"image\"; type \"diskutil\" for a list\n");
    }
    if (words.size() == 4 && words[0] == "erasevolume") {
        return eraseVolume(words);
    }
    if (words.size() == 2 && words[0] == "unmount") {
        return unmount(words[1]);
    }
    if (words.size() == 4 && words[0] == "mount" && words[1] == "-mountPoint") {
        return mount(words[3], words[2], std::nullopt);
    }
    return !words.empty() && words[0] == "apfs" ? apfs(command) : unknown(command);
}

CommandOutput ScriptedMac::apfs(const SystemCommand& command) {
    const auto& words = command.arguments;
    if (words.size() == 3 && words[1] == "createContainer") {
        auto* image = imageOf(words[2].substr(5));
        if (image == nullptr) {
            return fails(1, "Could not find disk: " + words[2] + "\n");
        }
        image->container = freeDiskNumber();
        return succeeds(fmt::format("Creating container with {0}\nStarted APFS operation on {0}\n"
                                    "Switching {0} to APFS\nCreated new APFS Container disk{1}\n"
                                    "Disk from APFS operation: disk{1}\nFinished APFS operation on {0}\n",
                                    image->name(), *image->container));
    }
    if (words.size() == 6 && words[1] == "addVolume" && words[5] == "-stdinpassphrase") {
        auto* image = imageOf(words[2]);
        const auto fileSystem = fileSystemOfToolName(words[3]);
        if (image == nullptr || !image->container || !fileSystem || !command.standardInput) {
            return fails(1, "Could not find APFS Container\n");
        }
        image->volume = Volume{"/dev/" + words[2] + "s1", words[4], *fileSystem, command.standardInput};
        mountInVolumes(*image->volume);
        return succeeds(fmt::format("Created new APFS Volume {0}s1\nMounting APFS Volume\n"
                                    "Disk from APFS operation: {0}s1\nFinished APFS operation on {0}\n",
                                    words[2]));
    }
    if (words.size() == 6 && words[1] == "unlockVolume" && words[3] == "-stdinpassphrase"
        && words[4] == "-mountpoint") {
        return mount(words[2], words[5], command.standardInput);
    }
    return unknown(command);
}

CommandOutput ScriptedMac::mdutil(const SystemCommand& command) {
    const auto& words = command.arguments;
    auto* image = words.empty() ? nullptr : imageAt(words.back());
    if (words.size() != 3 || words[0] != "-i" || (words[1] != "on" && words[1] != "off")) {
        return unknown(command);
    }
    if (image == nullptr) {
        return fails(1, "Error: invalid path `" + words[2] + "'.\n");
    }
    image->volume->isIndexed = words[1] == "on";
    return succeeds(
        fmt::format("{}:\n\tIndexing {}abled.\n", words[2], image->volume->isIndexed ? "en" : "dis"));
}

CommandOutput ScriptedMac::eraseVolume(const Words& words) {
    auto* image = imageOf(words[3].substr(5));
    const auto fileSystem = fileSystemOfToolName(words[1]);
    if (image == nullptr || !fileSystem) {
        return fails(1, "Could not find disk: " + words[3] + "\n");
    }
    auto device = image->name();
    if (supportsEncryption(*fileSystem)) {
        image->container = freeDiskNumber();
        device = fmt::format("disk{}s1", *image->container);
    }
    image->volume = Volume{"/dev/" + device, words[2], *fileSystem};
    mountInVolumes(*image->volume);
    return succeeds(fmt::format("Started erase on {0}\nUnmounting disk\nErasing\nMounting disk\n"
                                "Finished erase on {1} ({2})\n",
                                image->name(), device, words[2]));
}

CommandOutput ScriptedMac::mount(const std::string& devicePath, const std::string& mountPoint,
                                 const std::optional<std::string>& passphrase) {
    for (auto& image : images) {
        if (!image.volume || image.volume->devicePath != devicePath) {
            continue;
        }
        if (image.volume->passphrase != passphrase) {
            return fails(
                1, "Error unlocking APFS Volume: The given APFS Volume passphrase is incorrect (-69549)\n");
        }
        EXPECT_FALSE(image.volume->mountPoint) << devicePath << " is mounted already";
        EXPECT_TRUE(std::filesystem::is_empty(mountPoint)) << mountPoint;
        std::ofstream(std::filesystem::path(mountPoint) / mountedFile) << devicePath;
        image.volume->mountPoint = mountPoint;
        return succeeds(fmt::format("Volume {} on {} mounted\n", image.volume->name, devicePath));
    }
    return fails(1, "Unable to find disk for " + devicePath + "\n");
}

CommandOutput ScriptedMac::unmount(const std::string& devicePath) {
    for (auto& image : images) {
        if (image.volume && image.volume->devicePath == devicePath && image.volume->mountPoint) {
            leave(*image.volume);
            return succeeds(fmt::format("Volume {} on {} unmounted\n", image.volume->name, devicePath));
        }
    }
    return fails(1, devicePath + " was already unmounted\n");
}

} // namespace ramdisk::test
