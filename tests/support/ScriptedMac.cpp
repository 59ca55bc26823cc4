#include "tests/support/ScriptedMac.h"

#include "RamDiskInfrastructure/MacTools/DiskUtilVolumeFormatter.h"
#include "RamDiskInfrastructure/MacTools/MacAdapters.h"
#include "RamDiskInfrastructure/MacTools/ToolPaths.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <system_error>

#include <stdlib.h>

namespace ramdisk::test {

namespace {

constexpr const char* deprecation =
    "hdiutil: WARNING: 'hdiutil attach -nomount ...' is deprecated. Please use "
    "'diskutil image attach --noMount ...' instead.\n";
constexpr const char* noSuchFile = "hdiutil: detach failed - No such file or directory\n";
constexpr std::string_view memoryScheme = "ram://";
/// Stands for the files of a volume on the folder where it is mounted.
constexpr const char* mountedFile = ".mounted";

CommandOutput succeeds(std::string output, std::string errors = {}) {
    return {0, std::move(output), std::move(errors)};
}

CommandOutput fails(std::int32_t exitCode, std::string errors, std::string output = {}) {
    return {exitCode, std::move(output), std::move(errors)};
}

std::uint64_t sectorsOf(const std::string& address) {
    return std::stoull(address.substr(memoryScheme.size()));
}

std::string escaped(std::string_view text) {
    std::string result;
    for (const char character : text) {
        switch (character) {
        case '&':
            result += "&amp;";
            break;
        case '<':
            result += "&lt;";
            break;
        case '>':
            result += "&gt;";
            break;
        default:
            result += character;
        }
    }
    return result;
}

std::string entity(const std::string& devicePath,
                   const std::optional<std::filesystem::path>& mountPoint = {}) {
    const auto mount = mountPoint
                           ? fmt::format("\t\t\t\t\t<key>mount-point</key>\n\t\t\t\t\t<string>{}</string>\n",
                                         escaped(mountPoint->string()))
                           : std::string();
    return fmt::format("\t\t\t\t<dict>\n\t\t\t\t\t<key>content-hint</key>\n\t\t\t\t\t<string></string>\n"
                       "\t\t\t\t\t<key>dev-entry</key>\n\t\t\t\t\t<string>{}</string>\n{}\t\t\t\t</dict>\n",
                       devicePath, mount);
}

std::string entities(const ScriptedMac::Image& image) {
    const auto device = "/dev/" + image.name();
    if (!image.volume) {
        return entity(device);
    }
    const auto& volume = *image.volume;
    if (volume.devicePath == device) {
        return entity(device, volume.mountPoint);
    }
    std::string text = entity(device);
    if (image.container) {
        text += entity("/dev/disk" + std::to_string(*image.container));
    }
    return text + entity(volume.devicePath, volume.mountPoint);
}

std::optional<FileSystem> fileSystemOfToolName(const std::string& name) {
    for (const auto fileSystem : allFileSystems) {
        if (name == diskUtilName(fileSystem)) {
            return fileSystem;
        }
    }
    return std::nullopt;
}

void leave(ScriptedMac::Volume& volume) {
    if (volume.mountPoint) {
        std::error_code ignored;
        std::filesystem::remove(*volume.mountPoint / mountedFile, ignored);
        volume.mountPoint.reset();
    }
}

/// The ports beside the command runner, over one Mac.
class MacMarks final : public VolumeMarkAccessing {
public:
    explicit MacMarks(std::shared_ptr<ScriptedMac> mac) : mac_(std::move(mac)) {}

    VolumeMark::Reading read(const std::filesystem::path& volume) const override {
        const auto* found = mac_->volumeAt(volume);
        return markReading(found == nullptr ? std::nullopt : found->mark);
    }
    void write(const std::filesystem::path& volume, const UUID& instance) override {
        auto* found = mac_->volumeAt(volume);
        if (found == nullptr) {
            throw std::system_error(ENOENT, std::generic_category(), "Could not mark " + volume.string());
        }
        found->mark = instance.text();
    }

private:
    std::shared_ptr<ScriptedMac> mac_;
};

class MacMedia final : public MediaIdentifying {
public:
    explicit MacMedia(std::shared_ptr<ScriptedMac> mac) : mac_(std::move(mac)) {}

    std::optional<std::uint64_t> identifier(const std::string& bsdName) override {
        const auto* image = mac_->imageOf(bsdName);
        return image == nullptr ? std::nullopt : std::optional(image->attachment);
    }

private:
    std::shared_ptr<ScriptedMac> mac_;
};

class MacStatistics final : public VolumeStatisticsReading {
public:
    explicit MacStatistics(std::shared_ptr<ScriptedMac> mac) : mac_(std::move(mac)) {}

