#include "tests/support/Linux/TestMachine.h"

namespace ramdisk::test {
namespace {

constexpr const char* foreignUUID = "11111111-2222-4333-8444-555555555555";

nlohmann::json forged(const std::string& kind, const std::string& mountPoint,
                      const std::string& state = "settled") {
    return {{"uuid", foreignUUID},
            {"instance", foreignUUID},
            {"owner", 0},
            {"state", state},
            {"kind", kind},
            {"size", 8 << 20},
            {"name", "Forged"},
            {"fileSystem", "hfs+"},
            {"access", "everyone"},
            {"isEncrypted", false},
            {"mountPoint", mountPoint},
            {"heldDevice", 7},
            {"heldBytes", 7}};
}

TEST(ForeignThings, AreNeverListedNorEjected) {
    SKIP_UNLESS_ROOT();
    const TestMachine machine;
    const auto theirs = machine.folder() / "theirs";
    const auto below = machine.media() / "Below";
    fs::create_directories(below);
    fs::create_directory(theirs);
    const auto source = std::string("ramdisk-") + foreignUUID;
    ASSERT_EQ(mount(source.c_str(), theirs.c_str(), "tmpfs", 0, "size=1M"), 0);
    ASSERT_EQ(mount("tmpfs", below.c_str(), "tmpfs", 0, "size=1M"), 0);
    const auto folder = fs::path("/dev/shm") / source;
    fs::create_directory(folder);
    writeFile(folder / "file", "theirs");
    writeFile(theirs / "file", "theirs");
    EXPECT_THAT(machine.list(), IsEmpty());
    for (const auto& reference :
         {theirs.string(), below.string(), std::string("Below"), folder.string(), source}) {
        EXPECT_EQ(machine.run({"eject", "--force", reference}).err,
                  "tramdisk: No RAM disk matches “" + reference + "”.\n");
    }
    EXPECT_EQ(machine.run({"eject", "--all", "--force"}).status, 0);
    // Their names are taken all the same.
    EXPECT_EQ(machine.run({"create", "--size", "4M", "--name", "BELOW"}).err,
              "tramdisk: A volume named “BELOW” is already mounted.\n");
    EXPECT_EQ(readFile(theirs / "file") + readFile(folder / "file"), "theirstheirs");
    EXPECT_EQ(mountsWith("size=1024k").size(), 2U);
    fs::remove_all(folder);
    umount2(theirs.c_str(), 0);
}

TEST(ForeignThings, RecordsOfNothingAreDroppedAndTouchNothing) {
    SKIP_UNLESS_ROOT();
    const TestMachine machine;
    const auto empty = machine.folder() / "empty";
    const auto full = machine.folder() / "full";
    fs::create_directory(empty);
    fs::create_directory(full);
    writeFile(full / "file", "theirs");
    machine.create("Real");
    for (const std::string kind : {"tmpfs", "folder", "loop"}) {
        for (const std::string state : {"making", "settled", "detaching"}) {
            for (const auto& path : {full, empty, fs::path(), fs::path("relative"), fs::path("/")}) {
                if (state == "making" && path == empty) {
                    continue; // Just what a maker leaves that was killed after it made its folder.
                }
                writeFile(machine.records() / "disk9.json", forged(kind, path.string(), state).dump());
                EXPECT_EQ(machine.list().size(), 1U) << kind << state << path;
                EXPECT_EQ(machine.run({"eject", "disk9", "--force"}).status, 1) << kind << state << path;
                EXPECT_TRUE(fs::exists(empty)) << kind << state << path;
                EXPECT_EQ(readFile(full / "file"), "theirs");
            }
        }
    }
    const std::vector<std::string> damaged{"",
                                           "{",
                                           "null",
                                           "[1,2]",
                                           "\xff\xff",
                                           R"({"size":-1})",
                                           std::string(100000, '['),
                                           forged("tmpfs", "/").dump().substr(0, 100)};
    for (const auto& text : damaged) {
        writeFile(machine.records() / "disk9.json", text);
        EXPECT_EQ(machine.list().size(), 1U) << text.substr(0, 50);
        EXPECT_EQ(machine.create("Next").at("device").at("bsdName"), "disk2");
        EXPECT_EQ(machine.run({"eject", "Next"}).status, 0);
    }
    EXPECT_EQ(machine.run({"eject", "--all"}).status, 0);
}

TEST(ForeignThings, WhatAUserForgesMakesRootHarmNobody) {
    SKIP_UNLESS_ROOT();
    // Root looks into the records that users keep on /dev/shm; this one is hostile.
    TestMachine machine;
    machine.environment = {{"TRAMDISK_STATE", ""}, {"TRAMDISK_HOST", "folder"}};
    const auto records = fs::path("/dev/shm/tavrin-ramdisk-65534");
    const auto victim = fs::path("/dev/shm/ramdisk-") += foreignUUID;
    const auto empty = machine.folder() / "empty";
    const auto forge = [&](const nlohmann::json& record) {
        inChild(nobody, [&] {
            mkdir(records.c_str(), 0700);
            writeFile(records / "disk1.json", record.dump());
            return 0;
        });
    };
    fs::create_directories(victim / "Forged");
    writeFile(victim / "Forged/file", "root's");
    fs::create_directory(empty);
    for (const std::string kind : {"folder", "tmpfs"}) {
        for (const std::string state : {"making", "settled", "detaching"}) {
            forge(forged(kind, empty, state));
            EXPECT_EQ(machine.run({"list"}).status, 0);
            machine.run({"eject", "--force", "disk1"});
            machine.run({"eject", "--force", "--all"});
            EXPECT_EQ(readFile(victim / "Forged/file"), "root's") << kind << state;
            EXPECT_TRUE(fs::exists(empty)) << kind << state;
        }
    }
    fs::remove_all(records);
    fs::remove_all(victim);
}

} // namespace
} // namespace ramdisk::test
