#include "tests/support/ScriptedMac.h"

#include "RamDiskInfrastructure/MacTools/MacFormat.h"
#include "RamDiskInfrastructure/MacTools/ToolPaths.h"
#include "tests/support/FakeMachine.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <stdexcept>
#include <system_error>

namespace ramdisk::test {

namespace {

namespace fs = std::filesystem;

constexpr const char* deprecation = "hdiutil: WARNING: 'hdiutil attach -nomount ...' is deprecated.\n";
constexpr const char* noSuchFile = "hdiutil: detach failed - No such file or directory\n";
constexpr std::string_view memoryScheme = "ram://";
/// Stands for the files of a volume on the folder where it is mounted.
constexpr const char* mountedFile = ".mounted";

std::uint64_t sectorsOf(const std::string& address) {
    return std::stoull(address.substr(memoryScheme.size()));
}

FileSystem fileSystemOfToolName(const std::string& name) {
    for (const auto fileSystem : allFileSystems) {
        if (name == diskUtilName(fileSystem)) {
            return fileSystem;
        }
    }
    throw std::runtime_error("no format " + name);
}

/// The words at the pattern's stars; absent when it is another command.
std::optional<std::vector<std::string>> starsIn(const std::string& pattern,
                                                const std::vector<std::string>& words) {
    std::vector<std::string> stars;
    auto word = words.begin();
    std::istringstream parts(pattern);
    for (std::string part; parts >> part;) {
        if (word != words.end() && (part == "*" || part == *word || part == "[" + *word + "]")) {
            if (part == "*") {
                stars.push_back(*word);
            }
            ++word;
        } else if (part.front() != '[') {
            return std::nullopt;
        }
    }
    return word == words.end() ? std::optional(stars) : std::nullopt;
}

std::string entry(std::string_view key, std::string_view type, std::string_view text) {
    std::string escaped;
    for (const char character : text) {
        escaped += character == '&'   ? "&amp;"
                   : character == '<' ? "&lt;"
                   : character == '>' ? "&gt;"
                                      : std::string(1, character);
    }
    return fmt::format("\t<key>{0}</key>\n\t<{1}>{2}</{1}>\n", key, type, escaped);
}

constexpr const char* containerHint = "EF57347C-0000-11AA-AA11-00306543ECAC";

/// What is not mounted has no mount point, or an empty one.
std::string entity(const std::string& device, const fs::path& mountPoint = {}, const char* hint = "") {
    return "<dict>\n" + entry("content-hint", "string", hint) + entry("dev-entry", "string", device)
           + entry("mount-point", "string", mountPoint.string()) + "</dict>\n";
}

template <typename Images>
auto findMounted(Images& images, const fs::path& mountPoint) {
    return std::find_if(images.begin(), images.end(), [&](const ScriptedMac::Image& image) {
        return image.volume && image.volume->mountPoint == mountPoint;
    });
}

class MacStatistics final : public VolumeStatisticsReading {
public:
    explicit MacStatistics(std::shared_ptr<ScriptedMac> mac) : mac_(std::move(mac)) {}

