#include "RamDiskInfrastructure/Stores/FileProfileRepository.h"
#include "RamDiskInfrastructure/Stores/FileRedirectRepository.h"
#include "RamDiskInfrastructure/Stores/FileTemplateRepository.h"
#include "RamDiskInfrastructure/Stores/StoredFile.h"
#include "RamDiskInfrastructure/Tasks/TaskPool.h"
#include "tests/support/FakeUserDefaults.h"
#include "tests/support/Testing.h"

#include <fmt/ranges.h>

namespace ramdisk::test {
namespace {

using List = std::vector<RamDiskProfile>;

RamDiskProfile profile(const std::string& name) {
    return {.id = UUID::random(), .name = name, .size = {1024}};
}

std::function<List(List)> adding(const RamDiskProfile& added) {
    return [added](List list) {
        list.push_back(added);
        return list;
    };
}

DefaultsValue data(std::string bytes) {
    return {DefaultsValue::Data{std::move(bytes)}};
}

TEST(LockedJSONFile, FirstUpdateMakesFolderLockAndList) {
    const ScratchFolder scratch;
    const auto folder = scratch.path() / "Tavrin RamDisk";
    FileProfileRepository repository(folder);
    EXPECT_THAT(repository.load(), IsEmpty());
    EXPECT_FALSE(std::filesystem::exists(folder));
    const auto added = profile("A");
    repository.update(adding(added));
    EXPECT_THAT(repository.load(), ElementsAre(added));
    EXPECT_THAT(repository.startupDiskNames(), ElementsAre("A"));
    for (const auto* const name : {"Startup Disks.lock", "Startup Disks.json"}) {
        EXPECT_EQ(std::filesystem::status(folder / name).permissions(), std::filesystem::perms(0600));
    }

    EXPECT_THROW(repository.update([](List) -> List { throw std::logic_error("no"); }), std::logic_error);
    EXPECT_THAT(repository.load(), ElementsAre(added));
    FileTemplateRepository(folder).update([](auto list) { return list; });
    EXPECT_TRUE(std::filesystem::exists(folder / "Templates.json"));
}

TEST(LockedJSONFile, SetsAsideWhatItCannotRead) {
    const auto records = encodeList<RamDiskProfile>({profile("A")});
    for (const std::string& damaged :
         {std::string("not JSON"), std::string(), records.substr(0, 40), std::string("{}")}) {
        const ScratchFolder scratch;
        scratch.write("Startup Disks.json", damaged);
        const LockedJSONFile<RamDiskProfile> list(
            {scratch.path() / "Startup Disks.json", FileLock(scratch.path() / "Startup Disks.lock"),
             [] { return std::chrono::system_clock::from_time_t(1731600000); }});
        EXPECT_THAT(list.load(), IsEmpty());
        EXPECT_EQ(scratch.read("Startup Disks.json"), damaged);
        list.update(adding(profile("B")));
        EXPECT_EQ(scratch.read("Startup Disks.unreadable-1731600000.json"), damaged);
        EXPECT_EQ(list.load().size(), 1U);

        // A second one in the same second does not take the place of the first.
        scratch.write("Startup Disks.json", "again");
        list.write({});
        EXPECT_EQ(scratch.read("Startup Disks.unreadable-1731600000.json"), damaged);
        EXPECT_EQ(scratch.read("Startup Disks.unreadable-1731600001.json"), "again");
        EXPECT_EQ(scratch.read("Startup Disks.json"), "[]");
        EXPECT_EQ(scratch.names().size(), 4U);
    }
}

/// Entries of a newer version, or damaged ones, between those that are understood.
TEST(LockedJSONFile, KeepsWhatItDoesNotUnderstandInItsPlace) {
    const std::string newer = R"({ "name" : "\"],[\\", "size":12345678901234567890123, "a":[{}]})";
    const auto a = profile("A");
    const auto b = profile("B");
    const auto c = profile("C");
    const auto text = [](const RamDiskProfile& one) {
        const auto list = encodeList<RamDiskProfile>({one});
        return list.substr(1, list.size() - 2);
    };
    const auto array = [](const std::vector<std::string>& entries) {
        return "[" + fmt::format("{}", fmt::join(entries, ",")) + "]";
    };
    const ScratchFolder scratch;
    scratch.write("Startup Disks.json", " [ 1.50, " + text(a) + " ,\n" + newer + "," + text(b) + ",null]\n");
    FileProfileRepository repository(scratch.path());
    EXPECT_THAT(repository.load(), ElementsAre(a, b));
    EXPECT_EQ(repository.notUnderstood(), 3U);
    repository.update(adding(c));
    EXPECT_EQ(scratch.read("Startup Disks.json"), array({"1.50", text(a), newer, text(b), "null", text(c)}));
    repository.update([&](const List&) { return List{a, c}; });
    EXPECT_EQ(scratch.read("Startup Disks.json"), array({"1.50", text(a), newer, "null", text(c)}));
    repository.update([](const List&) { return List{}; });
    EXPECT_EQ(scratch.read("Startup Disks.json"), array({"1.50", newer, "null"}));
    EXPECT_EQ(scratch.names(), (std::set<std::string>{"Startup Disks.json", "Startup Disks.lock"}));

