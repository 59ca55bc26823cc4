#include "RamDiskInfrastructure/MacTools/HDIUtilImages.h"

#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskCore/Values/RamDiskError.h"
#include "RamDiskCore/Values/Text.h"
#include "RamDiskCore/Values/UUID.h"
#include "RamDiskInfrastructure/Commands/SecretInput.h"
#include "RamDiskInfrastructure/Commands/SystemCallError.h"
#include "RamDiskInfrastructure/MacTools/AttachedImageListing.h"
#include "RamDiskInfrastructure/MacTools/ToolOutput.h"
#include "RamDiskInfrastructure/MacTools/ToolPaths.h"
#include "RamDiskInfrastructure/Stores/StoredFile.h"

#include <algorithm>
#include <thread>
#include <utility>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

namespace ramdisk {

namespace {

constexpr std::string_view mountPointPrefix = "RamDisk-";
constexpr unsigned bitsOfAMebibyte = 20;

SystemCommand hdiutil(std::vector<std::string> arguments) {
    return {toolPaths::hdiutil, std::move(arguments), std::nullopt, std::nullopt};
}

CommandOutput runWith(CommandRunning& runner, const SystemCommand& command,
                      const VolumePassphrase* passphrase) {
    return passphrase == nullptr ? runner.runChecked(command)
                                 : runWithSecretInput(runner, command, passphrase->value());
}

/// Whether both paths lead to one file or folder. The tool resolves links in the paths that it lists.
bool areTheSame(const std::filesystem::path& left, const std::filesystem::path& right) {
    std::error_code error;
    return decomposed(standardized(left)) == decomposed(standardized(right))
           || (std::filesystem::equivalent(left, right, error) && !error);
}

bool isMountedAt(const HDIUtilInfoParser::Image& image, const std::filesystem::path& mountPoint) {
    for (const auto& entity : image.systemEntities) {
        if (entity.mountPoint && areTheSame(*entity.mountPoint, mountPoint)) {
            return true;
        }
    }
    return false;
}

} // namespace

HDIUtilImages::HDIUtilImages(Ports ports) : ports_(std::move(ports)) {}

void HDIUtilImages::create(const std::filesystem::path& image, ByteCount size, const std::string& volumeName,
                           const VolumePassphrase* passphrase) const {
    std::vector<std::string> arguments{
        "create",   "-quiet",  "-size", std::to_string(size.bytes >> bitsOfAMebibyte) + "m",
        "-type",    "SPARSE",  "-fs",   "Case-sensitive APFS",
        "-volname", volumeName};
    if (passphrase != nullptr) {
        arguments.insert(arguments.end(), {"-encryption", "AES-256", "-stdinpass"});
    }
    arguments.push_back(image.string());
    runWith(*ports_.runner, hdiutil(std::move(arguments)), passphrase);
}

bool HDIUtilImages::isEncrypted(const std::filesystem::path& image) const {
    try {
        const auto output = ports_.runner->runChecked(hdiutil({"isencrypted", "-plist", image.string()}));
        const auto list = PropertyList::parse(output.standardOutput);
        const auto encrypted = list.root().find("encrypted");
        return encrypted && encrypted->boolean();
    } catch (const std::exception& error) {
        traceCaught("images", "the image counts as unreadable");
        throw RamDiskError(RamDiskError::ImageUnreadable{error.what()});
    }
}

std::optional<HDIUtilInfoParser::Image> HDIUtilImages::openState(const std::filesystem::path& image) const {
    HDIUtilInfoParser::Info info;
    try {
        info = attachedImages(*ports_.runner);
    } catch (const std::exception& error) {
        traceCaught("images", "whether the image is open is not known");
        throw RamDiskError(RamDiskError::ImageStateUnknown{error.what()});
    }
    for (auto& open : info.images) {
        if (open.imagePath && areTheSame(*open.imagePath, image)) {
            return std::move(open);
        }
    }
    return std::nullopt;
}

AttachedImage HDIUtilImages::open(const std::filesystem::path& image, Access access,
                                  const VolumePassphrase* passphrase) const {
    const auto mountPoint = makeMountPoint();
    std::vector<std::string> arguments{"attach", "-nobrowse",   "-noautoopen",      "-owners",
                                       "on",     "-mountpoint", mountPoint.string()};
    if (access == Access::readOnly) {
        arguments.emplace_back("-readonly");
    }
    if (passphrase != nullptr) {
        arguments.insert(arguments.end(), {"-stdinpass", "-verbose"});
    }
    arguments.push_back(image.string());
    try {
        runWith(*ports_.runner, hdiutil(std::move(arguments)), passphrase);
        return attached(image, mountPoint);
    } catch (const CommandFailure& failure) {
        traceCaught("images", "the image could not be opened");
        closeMountPoint(mountPoint);
        if (passphrase != nullptr && saysWrongPassphrase(failure.output())) {
            throw RamDiskError(RamDiskError::IncorrectPassphrase{});
        }
        throw RamDiskError(RamDiskError::ImageUnreadable{failure.what()});
    } catch (const std::exception&) {
        closeMountPoint(mountPoint);
        throw;
    }
}

AttachedImage HDIUtilImages::attached(const std::filesystem::path& image,
                                      const std::filesystem::path& mountPoint) const {
    const auto state = openState(image);
    const auto device = state ? state->device() : std::nullopt;
    const auto volume = ports_.volumeAt(mountPoint);
    if (device && volume && isMountedAt(*state, mountPoint)) {
        return {mountPoint, *device, *volume, ports_.media->identifier(device->bsdName()).value_or(0)};
    }
    if (device) {
        // The tool may attach an image and yet mount nothing.
        try {
            detach(*device, Force::yes);
        } catch (const std::exception&) {
            traceCaught("images", "an image that was attached without a volume stays attached");
        }
    }
    throw RamDiskError(RamDiskError::ImageUnreadable{"hdiutil attached it, and no volume was mounted."});
}

bool HDIUtilImages::isMounted(const AttachedImage& image) const {
    return ports_.volumeAt(image.mountPoint) == image.volume
           && ports_.media->identifier(image.device.bsdName()).value_or(0) == image.attachment;
}

bool HDIUtilImages::isAttached(const AttachedImage& image) const {
    if (image.attachment != 0 && ports_.media->identifier(image.device.bsdName()) == image.attachment) {
        return true;
    }
    const auto open = attachedImages(*ports_.runner).images;
    return std::any_of(open.begin(), open.end(), [&image](const HDIUtilInfoParser::Image& candidate) {
        return candidate.has(image.device);
    });
}

HDIUtilImages::Closing HDIUtilImages::detachAll(const AttachedImage& image, Force force) const {
    for (int attempt = 1;; ++attempt) {
        try {
            detach(image.device, force);
            return Closing::closed;
        } catch (const std::exception&) {
            // It may have worked all the same; the list and the registry know.
            traceCaught("images", "whether the detach worked is read from the list");
        }
        if (!isAttached(image)) {
            return Closing::closed;
        }
        if (attempt == detachAttempts || isMounted(image)) {
            return Closing::leftOpen;
        }
        std::this_thread::sleep_for(ports_.detachPause);
    }
}

HDIUtilImages::Closing HDIUtilImages::close(const AttachedImage& image, Force force) const noexcept {
    try {
        if (ports_.media->identifier(image.device.bsdName()).value_or(0) == image.attachment
            && detachAll(image, force) == Closing::leftOpen) {
            return Closing::leftOpen;
        }
        ::rmdir(image.mountPoint.c_str());
        return Closing::closed;
    } catch (const std::exception&) {
        traceCaught("images", "the image counts as left open");
        return Closing::leftOpen;
    }
}

bool HDIUtilImages::closeAbandoned(const std::filesystem::path& image) const noexcept {
    try {
        const auto state = openState(image);
        if (!state) {
            return true;
        }
        const auto device = state->device();
        const auto mountPoint = state->mountPoint();
        if (!device || !mountPoint || !isOurs(*mountPoint)) {
            return false;
        }
        detach(*device, Force::yes);
        ::rmdir(mountPoint->c_str());
        return true;
    } catch (const std::exception&) {
        traceCaught("images", "an abandoned image stays open");
        return false;
    }
}

std::filesystem::path HDIUtilImages::makeMountPoint() const {
    makeFolders(ports_.mountFolder);
    auto mountPoint = std::filesystem::canonical(ports_.mountFolder)
                      / (std::string(mountPointPrefix) + UUID::random().text());
    if (::mkdir(mountPoint.c_str(), S_IRWXU) != 0) {
        throw SystemCallError("make the folder", mountPoint);
    }
    return mountPoint;
}

bool HDIUtilImages::isOurs(const std::filesystem::path& mountPoint) const {
    const auto name = mountPoint.filename().string();
    return name.starts_with(mountPointPrefix) && UUID::parse(name.substr(mountPointPrefix.size()))
           && areTheSame(mountPoint.parent_path(), ports_.mountFolder);
}

void HDIUtilImages::closeMountPoint(const std::filesystem::path& mountPoint) const noexcept {
    try {
        // Whether anything is mounted there is not known; mostly nothing is.
        static_cast<void>(ports_.runner->run(hdiutil({"detach", "-quiet", "-force", mountPoint.string()})));
    } catch (const std::exception&) {
        traceCaught("images", "what may be mounted there stays");
    }
    ::rmdir(mountPoint.c_str());
}

void HDIUtilImages::detach(const DeviceIdentifier& device, Force force) const {
    std::vector<std::string> arguments{"detach"};
    if (force == Force::yes) {
        arguments.emplace_back("-force");
    }
    arguments.push_back(pathOfDevice(device));
    ports_.runner->runChecked(hdiutil(std::move(arguments)));
}

} // namespace ramdisk
