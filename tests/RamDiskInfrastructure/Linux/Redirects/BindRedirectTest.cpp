#include "RamDiskInfrastructure/Linux/Disks/TreeFolderCopier.h"
#include "RamDiskInfrastructure/Linux/Redirects/BindMounting.h"
#include "tests/support/Linux/KillLoop.h"
#include "tests/support/Linux/TestMachine.h"
#include "tests/support/Linux/TestMount.h"
#include "tests/support/RedirectInterruptions.h"

namespace ramdisk::test {
namespace {

using Condition = RedirectStatus::Condition;

void useMounts(RedirectWorld& world) {
    LinuxHost host;
    host.mayMount = true;
    host.forcedRung = HostRung::kernel;
    world.parts.mounting = std::make_shared<BindMounting>(host);
    world.parts.copier = std::make_shared<TreeFolderCopier>();
}

class BindRedirect : public testing::Test {
protected:
    void SetUp() override {
        SKIP_UNLESS_ROOT();
        machine.emplace();
        world.emplace();
        useMounts(*world);
        world->write("p/target/mine", "old");
        target = world->home() / "p/target";
    }
    void add() { ASSERT_THAT(texts(world->useCase().add(world->disk(), {redirect})), IsEmpty()); }
    Condition condition() const {
        const auto redirects = world->useCase();
        return redirects.statuses(redirects.list()).front().condition;
    }

    std::optional<TestMachine> machine;
    std::optional<RedirectWorld> world;
    RedirectTarget redirect = folderTarget("p/target");
    fs::path target;
};

TEST_F(BindRedirect, HidesTheOriginalUnderARealFolderAndShowsWhatBecameOfIt) {
    const auto before = world->tree();
    add();
    EXPECT_FALSE(fs::is_symlink(target));
    EXPECT_TRUE(fs::is_empty(target));
    world->write("p/target/new", "new");
    EXPECT_TRUE(fs::exists(world->onDisk("p+target") / "new"));
    EXPECT_EQ(condition(), Condition::inPlace);
    EXPECT_NE(rmdir(target.c_str()), 0);

    {
        const TmpfsMount cover(target);
        EXPECT_EQ(condition(), Condition::covered);
        const auto told = world->useCase().undo("Dev");
        EXPECT_THAT(texts(told), ElementsAre(HasSubstr("Something else is mounted over “~/p/target”")));
        EXPECT_EQ(told.front().kind, RedirectFailure::Kind::inUse);
    }
    EXPECT_EQ(condition(), Condition::inPlace);
    {
        const FileDescriptor user(open((target / "new").c_str(), O_RDONLY | O_CLOEXEC));
        const auto told = world->useCase().undo("Dev");
        EXPECT_THAT(texts(told), ElementsAre(HasSubstr("p/target” is kept busy by linux_tests")));
        EXPECT_EQ(told.front().kind, RedirectFailure::Kind::inUse);
        EXPECT_EQ(condition(), Condition::inPlace);
        EXPECT_EQ(world->read("p/target/new"), "new");
        EXPECT_THAT(texts(world->useCase().undo("Dev", Force::yes)), IsEmpty());
        EXPECT_EQ(world->tree(), before);
    }
    EXPECT_THAT(texts(world->useCase().apply(world->disk())), IsEmpty());
    ASSERT_EQ(umount2(target.c_str(), 0), 0);
    EXPECT_EQ(condition(), Condition::mountGone);
    EXPECT_EQ(world->tree(), before) << "as after a restart";
    EXPECT_THAT(texts(world->useCase().apply(world->disk())), IsEmpty());
    EXPECT_EQ(world->read("p/target/new"), "new");

    // A folder above it takes the mount along.
    fs::rename(world->home() / "p", world->home() / "q");
    EXPECT_THAT(texts(world->useCase().undo("Dev")), IsEmpty());
    fs::rename(world->home() / "q", world->home() / "p");
    EXPECT_EQ(world->tree(), before);
}

TEST_F(BindRedirect, IsTakenUpAfterItsListIsLost) {
    const auto before = world->tree();
    add();
    const auto file = world->scratch() / "lists/Folder Redirects.json";
    for (const std::string damaged : {"[", "[]"}) {
        writeFile(file, damaged);
        if (damaged == "[") {
            EXPECT_THAT(texts(world->useCase().repair()),
                        ElementsAre(HasSubstr("Folders found in place: 1.")));
        } else {
            add();
        }
        EXPECT_EQ(condition(), Condition::inPlace) << damaged;
    }
    // As an earlier version leaves it.
    auto undone = world->useCase().list();
    writeFile(file, R"([{"id":")" + undone.front().id.text()
                        + R"(","diskName":"Dev","target":{"folder":{"_0":"p/target"}}}])");
    EXPECT_THAT(texts(world->useCase().repair()), ElementsAre(HasSubstr("“p/target” was still on a disk")));
    EXPECT_EQ(world->tree(), before);
}