    std::optional<VolumeStatistics> read(const std::filesystem::path& mountPoint) const override {
        const auto* volume = mac_->volumeAt(mountPoint);
        if (volume == nullptr) {
            return std::nullopt;
        }
        return VolumeStatistics{volume->name,       std::string(displayName(volume->fileSystem)),
                                volume->fileSystem, ByteCount{1000},
                                ByteCount{900},     volume->passphrase.has_value()};
    }

private:
    std::shared_ptr<ScriptedMac> mac_;
};

class MacFootprints final : public ProcessFootprintReading {
public:
    std::optional<ByteCount> footprint(std::int32_t processID) const override {
        return ByteCount::of(static_cast<std::uint64_t>(processID), ByteCount::Unit::mebibyte);
    }
};

class MacVolumes final : public MountedVolumeListing {
public:
    explicit MacVolumes(std::shared_ptr<ScriptedMac> mac) : mac_(std::move(mac)) {}

    std::set<std::string> volumeNames(const std::optional<std::filesystem::path>& excluding) const override {
        std::set<std::string> names;
        for (const auto& image : mac_->images) {
            if (image.volume && image.volume->mountPoint && image.volume->mountPoint != excluding) {
                names.insert(image.volume->name);
            }
        }
        return names;
    }

private:
    std::shared_ptr<ScriptedMac> mac_;
};

class MacMemory final : public SystemMemoryProviding {
public:
    SystemMemory read() const override {
        SystemMemory memory;
        memory.physical = memory.available = ByteCount::of(64, ByteCount::Unit::gibibyte);
        return memory;
    }
};

class MacPassphrases final : public PassphraseGenerating {
public:
    explicit MacPassphrases(std::shared_ptr<ScriptedMac> mac) : mac_(std::move(mac)) {}