    std::optional<VolumeStatistics> read(const fs::path& mountPoint) const override {
        const auto* volume = mac_->volumeAt(mountPoint);
        if (volume == nullptr) {
            return std::nullopt;
        }
        return VolumeStatistics{volume->name,        std::string(displayName(volume->fileSystem)),
                                volume->fileSystem,  ByteCount{1000},
                                {volume->available}, volume->passphrase.has_value()};
    }

private:
    std::shared_ptr<ScriptedMac> mac_;
};

} // namespace

ScriptedMac::ScriptedMac() {
    knowImages();
    knowVolumes();
}

void ScriptedMac::know(const char* tool, const std::string& arguments, Act act) {
    verbs_.push_back({std::string(tool) + " " + arguments, std::move(act)});
}

void ScriptedMac::knowImages() {
    using toolPaths::hdiutil;
    know(hdiutil, "info -plist", [this](auto&...) { return succeeds(infoPropertyList()); });
    know(hdiutil, "attach -nomount *", [this](auto& words, auto&) { return attach(words[0], deprecation); });
    know(hdiutil, "detach *", [this](auto& words, auto&) { return detach(words[0], Force::no); });
    know(hdiutil, "detach -force *", [this](auto& words, auto&) { return detach(words[0], Force::yes); });
    know(hdiutil, "detach -quiet -force *", [this](auto& words, auto&) {
        const auto* image = imageAt(words[0]);
        return image == nullptr ? fails(1, noSuchFile) : detach("/dev/" + image->name(), Force::yes);
    });
    know(hdiutil, "isencrypted -plist *", [this](auto& words, auto&) { return isEncrypted(words[0]); });
    know(hdiutil,
         "create -quiet -size * -type SPARSE -fs * -volname * [-encryption] [AES-256] [-stdinpass] *",
         [this](auto&... given) { return createImage(given...); });
    know(hdiutil,
         "attach -nobrowse -noautoopen -owners on -mountpoint * [-readonly] [-stdinpass] [-verbose] *",
         [this](auto&... given) { return openImage(given...); });
    know(toolPaths::diskutil, "image attach --noMount *", [this](auto& words, auto&) {
        if (newerAttach == NewerAttach::isUnknown) {
            return fails(1, "diskutil: did not recognize verb\n");
        }
        auto output = attach(words[0], {});
        images.back().isListed = newerAttach == NewerAttach::works;
        return output;
    });
}

void ScriptedMac::knowVolumes() {
    using namespace toolPaths;
    know(diskutil, "erasevolume * * *", [this](auto& words, auto&) { return eraseVolume(words); });
    know(diskutil, "apfs createContainer *", [this](auto& words, auto&) {
        auto& image = present(words[0]);
        image.container = freeDiskNumber();
        return succeeds(fmt::format("Creating container with {}\n{}disk{}\n", image.name(), containerPhrase,
                                    *image.container));
    });
    know(diskutil, "apfs addVolume * * * -stdinpassphrase", [this](auto& words, auto& passphrase) {
        const auto device = "/dev/" + words[0];
        present(device).volume = Volume{device + "s1", words[2], fileSystemOfToolName(words[1]),
                                        passphrase,    {},       "/Volumes/" + words[2]};
        return succeeds();
    });
    know(diskutil, "unmount *", [this](auto& words, auto&) {
        auto& volume = present(words[0]).volume;
        EXPECT_TRUE(volume && volume->mountPoint) << words[0] << " is not mounted";
        leave(*volume);
        return succeeds();
    });
    know(diskutil, "mount -mountPoint * *",
         [this](auto& words, auto&) { return mount(words[1], words[0], std::nullopt); });
    know(diskutil, "apfs unlockVolume * -stdinpassphrase -mountpoint *",
         [this](auto& words, auto& input) { return mount(words[0], words[1], input); });
    for (const std::string state : {"on", "off"}) {
        know(mdutil, "-i " + state + " *", [this, state](auto& words, auto&) {
            auto* image = imageAt(words[0]);
            EXPECT_NE(image, nullptr) << "nothing is mounted on " << words[0];
            image->volume->isIndexed = state == "on";
            return succeeds(words[0] + ":\n", "mdutil[512:4096] mdutil disabling Spotlight: " + words[0]);
        });
    }
}

CommandOutput ScriptedMac::run(const SystemCommand& command) {
    if (meanwhile) {
        meanwhile();
    }
    return ScriptedRunner::run(command);
}

CommandOutput ScriptedMac::otherwise(const SystemCommand& command) {
    const bool readsInput =
        std::any_of(command.arguments.begin(), command.arguments.end(),
                    [](const std::string& word) { return word.starts_with("-stdinpass"); });
    EXPECT_EQ(command.standardInput.has_value(), readsInput) << command.description();
    const bool isListing = command.arguments.front() == "info";
    EXPECT_EQ(command.timeout, isListing ? std::optional(30.0) : std::nullopt) << command.description();
    if (command.executable == toolPaths::ditto) {
        return ditto(command.arguments);
    }
    auto words = command.arguments;
    words.insert(words.begin(), command.executable);
    for (const auto& verb : verbs_) {
        if (const auto stars = starsIn(verb.pattern, words)) {
            return verb.act(*stars, command.standardInput);
        }
    }
    return ScriptedRunner::otherwise(command);
}

ScriptedMac::Image& ScriptedMac::attachForeign(const std::string& path, const std::string& volumeName) {
    auto& image = addImage(path, path.starts_with(memoryScheme) ? sectorsOf(path) : 4096);
    image.volume = Volume{"/dev/" + image.name() + "s1", volumeName, FileSystem::hfsPlus, {}, {},
                          "/Volumes/" + volumeName};
    return image;
}

void ScriptedMac::detachForeign(unsigned disk) {
    images.remove_if([disk](const Image& image) { return image.disk == disk; });
}

ScriptedMac::Image* ScriptedMac::imageOf(const std::string& device) {
    const auto found = std::find_if(images.begin(), images.end(), [&](const Image& image) {
        return image.name() == device
               || (image.container && device == "disk" + std::to_string(*image.container));
    });
    return found == images.end() ? nullptr : &*found;
}

ScriptedMac::Image& ScriptedMac::present(const std::string& devicePath) {
    for (auto& image : images) {
        const bool isVolume = image.volume && image.volume->devicePath == devicePath;
        if (isVolume || &image == imageOf(devicePath.substr(5))) {
            return image;
        }
    }
    throw std::runtime_error("no device " + devicePath);
}

ScriptedMac::Image* ScriptedMac::imageAt(const fs::path& mountPoint) {
    const auto found = findMounted(images, mountPoint);
    return found == images.end() ? nullptr : &*found;
}

const ScriptedMac::Volume* ScriptedMac::volumeAt(const fs::path& mountPoint) const {
    const auto found = findMounted(images, mountPoint);
    return found == images.end() ? nullptr : &*found->volume;
}

std::string ScriptedMac::entities(const Image& image) const {
    const auto device = "/dev/" + image.name();
    const auto mountPoint = image.volume ? image.volume->mountPoint.value_or("") : "";
    if (image.volume && image.volume->devicePath == device) {
        return entity(device, mountPoint);
    }
    const auto container = image.container ? entity(fmt::format("/dev/disk{}", *image.container), {},
                                                    hasContentHints ? containerHint : "")
                                           : "";
    const auto volume = image.volume ? entity(image.volume->devicePath, mountPoint) : "";
    return listsContainersFirst ? container + volume + entity(device) : entity(device) + container + volume;
}

std::string ScriptedMac::infoPropertyList() const {
    std::string list;
    for (const auto& image : images) {
        if (!image.isListed) {
            continue;
        }
        list += "<dict>\n\t<key>autodiskmount</key>\n\t<true/>\n"
                + entry("blockcount", "integer", std::to_string(image.sectors))
                + entry("blocksize", "integer", "512")
                + entry("hdid-pid", "integer", std::to_string(100 + image.disk))
                + entry("image-path", "string", image.path) + "\t<key>system-entities</key>\n<array>\n"
                + entities(image) + "</array>\n</dict>\n";
    }
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n<dict>\n"
           + entry("framework", "string", "683.100.3")
           + (list.empty() ? "" : "<key>images</key>\n<array>\n" + list + "</array>\n")
           + "</dict>\n</plist>\n";
}

CommandOutput ScriptedMac::attach(const std::string& address, const std::string& warning) {
    const auto& image = addImage(address, sectorsOf(address));
    return succeeds(attachesSilently ? "" : fmt::format("/dev/{:<15}\t\t\n", image.name()), warning);
}

CommandOutput ScriptedMac::eraseVolume(const Words& words) {
    auto& image = present(words[2]);
    auto device = image.name();
    const auto fileSystem = fileSystemOfToolName(words[0]);
    const auto isSmall = [](char letter) { return letter >= 'a' && letter <= 'z'; };
    if (fileSystem == FileSystem::fat32 && std::any_of(words[1].begin(), words[1].end(), isSmall)) {
        return fails(1, words[1] + " does not appear to be a valid volume name for its file system\n");
    }
    if (supportsEncryption(fileSystem)) {
        image.container = freeDiskNumber();
        device = fmt::format("disk{}s1", *image.container);
    }
    image.volume = Volume{"/dev/" + device, words[1], fileSystem, {}, {}, "/Volumes/" + words[1]};
    return succeeds();
}

CommandOutput ScriptedMac::detach(const std::string& devicePath, Force force) {
    auto* image = imageOf(devicePath.substr(5));
    if (image == nullptr) {
        return fails(1, noSuchFile);
    }
    if (image->detaching == Detaching::busy && force == Force::no) {
        return fails(16, fmt::format("hdiutil: couldn't unmount \"{}\" - Resource busy\n", image->name()));
    }
    if (image->detaching == Detaching::leavesTheList) {
        image->isListed = false;
        return fails(1, "hdiutil: detach failed - internal error\n");
    }
    if (image->volume) {
        leave(*image->volume);
    }
    if (image->detaching == Detaching::busyAfterUnmount || image->detaching == Detaching::busyAtFirst) {
        if (image->detaching == Detaching::busyAtFirst) {
            image->detaching = Detaching::works;
        }
        return fails(16, fmt::format("hdiutil: couldn't eject \"{}\" - Resource busy\n", image->name()),
                     fmt::format("\"{}\" unmounted.\n", image->name()));
    }
    const bool saysItFailed = image->detaching == Detaching::worksButSaysItFailed;
    detachForeign(image->disk);
    return saysItFailed ? fails(1, noSuchFile) : succeeds();
}

CommandOutput ScriptedMac::mount(const std::string& devicePath, const std::string& mountPoint,
                                 const Input& passphrase) {
    auto& volume = present(devicePath).volume.value();
    if (volume.passphrase != passphrase) {
        return fails(1, "Error unlocking APFS Volume: The passphrase is incorrect (-69549)\n");
    }
    EXPECT_FALSE(volume.mountPoint) << devicePath << " is mounted already";
    EXPECT_TRUE(fs::is_empty(mountPoint)) << mountPoint;
    writeFile(fs::path(mountPoint) / mountedFile, devicePath);
    volume.mountPoint = mountPoint;
    return succeeds();
}

void ScriptedMac::leave(Volume& volume) {
    if (volume.mountPoint) {
        std::error_code ignored;
        if (volume.files) {
            fs::rename(*volume.mountPoint, *volume.files);
            fs::create_directory(*volume.mountPoint);
        }
        fs::remove(*volume.mountPoint / mountedFile, ignored);
        volume.mountPoint.reset();
    }
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

VolumeMark::Reading ScriptedMac::read(const fs::path& volume) const {
    const auto* found = volumeAt(volume);
    return markReading(found == nullptr ? std::nullopt : found->mark);
}

void ScriptedMac::write(const fs::path& volume, const UUID& instance) {
    auto* image = imageAt(volume);
    if (image == nullptr) {
        throw std::system_error(ENOENT, std::generic_category(), "Could not mark " + volume.string());
    }
    image->volume->mark = instance.text();
}

std::optional<std::uint64_t> ScriptedMac::identifier(const std::string& bsdName) {
    const auto* image = imageOf(bsdName);
    return image == nullptr ? std::nullopt : std::optional(image->attachment);
}

std::optional<ByteCount> ScriptedMac::footprint(std::int32_t processID) const {
    return ByteCount::of(static_cast<std::uint64_t>(processID), ByteCount::Unit::mebibyte);
}

std::set<std::string> ScriptedMac::volumeNames(const std::optional<fs::path>& excluding) const {
    std::set<std::string> names;
    for (const auto& image : images) {
        if (image.volume && image.volume->mountPoint && image.volume->mountPoint != excluding) {
            names.insert(image.volume->name);
        }
    }
    return names;
}

VolumePassphrase ScriptedMac::generate() {
    secrets.push_back(fmt::format("hush-{}-hush", secrets.size()));
    return VolumePassphrase(secrets.back());
}

std::optional<MountedVolume> ScriptedMac::mountedVolume(const fs::path& location) {
    const auto* image = imageAt(location);
    return image == nullptr ? std::nullopt : std::optional(MountedVolume{"apfs", image->attachment});
}

MacAdapters adaptersOn(const std::shared_ptr<ScriptedMac>& mac, const fs::path& privateDirectory) {
    const auto close = [mac](const DeviceIdentifier& device) {
        mac->closedDevices.push_back(device.bsdName());
        return !mac->openDevices.contains(device.bsdName());
    };
    return {.runner = mac,
            .privateMounts = std::make_shared<PrivateMounts>(privateDirectory, close),
            .marks = mac,
            .media = mac,
            .statistics = std::make_shared<MacStatistics>(mac),
            .footprints = mac,
            .memory = std::make_shared<FakeMachine>(),
            .volumes = mac,
            .passphrases = mac,
            .detachPause = {}};
}

} // namespace ramdisk::test