TEST_F(BindRedirect, RootActsOnlyOnWhatTheUserMayChange) {
    struct Case {
        const char* roots;
        bool isRefused;
        bool isLink;
    };
    for (const auto& [roots, isRefused, isLink] :
         {Case{"", false, false}, Case{"p/target", false, true}, Case{"p", true, false}}) {
        SCOPED_TRACE(roots);
        for (const auto& path : {world->home(), world->home() / "p", target}) {
            ASSERT_EQ(chown(path.c_str(), nobody, nobody), 0);
        }
        if (*roots != '\0') {
            ASSERT_EQ(chown((world->home() / roots).c_str(), 0, 0), 0);
        }
        const auto before = world->tree();
        const auto told = texts(world->useCase().add(world->disk(), {redirect}));
        EXPECT_EQ(!told.empty(), isRefused) << testing::PrintToString(told);
        EXPECT_EQ(fs::is_symlink(target), isLink);
        EXPECT_THAT(texts(world->useCase().forget("Dev")), IsEmpty());
        EXPECT_EQ(world->tree(), before);
    }
    ASSERT_EQ(chown((world->home() / "p").c_str(), nobody, nobody), 0);
    // Forged by the user: root deletes nobody else's folder for it.
    add();
    fs::create_directories(world->onDisk("roots"));
    writeFile(world->onDisk("roots") / "file", "x");
    auto forged = readFile(world->scratch() / "lists/Folder Redirects.json");
    forged.replace(forged.find("p+target"), 8, "roots");
    writeFile(world->scratch() / "lists/Folder Redirects.json", forged);
    world->useCase().remove("Dev", {redirect}, FolderRedirectsUseCase::LostOriginals::keptListed,
                            FolderRedirectsUseCase::FilesOnDisk::discarded);
    EXPECT_EQ(readFile(world->onDisk("roots") / "file"), "x");
    umount2(target.c_str(), MNT_DETACH);
    EXPECT_THAT(texts(world->useCase().add(world->disk(), {folderTarget("roots")})),
                ElementsAre(HasSubstr("of another user already.")));
}

TEST_F(BindRedirect, CopiesKeepModesLinksAndAttributesBothWays) {
    chmod((target / "mine").c_str(), 04751);
    fs::create_hard_link(target / "mine", target / "second name");
    fs::create_symlink("nowhere", target / "link");
    ASSERT_EQ(setxattr((target / "mine").c_str(), "user.test", "x", 1, 0), 0);
    const auto before = world->tree();
    const auto expectSame = [&] {
        EXPECT_EQ(world->tree(), before);
        struct stat status {};
        ASSERT_EQ(stat((target / "second name").c_str(), &status), 0);
        EXPECT_EQ(status.st_nlink, 2U);
        char value = '-';
        EXPECT_EQ(getxattr((target / "mine").c_str(), "user.test", &value, 1), 1);
    };
    using UseCase = FolderRedirectsUseCase;
    const TmpfsMount small(world->mountPoint(), "size=64k");
    writeFile(target / "big", std::string(100000, 'x'));
    EXPECT_THAT(texts(world->useCase().add(world->disk(), {redirect}, RedirectStart::copyOfOriginal)),
                ElementsAre("The disk has not enough space for a copy of “~/p/target”."));
    EXPECT_TRUE(fs::is_empty(world->mountPoint()));
    fs::remove(target / "big");
    ASSERT_THAT(texts(world->useCase().add(world->disk(), {redirect}, RedirectStart::copyOfOriginal)),
                IsEmpty());
    expectSame();
    ASSERT_EQ(
        world->useCase()
            .remove("Dev", {redirect}, UseCase::LostOriginals::keptListed, UseCase::FilesOnDisk::putBack)
            .size(),
        1U);
    fs::remove_all(world->home() / "p/target.ramdisk-former");
    expectSame();
}

RedirectScene bindScene(const std::string& folder) {
    return {folderTarget(folder), [](RedirectWorld& world) {
                useMounts(world);
                world.write("Projects/cache/deep/er", "two");
                chmod((world.home() / "Projects/cache").c_str(), 0750);
            }};
}

TEST_F(BindRedirect, IsRepairedWhereverItIsInterrupted) {
    for (const auto* const folder : {"Projects/cache", "Projects/a/b"}) {
        expectEveryInterruptionIsRepaired(bindScene(folder));
        expectEveryInterruptedRemovalIsRepaired(bindScene(folder));
    }
}

/// A redirect that is put in place, used and undone, and killed at any system call that lasts.
TEST_F(BindRedirect, MountsAndLinksSurviveAKillAtAnyCall) {
    for (const bool isLink : {true, false}) {
        SCOPED_TRACE(isLink ? "link" : "mount");
        std::optional<RedirectWorld> own;
        std::map<std::string, std::string> before;
        int points = 0;
        killAtEveryCall({.prepare =
                             [&] {
                                 own.emplace();
                                 if (!isLink) {
                                     useMounts(*own);
                                 }
                                 own->write("a/target/mine", "old");
                                 own->write("a/.git/info/exclude", "mine");
                                 before = own->tree();
                             },
                         .work =
                             [&] {
                                 auto redirects = own->useCase();
                                 redirects.add(own->disk(), {folderTarget("a/target"), folderTarget("b/c")});
                                 own->write("a/target/new", "new");
                                 redirects.undo("Dev");
                                 for (int round = 0; round < 2; ++round) {
                                     redirects.apply(own->disk());
                                     redirects.undo("Dev");
                                 }
                             },
                         .check =
                             [&](std::optional<int> status) {
                                 EXPECT_EQ(status.value_or(0), 0);
                                 EXPECT_THAT(texts(own->useCase().repair()), IsEmpty());
                                 EXPECT_THAT(texts(own->useCase().undo("Dev")), IsEmpty());
                                 EXPECT_EQ(own->tree(), before);
                                 own.reset();
                                 ++points;
                             },
                         .most = 12});
        RecordProperty(isLink ? "links" : "mounts", points);
    }
}

} // namespace
} // namespace ramdisk::test