    VolumePassphrase generate() override {
        mac_->secrets.push_back(fmt::format("hush-{}-hush", mac_->secrets.size()));
        return VolumePassphrase(mac_->secrets.back());
    }

private:
    std::shared_ptr<ScriptedMac> mac_;
};

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
    return command.executable == toolPaths::mdutil ? mdutil(command) : unknown(command);
}

void ScriptedMac::script(std::string description, CommandOutput output) {
    scripts_.push_back({std::move(description), std::move(output)});
}

ScriptedMac::Image& ScriptedMac::attachForeign(const std::string& path, const std::string& volumeName) {
    auto& image = addImage(path, path.rfind(memoryScheme, 0) == 0 ? sectorsOf(path) : 4096);
    image.volume = Volume{"/dev/" + image.name() + "s1", volumeName, FileSystem::hfsPlus, {}, {}, true, {}};
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

ScriptedMac::Volume* ScriptedMac::volumeAt(const std::filesystem::path& mountPoint) {
    for (auto& image : images) {
        if (image.volume && image.volume->mountPoint == mountPoint) {
            return &*image.volume;
        }
    }
    return nullptr;
}

std::vector<std::string> ScriptedMac::descriptions() const {
    std::vector<std::string> texts;
    for (const auto& command : commands) {
        texts.push_back(command.description());
    }
    return texts;
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
    return unknown(command);
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
        image->volume =
            Volume{"/dev/" + words[2] + "s1", words[4], *fileSystem, {}, command.standardInput, true, {}};
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
    auto* volume = words.empty() ? nullptr : volumeAt(words.back());
    if (words.size() == 3 && words[0] == "-i" && (words[1] == "on" || words[1] == "off")) {
        if (volume == nullptr) {
            return fails(1, "Error: invalid path `" + words[2] + "'.\n");
        }
        volume->isIndexed = words[1] == "on";
        return succeeds(
            fmt::format("{}:\n\tIndexing {}.\n", words[2], volume->isIndexed ? "enabled" : "disabled"));
    }
    if (words.size() == 2 && words[0] == "-s" && command.timeout == 30.0) {
        return volume == nullptr ? fails(1, {}, "Error: unknown indexing state.\n")
                                 : succeeds(fmt::format("{}:\n\tIndexing {}.\n", words[1],
                                                        volume->isIndexed ? "enabled" : "disabled"));
    }
    return unknown(command);
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

CommandOutput ScriptedMac::eraseVolume(const std::vector<std::string>& arguments) {
    auto* image = imageOf(arguments[3].substr(5));
    const auto fileSystem = fileSystemOfToolName(arguments[1]);
    if (image == nullptr || !fileSystem) {
        return fails(1, "Could not find disk: " + arguments[3] + "\n");
    }
    auto device = image->name();
    if (supportsEncryption(*fileSystem)) {
        image->container = freeDiskNumber();
        device = fmt::format("disk{}s1", *image->container);
    }
    image->volume = Volume{"/dev/" + device, arguments[2], *fileSystem, {}, {}, true, {}};
    mountInVolumes(*image->volume);
    return succeeds(fmt::format("Started erase on {0}\nUnmounting disk\nErasing\nMounting disk\n"
                                "Finished erase on {1} ({2})\n",
                                image->name(), device, arguments[2]));
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

CommandOutput ScriptedMac::unknown(const SystemCommand& command) const {
    ADD_FAILURE() << "no script for: " << command.description();
    return fails(64, command.toolName() + ": unknown\n");
}

std::string ScriptedMac::infoPropertyList() const {
    std::string list;
    for (const auto& image : images) {
        list += fmt::format(
            "\t\t<dict>\n\t\t\t<key>autodiskmount</key>\n\t\t\t<true/>\n\t\t\t<key>blockcount</key>\n"
            "\t\t\t<integer>{}</integer>\n\t\t\t<key>blocksize</key>\n\t\t\t<integer>512</integer>\n"
            "\t\t\t<key>hdid-pid</key>\n\t\t\t<integer>{}</integer>\n\t\t\t<key>image-path</key>\n"
            "\t\t\t<string>{}</string>\n\t\t\t<key>system-entities</key>\n\t\t\t<array>\n{}"
            "\t\t\t</array>\n\t\t</dict>\n",
            image.sectors, 100 + image.disk, escaped(image.path), entities(image));
    }
    if (!list.empty()) {
        list = "\t<key>images</key>\n\t<array>\n" + list + "\t</array>\n";
    }
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST "
           "1.0//EN\" "
           "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n<plist version=\"1.0\">\n<dict>\n"
           "\t<key>framework</key>\n\t<string>683.100.3</string>\n"
           + list + "\t<key>vendor</key>\n\t<string>Apple</string>\n</dict>\n</plist>\n";
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
    return images.emplace_back(Image{freeDiskNumber(), sectors, path, nextAttachment_++, std::nullopt,
                                     std::nullopt, Detaching::works});
}

void ScriptedMac::mountInVolumes(Volume& volume) {
    auto candidate = std::filesystem::path("/Volumes") / volume.name;
    for (int clash = 1; volumeAt(candidate) != nullptr; ++clash) {
        candidate = fmt::format("/Volumes/{} {}", volume.name, clash);
    }
    volume.mountPoint = candidate;
}

std::shared_ptr<PrivateMounts> privateMountsOn(const std::shared_ptr<ScriptedMac>& mac,
                                               const std::filesystem::path& directory) {
    return std::make_shared<PrivateMounts>(directory, [mac](const DeviceIdentifier& device) {
        mac->closedDevices.push_back(device.bsdName());
        return true;
    });
}

std::shared_ptr<VolumeMarkAccessing> marksOn(const std::shared_ptr<ScriptedMac>& mac) {
    return std::make_shared<MacMarks>(mac);
}

std::shared_ptr<MediaIdentifying> mediaOn(const std::shared_ptr<ScriptedMac>& mac) {
    return std::make_shared<MacMedia>(mac);
}

RamDiskServices servicesOn(const std::shared_ptr<ScriptedMac>& mac,
                           const std::filesystem::path& privateDirectory,
                           RamDeviceAllocator::AttachMethod method) {
    MacAdapters adapters{.runner = mac,
                         .method = method,
                         .privateMounts = privateMountsOn(mac, privateDirectory),
                         .marks = marksOn(mac),
                         .media = mediaOn(mac),
                         .statistics = std::make_shared<MacStatistics>(mac),
                         .footprints = std::make_shared<MacFootprints>(),
                         .memory = std::make_shared<MacMemory>(),
                         .volumes = std::make_shared<MacVolumes>(mac),
                         .passphrases = std::make_shared<MacPassphrases>(mac)};
    return makeMacServices(adapters);
}

TemporaryFolder::TemporaryFolder() {
    auto pattern = (std::filesystem::temp_directory_path() / "ramdisk-test-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) {
        throw std::system_error(errno, std::generic_category(), "mkdtemp");
    }
    path_ = pattern;
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

} // namespace ramdisk::test
