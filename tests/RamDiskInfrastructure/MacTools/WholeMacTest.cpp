#include "tests/RamDiskInfrastructure/MacTools/MacTest.h"

#include <fmt/format.h>
#include <gtest/gtest-spi.h>

namespace ramdisk {
namespace {

using test::ScriptedMac;

TEST(ScriptedMacTest, WhatNobodyExpectsFailsTheTest) {
    const SystemCommand burn{"/usr/bin/hdiutil", {"burn"}, std::nullopt, std::nullopt};
    EXPECT_NONFATAL_FAILURE((void)ScriptedMac().run(burn), "no script for: /usr/bin/hdiutil burn");
    EXPECT_NONFATAL_FAILURE(ScriptedMac().once(burn.description()), "nobody ran: /usr/bin/hdiutil burn");
    ScriptedMac mac;
    mac.secrets.emplace_back("burn");
    mac.once(burn.description());
    EXPECT_NONFATAL_FAILURE((void)mac.run(burn), "a secret in: /usr/bin/hdiutil burn");
}

/// One Mac on which our disks and other programs' come and go in a random order.
class Schedule {
public:
    Schedule(std::shared_ptr<ScriptedMac> mac, const MacAdapters& adapters, std::uint32_t seed)
        : mac_(std::move(mac)),
          services_(makeMacServices(adapters)),
          random_(seed) {
        mac_->listsContainersFirst = below(2) == 0;
        mac_->hasContentHints = below(2) == 0;
        mac_->containerPhrase = below(2) == 0 ? "Disk from APFS operation: " : "Volume von APFS-Vorgang: ";
        mac_->meanwhile = [this] { meddle(); };
    }
    Schedule(const Schedule&) = delete;
    Schedule& operator=(const Schedule&) = delete;
    ~Schedule() { mac_->meanwhile = nullptr; }

    void step() {
        const auto what = below(6);
        what < 3 ? create() : what < 5 ? ejectOne() : ejectAll();
        expectAgreement();
    }

    std::size_t finish() {
        // An eject that works also clears up the mount points of those that did not.
        create();
        for (auto& image : mac_->images) {
            image.detaching = ScriptedMac::Detaching::works;
            image.isListed = true;
        }
        EXPECT_TRUE(services_.eject->ejectAll(Force::no).failures.empty());
        ours_.clear();
        expectAgreement();
        return made_;
    }

private:
    std::size_t below(std::size_t limit) {
        return std::uniform_int_distribution<std::size_t>(0, limit - 1)(random_);
    }

    void meddle() {
        if (below(4) == 0) {
            const auto name = fmt::format("Foreign {}", counter_++);
            foreign_.insert(
                mac_->attachForeign(below(2) == 0 ? "ram://4096" : "/Users/me/" + name + ".dmg", name).disk);
        } else if (!foreign_.empty() && below(3) == 0) {
            const auto gone =
                std::next(foreign_.begin(), static_cast<std::ptrdiff_t>(below(foreign_.size())));
            mac_->detachForeign(*gone);
            foreign_.erase(gone);
        }
    }

    void create() {
        RamDiskSpecification wanted;
        wanted.name = fmt::format("Disk <{}>", counter_++);
        wanted.fileSystem = allFileSystems[below(allFileSystems.size())];
        if (wanted.fileSystem == FileSystem::fat32) {
            wanted.name = fmt::format("d{}", counter_);
        }
        const auto shown =
            wanted.fileSystem == FileSystem::fat32 ? fmt::format("D{}", counter_) : wanted.name;
        wanted.size = ByteCount{(std::uint64_t{64} << 20U) + below(1U << 20U)};
        wanted.isEncrypted = supportsEncryption(wanted.fileSystem) && below(2) == 0;
        wanted.access = below(2) == 0 ? VolumeAccess::onlyMe : VolumeAccess::everyone;
        wanted.isIndexingEnabled = below(2) == 0;
        mac_->newerAttach = static_cast<ScriptedMac::NewerAttach>(below(3));
        // What neither the tool nor the list names, nobody could find.
        mac_->attachesSilently = mac_->newerAttach != ScriptedMac::NewerAttach::isNotListed && below(4) == 0;
        const auto disk = services_.create->execute(wanted).ramDisk;
        ++made_;
        EXPECT_EQ(disk.name, shown);
        EXPECT_EQ(disk.capacity.bytes, (wanted.size.bytes + 511) / 512 * 512);
        EXPECT_EQ(disk.fileSystem, wanted.fileSystem);
        EXPECT_EQ(disk.isEncrypted, wanted.isEncrypted);
        EXPECT_EQ(disk.access, wanted.access);
        auto* image = mac_->imageOf(disk.device.bsdName());
        ASSERT_NE(image, nullptr);
        EXPECT_EQ(image->volume->isIndexed, wanted.isIndexingEnabled);
        EXPECT_EQ(image->volume->passphrase.has_value(), wanted.isEncrypted);
        if (wanted.isEncrypted) {
            EXPECT_EQ(image->volume->passphrase, mac_->secrets.back());
        }
        EXPECT_EQ(image->volume->mark, disk.instance.value().text());
        expectNodesClosed(*image, wanted.access);
        image->detaching = static_cast<ScriptedMac::Detaching>(below(6));
        ours_.insert(*disk.attachment);
    }

