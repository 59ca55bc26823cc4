#include "tests/support/ScriptedMac.h"

#include "RamDiskInfrastructure/MacTools/ToolPaths.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>

namespace ramdisk::test {

namespace {

constexpr const char* deprecation =
    "hdiutil: WARNING: 'hdiutil attach -nomount ...' is deprecated. Please use "
    "'diskutil image attach --noMount ...' instead.\n";
constexpr const char* noSuchFile = "hdiutil: detach failed - No such file or directory\n";
constexpr std::string_view memoryScheme = "ram://";

std::uint64_t sectorsOf(const std::string& address) {
    return std::stoull(address.substr(memoryScheme.size()));
}

} // namespace

ScriptedMac::~ScriptedMac() {
    for (const auto& script : scripts_) {
        ADD_FAILURE() << "nobody ran: " << script.description;
    }
}

CommandOutput ScriptedMac::run(const SystemCommand& command) {
    if (meanwhile) {
        meanwhile();
    }
    commands.push_back(command);
    const auto description = command.description();
    for (const auto& secret : secrets) {
        EXPECT_EQ(description.find(secret), std::string::npos) << "a secret in: " << description;
    }
    const auto script =
        std::find_if(scripts_.begin(), scripts_.end(), [&description](const Script& candidate) {
            return candidate.description == description;
        });
    if (script != scripts_.end()) {
        const auto output = std::move(script->output);
        scripts_.erase(script);
        return output;
    }
    if (command.executable == toolPaths::hdiutil) {
        return hdiutil(command);
    }
    if (command.executable == toolPaths::diskutil) {
        return diskutil(command);
    }
    if (command.executable == toolPaths::ditto) {
        return ditto(command);
    }
    return command.executable == toolPaths::mdutil ? mdutil(command) : unknown(command);
}

void ScriptedMac::script(std::string description, CommandOutput output) {
    scripts_.push_back({std::move(description), std::move(output)});
}

ScriptedMac::Image& ScriptedMac::attachForeign(const std::string& path, const std::string& volumeName) {
    auto& image = addImage(path, path.rfind(memoryScheme, 0) == 0 ? sectorsOf(path) : 4096);
    image.volume = Volume{"/dev/" + image.name() + "s1", volumeName};
    mountInVolumes(*image.volume);
    return image;
}

void ScriptedMac::detachForeign(unsigned disk) {
    images.remove_if([disk](const Image& image) { return image.disk == disk; });
}

ScriptedMac::Image* ScriptedMac::imageOf(const std::string& device) {
    for (auto& image : images) {
        const bool isContainer = image.container && device == "disk" + std::to_string(*image.container);
        if (image.name() == device || isContainer) {
            return &image;
        }
    }
    return nullptr;
}

ScriptedMac::Image* ScriptedMac::imageAt(const std::filesystem::path& mountPoint) {
    for (auto& image : images) {
        if (image.volume && image.volume->mountPoint == mountPoint) {
            return &image;
        }
    }
    return nullptr;
}

const ScriptedMac::Volume* ScriptedMac::volumeAt(const std::filesystem::path& mountPoint) const {
    const auto found = std::find_if(images.begin(), images.end(), [&](const Image& image) {
        return image.volume && image.volume->mountPoint == mountPoint;
    });
    return found == images.end() ? nullptr : &*found->volume;
}

CommandOutput ScriptedMac::hdiutil(const SystemCommand& command) {
    const auto& words = command.arguments;
    if (words.size() == 2 && words[0] == "info" && words[1] == "-plist" && command.timeout == 30.0) {
        return succeeds(infoPropertyList());
    }
    if (words.size() == 3 && words[0] == "attach" && words[1] == "-nomount") {
        return attach(words[2], deprecation);
    }
    if (words.size() == 2 && words[0] == "detach") {
        return detach(words[1], Force::no);
    }
    if (words.size() == 3 && words[0] == "detach" && words[1] == "-force") {
        return detach(words[2], Force::yes);
    }
    if (words.size() == 4 && words[0] == "detach" && words[1] == "-quiet" && words[2] == "-force") {
        const auto* image = imageAt(words[3]);
        return image == nullptr ? fails(1, noSuchFile) : detach("/dev/" + image->name(), Force::yes);
    }
    if (words.size() == 3 && words[0] == "isencrypted" && words[1] == "-plist") {
        return isEncrypted(words[2]);
    }
    if (!words.empty() && words[0] == "create") {
        return createImage(command);
    }
    return !words.empty() && words[0] == "attach" ? openImage(command) : unknown(command);
}

CommandOutput ScriptedMac::attach(const std::string& address, const std::string& warning) {
    const auto& image = addImage(address, sectorsOf(address));
    return succeeds(fmt::format("/dev/{:<15}\t\t\n", image.name()), warning);
}

CommandOutput ScriptedMac::detach(const std::string& devicePath, Force force) {
    auto* image = imageOf(devicePath.substr(5));
    if (image == nullptr) {
        return fails(1, noSuchFile);
    }
    if (image->detaching == Detaching::busy && force == Force::no) {
        return fails(16, fmt::format("hdiutil: couldn't unmount \"{}\" - Resource busy\n", image->name()));
    }
    if (image->volume) {
        leave(*image->volume);
    }
    if (image->detaching == Detaching::busyAfterUnmount) {
        return fails(16, fmt::format("hdiutil: couldn't eject \"{}\" - Resource busy\n", image->name()),
                     fmt::format("\"{}\" unmounted.\n", image->name()));
    }
    const auto name = image->name();
    const bool saysItFailed = image->detaching == Detaching::worksButSaysItFailed;
    images.remove_if([image](const Image& candidate) { return &candidate == image; });
    return saysItFailed ? fails(1, noSuchFile)
                        : succeeds(fmt::format("\"{0}\" unmounted.\n\"{0}\" ejected.\n", name));
}

CommandOutput ScriptedMac::unknown(const SystemCommand& command) {
    ADD_FAILURE() << "no script for: " << command.description();
    return fails(64, command.toolName() + ": unknown\n");
}

unsigned ScriptedMac::freeDiskNumber() const {
    for (unsigned number = 4;; ++number) {
        const auto uses = [number](const Image& image) {
            return image.disk == number || image.container == number;
        };
        if (std::none_of(images.begin(), images.end(), uses)) {
            return number;
        }
    }
}

ScriptedMac::Image& ScriptedMac::addImage(const std::string& path, std::uint64_t sectors) {
    return images.emplace_back(Image{freeDiskNumber(), sectors, path, nextAttachment_++});
}

void ScriptedMac::mountInVolumes(Volume& volume) {
    auto candidate = std::filesystem::path("/Volumes") / volume.name;
    for (int clash = 1; imageAt(candidate) != nullptr; ++clash) {
        candidate = fmt::format("/Volumes/{} {}", volume.name, clash);
    }
    volume.mountPoint = candidate;
}

} // namespace ramdisk::test
