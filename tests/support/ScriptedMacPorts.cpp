#include "tests/support/ScriptedMac.h"

#include <fmt/format.h>

#include <system_error>

namespace ramdisk::test {

namespace {

class MacStatistics final : public VolumeStatisticsReading {
public:
    explicit MacStatistics(std::shared_ptr<ScriptedMac> mac) : mac_(std::move(mac)) {}

    std::optional<VolumeStatistics> read(const std::filesystem::path& mountPoint) const override {
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

VolumeMark::Reading ScriptedMac::read(const std::filesystem::path& volume) const {
    const auto* found = volumeAt(volume);
    return markReading(found == nullptr ? std::nullopt : found->mark);
}

void ScriptedMac::write(const std::filesystem::path& volume, const UUID& instance) {
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

SystemMemory ScriptedMac::read() const {
    SystemMemory memory;
    memory.physical = memory.available = ByteCount::of(64, ByteCount::Unit::gibibyte);
    return memory;
}

std::set<std::string> ScriptedMac::volumeNames(const std::optional<std::filesystem::path>& excluding) const {
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

std::optional<MountedVolume> ScriptedMac::mountedVolume(const std::filesystem::path& location) {
    const auto* image = imageAt(location);
    return image == nullptr ? std::nullopt : std::optional(MountedVolume{"apfs", image->attachment});
}

MacAdapters adaptersOn(const std::shared_ptr<ScriptedMac>& mac,
                       const std::filesystem::path& privateDirectory) {
    const auto close = [mac](const DeviceIdentifier& device) {
        mac->closedDevices.push_back(device.bsdName());
        return mac->canCloseDevices;
    };
    return {.runner = mac,
            .privateMounts = std::make_shared<PrivateMounts>(privateDirectory, close),
            .marks = mac,
            .media = mac,
            .statistics = std::make_shared<MacStatistics>(mac),
            .footprints = mac,
            .memory = mac,
            .volumes = mac,
            .passphrases = mac};
}

} // namespace ramdisk::test