    const auto defaults = std::make_shared<FakeUserDefaults>();
    defaults->stored.emplace("folderRedirects", data("[null]"));
    FileRedirectRepository redirects(scratch.path(), std::make_shared<TaskPool>(2), defaults);
    redirects.update([] {}).get();
    EXPECT_EQ(scratch.read("Folder Redirects.json"), "[null]");
}

TEST(LockedJSONFile, MovesTheLegacyListOnce) {
    const auto defaults = std::make_shared<FakeUserDefaults>();
    const List old{profile("Old")};
    defaults->stored.emplace("startupProfiles", data(encodeList(old)));
    defaults->stored.emplace("diskTemplates", data("[]"));
    const ScratchFolder scratch;
    FileProfileRepository repository(scratch.path(), defaults);
    EXPECT_EQ(repository.load(), old);
    const auto added = profile("New");
    EXPECT_THROW(repository.update([](List) -> List { throw std::logic_error("no"); }), std::logic_error);
    EXPECT_EQ(repository.load(), old);
    repository.update(adding(added));
    EXPECT_THAT(repository.load(), ElementsAre(old.front(), added));
    EXPECT_FALSE(defaults->value("startupProfiles"));

    // An empty legacy list writes nothing of its own.
    FileTemplateRepository templates(scratch.path(), defaults);
    EXPECT_ANY_THROW(
        templates.update([](auto) -> std::vector<DiskTemplate> { throw std::logic_error("no"); }));
    EXPECT_FALSE(defaults->value("diskTemplates"));
    EXPECT_FALSE(std::filesystem::exists(scratch.path() / "Templates.json"));

    // Where there is a file, the legacy list has had its time.
    defaults->stored.emplace("startupProfiles", data(encodeList(old)));
    repository.update([](const List&) { return List{}; });
    EXPECT_THAT(repository.load(), IsEmpty());
}

TEST(LockedJSONFile, RedirectsAreRecordedStepByStepUnderOneLock) {
    const ScratchFolder scratch;
    const auto defaults = std::make_shared<FakeUserDefaults>();
    FolderRedirect redirect{.id = UUID::random(), .diskName = "D"};
    defaults->stored.emplace("folderRedirects", data(encodeList<FolderRedirect>({redirect})));
    FileRedirectRepository repository(scratch.path(), std::make_shared<TaskPool>(2), defaults);
    const FileLock lock(scratch.path() / "Folder Redirects.lock");
    const auto body = [&] {
        EXPECT_TRUE(lock.isHeld());
        EXPECT_FALSE(defaults->value("folderRedirects"));
        redirect.applying = true;
        repository.save({redirect});
        EXPECT_THAT(repository.load(), ElementsAre(redirect));
    };
    repository.update(body).get();
    EXPECT_FALSE(lock.isHeld());
}

TEST(LockedJSONFile, ClearsUpAfterKilledWritersOnly) {
    const ScratchFolder scratch;
    scratch.write(".Other.json.1-0.new", "not ours");
    const PreparedFile underWay(scratch.path() / "Startup Disks.json", "[]");
    auto expected = scratch.names();
    expected.insert({"Startup Disks.json", "Startup Disks.lock"});
    scratch.write(".Startup Disks.json.1-0.new", "half");
    FileProfileRepository(scratch.path()).update([](const List& list) { return list; });
    EXPECT_EQ(scratch.names(), expected);
}

} // namespace
} // namespace ramdisk::test
