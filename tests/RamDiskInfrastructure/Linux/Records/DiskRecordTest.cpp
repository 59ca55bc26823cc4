#include "RamDiskInfrastructure/Commands/SystemCallError.h"
#include "RamDiskInfrastructure/Linux/Records/DiskRecordStore.h"
#include "tests/support/Linux/KillLoop.h"
#include "tests/support/Linux/TestMachine.h"

#include <gmock/gmock.h>

#include <array>
#include <set>
#include <thread>

#include <unistd.h>

namespace ramdisk {
namespace {

using testing::IsEmpty;
using testing::SizeIs;

DiskRecord sample() {
    auto record = DiskRecord::draft();
    record.device = DeviceIdentifier::wholeDisk(3);
    record.owner = 1000;
    record.state = RecordState::settled;
    record.size = {std::uint64_t{1} << 40U};
    record.name = "Scratch";
    record.mountPoint = "/media/Scratch";
    return record;
}

TEST(DiskRecord, SurvivesBeingWritten) {
    std::vector<DiskRecord> records(6, sample());
    records[0].state = RecordState::detaching;
    records[0].heldDevice = 77;
    records[0].heldBytes = {4096};
    records[1].name = "Zoë 🚀\n\"quoted\" \\";
    records[1].mountPoint = "/media/" + records[1].name;
    records[2].name = "\xff\xfe not \xc3";
    records[2].mountPoint = "/media/\xff";
    records[3].kind = VolumeKind::folder;
    records[3].access = VolumeAccess::onlyMe;
    records[3].state = RecordState::making;
    records[4].kind = VolumeKind::loop;
    records[4].fileSystem = FileSystem::apfsCaseSensitive;
    records[4].isEncrypted = true;
    records[5].owner = 4294967294U;
    records[5].size = {~std::uint64_t{0}};
    records[5].name = std::string("nul\0inside", 10);
    records[5].mountPoint.clear();
    for (const auto& record : records) {
        EXPECT_EQ(decodeRecord(encodeRecord(record), record.device), record) << record.name;
    }
}

TEST(DiskRecord, ForeignAndDamagedTextIsNoRecord) {
    const auto good = nlohmann::json::parse(encodeRecord(sample()));
    std::vector<std::string> texts{"", "{", "[]", "null", "7", "\"text\"", "\xff", std::string(200000, '[')};
    const auto spoilt = [&](const char* key, const nlohmann::json& value) {
        auto json = good;
        json[key] = value;
        texts.push_back(json.dump());
    };
    for (const auto& [key, value] : good.items()) {
        auto json = good;
        json.erase(key);
        texts.push_back(json.dump());
        spoilt(key.c_str(), nullptr);
        spoilt(key.c_str(), nlohmann::json::array({1}));
    }
    spoilt("size", -1);
    spoilt("size", 1.5);
    spoilt("size", "8");
    spoilt("owner", -1);
    spoilt("owner", 4294967296U * 2);
    spoilt("uuid", "not a uuid");
    spoilt("kind", "floppy");
    spoilt("state", "detaching");
    spoilt("name", {{"bytes", "zz"}});
    spoilt("name", {{"bytes", "abc"}});
    // A name is the last part of a path below which files are counted and shown.
    for (const char* name : {"a/../../etc", "/etc", "..", "."}) {
        spoilt("name", name);
    }
    for (const auto& text : texts) {
        EXPECT_EQ(decodeRecord(text, DeviceIdentifier::wholeDisk(3)), std::nullopt) << text.substr(0, 300);
    }
}

TEST(DiskRecordStore, ReadsOnlyRegularFilesOfTheRightSizeAndWriter) {
    const test::TestMachine machine;
    const auto folder = machine.records();
    std::filesystem::create_directory(folder);
    const DiskRecordStore store(folder);
    const auto text = encodeRecord(sample());
    test::writeFile(folder / "disk4.json", text);
    test::writeFile(folder / "disk04.json", text);
    test::writeFile(folder / "disk99999999999.json", text);
    test::writeFile(folder / "disk5.json.new", text);
    std::filesystem::create_symlink("disk4.json", folder / "disk6.json");
    ASSERT_EQ(mkfifo((folder / "disk7.json").c_str(), 0600), 0);
    test::writeFile(folder / "disk8.json", text);
    std::filesystem::resize_file(folder / "disk8.json", std::uintmax_t{1} << 42U);
    if (geteuid() == 0) {
        test::writeFile(folder / "disk9.json", text);
        ASSERT_EQ(chown((folder / "disk9.json").c_str(), test::nobody, test::nobody), 0);
    }
    const auto records = store.readAll();
    ASSERT_THAT(records, SizeIs(1));
    EXPECT_EQ(records[0].device.bsdName(), "disk4");
    EXPECT_THAT(DiskRecordStore(machine.folder() / "missing").readAll(), IsEmpty());
    // What could not be read is not written either.
    const auto used = store.usedNumbers();
    for (const auto& name : {std::string(40000, '\xff'), std::string("..")}) {
        auto record = sample();
        record.name = name;
        EXPECT_THROW(static_cast<void>(store.claim(record, {}, getegid())), SystemCallError);
        EXPECT_EQ(store.usedNumbers(), used);
    }
}

TEST(DiskRecordStore, ThreadsAndProcessesNeverShareANumberNorLoseAnUpdate) {
    const test::TestMachine machine;
    const auto work = [&machine](int rounds) {
        const DiskRecordStore store(machine.records());
        for (int round = 0; round < rounds; ++round) {
            auto hold = store.claim(sample(), {1, 3}, getegid());
            if (hold.record.device.bsdName() == "disk1" || hold.record.device.bsdName() == "disk3") {
                return 1;
            }
            hold.record.name = "Renamed";
            {
                const auto lock = store.lockNames();
                store.update(hold);
            }
            const auto all = store.readAll();
            const auto mine = std::find_if(all.begin(), all.end(), [&](const DiskRecord& record) {
                return record.uuid == hold.record.uuid;
            });
            if (mine == all.end() || mine->device != hold.record.device || mine->name != "Renamed"
                || store.tryHold(*mine)) {
                return 2;
            }
            if (round % 2 == 0) {
                store.remove(std::move(hold));
            }
        }
        return 0;
    };
    // The processes first: each would inherit the locks that a thread holds just then, and keep them.
    std::array<pid_t, 3> children{};
    for (auto& child : children) {
        child = fork();
        if (child == 0) {
            _exit(work(20));
        }
    }
    std::vector<int> results(6, -1);
    std::vector<std::thread> threads;
    for (std::size_t index = 0; index < 3; ++index) {
        threads.emplace_back([&, index] { results[index] = work(20); });
    }
    for (std::size_t index = 0; index < 3; ++index) {
        results[index + 3] = test::waitFor(children.at(index));
        threads[index].join();
    }
    EXPECT_THAT(results, testing::Each(0));
    const DiskRecordStore store(machine.records());
    const auto left = store.readAll();
    EXPECT_THAT(left, SizeIs(6 * 10));
    std::set<UUID> distinct;
    for (const auto& record : left) {
        distinct.insert(record.uuid);
        // Whoever held it is gone.
        EXPECT_TRUE(store.tryHold(record).has_value());
    }
    EXPECT_THAT(distinct, SizeIs(60));
}

TEST(DiskRecordStore, KilledWhileWorkingItKeepsOneWholeRecord) {
    const test::TestMachine machine;
    const DiskRecordStore store(machine.records());
    store.remove(store.claim(sample(), {}, getegid()));
    const auto work = [&] {
        auto hold = store.claim(sample(), {}, getegid());
        for (unsigned size = 1; size < 5; ++size) {
            hold.record.size = {size};
            hold.record.name = std::string(size, 'x');
            store.update(hold);
        }
        store.remove(std::move(hold));
    };
    const auto check = [&](std::optional<int> status) {
        EXPECT_EQ(status.value_or(0), 0);
        for (const auto& record : store.readAll()) {
            EXPECT_TRUE(record.name == "Scratch" || record.name.size() == record.size.bytes);
            auto hold = store.tryHold(record);
            ASSERT_TRUE(hold.has_value());
            store.update(*hold); // Whatever a killed one left in its way.
            store.remove(std::move(*hold));
        }
        // What the next one does clears away what a killed one left.
        store.remove(store.claim(sample(), {}, getegid()));
        EXPECT_THAT(std::distance(std::filesystem::directory_iterator(machine.records()), {}), 0);
    };
    test::killAtEveryCall({[] {}, work, check});
}

} // namespace
} // namespace ramdisk
