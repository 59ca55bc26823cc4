#include "RamDiskInfrastructure/MacTools/MacAdapters.h"
#include "tests/support/ScriptedMac.h"

#include <fmt/format.h>

#include <system_error>

namespace ramdisk::test {

namespace {

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

std::shared_ptr<const VolumeStatisticsReading> statisticsOn(const std::shared_ptr<ScriptedMac>& mac) {
    return std::make_shared<MacStatistics>(mac);
}

std::optional<MountedVolume> mountedOn(ScriptedMac& mac, const std::filesystem::path& location) {
    for (const auto& image : mac.images) {
        if (image.volume && image.volume->mountPoint == location) {
            return MountedVolume{"apfs", image.attachment};
        }
    }
    return std::nullopt;
}

RamDiskServices servicesOn(const std::shared_ptr<ScriptedMac>& mac,
                           const std::filesystem::path& privateDirectory,
                           RamDeviceAllocator::AttachMethod method) {
    MacAdapters adapters{.runner = mac,
                         .method = method,
                         .privateMounts = privateMountsOn(mac, privateDirectory),
                         .marks = marksOn(mac),
                         .media = mediaOn(mac),
                         .statistics = statisticsOn(mac),
                         .footprints = std::make_shared<MacFootprints>(),
                         .memory = std::make_shared<MacMemory>(),
                         .volumes = std::make_shared<MacVolumes>(mac),
                         .passphrases = std::make_shared<MacPassphrases>(mac)};
    return makeMacServices(adapters);
}

} // namespace ramdisk::test