    /// Every node through which another account could read a private disk is closed, and no other one.
    void expectNodesClosed(const ScriptedMac::Image& image, VolumeAccess access) {
        std::set<std::string> nodes;
        if (access == VolumeAccess::onlyMe) {
            nodes = {image.name(), image.volume->devicePath.substr(5)};
            if (image.container) {
                nodes.insert("disk" + std::to_string(*image.container));
            }
        }
        EXPECT_EQ(std::set(mac_->closedDevices.begin(), mac_->closedDevices.end()), nodes);
        mac_->closedDevices.clear();
    }

    void ejectOne() {
        const auto disks = services_.list->list();
        const auto ours = std::find_if(disks.begin(), disks.end(),
                                       [](const RamDisk& disk) { return disk.isCreatedByRamDisk; });
        if (ours == disks.end()) {
            return;
        }
        using Detaching = ScriptedMac::Detaching;
        const auto force = below(2) == 0 ? Force::yes : Force::no;
        const auto detaching = mac_->imageOf(ours->device.bsdName())->detaching;
        const bool works = detaching == Detaching::works || detaching == Detaching::busyAtFirst
                           || (detaching == Detaching::busy && force == Force::yes);
        try {
            services_.eject->eject(*ours, force);
            EXPECT_TRUE(works) << "forced, or taken for done";
        } catch (const RamDiskError& error) {
            EXPECT_FALSE(works) << "not forced";
            settle(*ours, error);
        }
        ours_.erase(*ours->attachment);
    }

    void ejectAll() {
        const auto result = services_.eject->ejectAll(Force::no);
        EXPECT_EQ(result.ejected.size(), result.outcomes.size());
        for (const auto& disk : result.ejected) {
            ours_.erase(*disk.attachment);
        }
        for (const auto& failure : result.failures) {
            settle(failure.ramDisk, failure.error);
            ours_.erase(*failure.ramDisk.attachment);
        }
    }

    /// A failed eject says which it was: gone after all, or busy and to be had once nobody uses it.
    void settle(const RamDisk& disk, const RamDiskError& error) {
        auto* image = mac_->imageOf(disk.device.bsdName());
        const bool isAttached = image != nullptr && image->attachment == disk.attachment;
        EXPECT_EQ(isAttached, std::holds_alternative<RamDiskError::EjectFailed>(error.value()));
        if (isAttached) {
            EXPECT_EQ(std::get<RamDiskError::EjectFailed>(error.value()).obstacle,
                      image->isListed ? EjectObstacle::busy : EjectObstacle::other);
            image->detaching = ScriptedMac::Detaching::works;
            image->isListed = true;
            services_.eject->eject(disk, Force::no);
        }
    }

    /// What is attached is exactly what the use cases said, and nobody else's disk was touched.
    void expectAgreement() {
        std::set<std::uint64_t> attached;
        std::set<unsigned> foreign;
        for (const auto& image : mac_->images) {
            if (image.volume && image.volume->mark) {
                attached.insert(image.attachment);
            } else {
                foreign.insert(image.disk);
            }
        }
        EXPECT_EQ(attached, ours_);
        EXPECT_EQ(foreign, foreign_);
    }

    std::shared_ptr<ScriptedMac> mac_;
    RamDiskServices services_;
    std::mt19937 random_;
    std::set<std::uint64_t> ours_;
    std::set<unsigned> foreign_;
    std::size_t made_ = 0;
    int counter_ = 0;
};

TEST(WholeMacTest, ForeignDisksComeAndGoUnharmedAroundOurs) {
    using Method = RamDeviceAllocator::AttachMethod;
    std::size_t made = 0;
    for (std::uint32_t seed = 1; seed <= 40 && !testing::Test::HasFailure(); ++seed) {
        SCOPED_TRACE(seed);
        const test::ScratchFolder folder;
        const auto mac = std::make_shared<ScriptedMac>();
        auto adapters = test::adaptersOn(mac, folder.path() / "RamDisks");
        adapters.method = seed % 2 == 0 ? Method::classic : Method::diskImages2;
        Schedule schedule(mac, adapters, seed);
        for (int step = 0; step < 25 && !testing::Test::HasFailure(); ++step) {
            schedule.step();
        }
        made += schedule.finish();
        const auto mounts = folder.path() / "RamDisks";
        EXPECT_TRUE(!std::filesystem::exists(mounts) || std::filesystem::is_empty(mounts));
    }
    EXPECT_GT(made, 400U);
}

} // namespace
} // namespace ramdisk
