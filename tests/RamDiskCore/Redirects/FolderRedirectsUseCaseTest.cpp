#include "RamDiskCore/Redirects/FolderRedirectsUseCase.h"

#include "RamDiskUI/ErrorText.h"
#include "tests/support/FakeMachine.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <set>
#include <stdexcept>

namespace ramdisk::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using State = RedirectRestoreState;

class FakeRepository final : public RedirectRepository {
public:
    List load() const override { return stored; }
    void save(const List& list) override {
        EXPECT_TRUE(isLocked) << "saved without the lock";
        if (savesLeft-- == 0) {
            throw std::runtime_error("no space left");
        }
        stored = list;
    }
    std::future<void> update(std::function<void()> body) override {
        isLocked = true;
        std::promise<void> promise;
        try {
            body();
            promise.set_value();
        } catch (...) {
            promise.set_exception(std::current_exception());
        }
        isLocked = false;
        return promise.get_future();
    }

    List stored;
    bool isLocked = false;
    int savesLeft = -1;
};

/// Redirects in a map, with what is stored checked against the order that crashes ask for.
class FakeRedirecting final : public FolderRedirecting {
public:
    explicit FakeRedirecting(const FakeRepository& repository) : repository_(repository) {}

    RedirectPlace place(const RedirectTarget& target) const override {
        if (const auto* const folder = std::get_if<RedirectTarget::Folder>(&target.value)) {
            const auto path = std::filesystem::path(folder->path).lexically_normal();
            if (*path.begin() == "..") {
                throw RamDiskError(RamDiskError::InvalidSpecification{
                    {ValidationIssue{ValidationIssue::InvalidFolder{folder->path}}}});
            }
            return {path, path.filename()};
        }
        if (const auto* const cache = std::get_if<RedirectTarget::Cache>(&target.value)) {
            const std::string name(rawValue(cache->cache));
            return {".cache/" + name, name};
        }
        return {std::nullopt, target.value.index() == 1 ? "npm" : "Temporary"};
    }
    RedirectRestoreState apply(const FolderRedirect& redirect, const std::filesystem::path& mountPoint,
                               const Record& record) override {
        EXPECT_EQ(storedFor(redirect).applying, true);
        if (refused.contains(name(redirect))) {
            throw std::runtime_error("refused");
        }
        const State state{State::ConfigLine{"before"}};
        record(state);
        EXPECT_EQ(storedFor(redirect).restoreState, state) << "a step came before its record";
        inPlace[name(redirect)] = mountPoint;
        if (halfDone.contains(name(redirect))) {
            throw std::runtime_error("half done");
        }
        return {State::ConfigLine{"before, finished"}};
    }
    std::optional<std::string> undo(const FolderRedirect& redirect, const RedirectRestoreState&,
                                    Force) override {
        if (stands.empty()) {
            EXPECT_TRUE(storedFor(redirect).restoreState) << "forgotten before it was undone";
        }
        if (stuck.contains(name(redirect))) {
            throw std::runtime_error("stuck");
        }
        inPlace.erase(name(redirect));
        return notice;
    }
    bool isInForce(const FolderRedirect& redirect, const std::filesystem::path& mountPoint) const override {
        const auto found = inPlace.find(name(redirect));
        return found != inPlace.end() && found->second == mountPoint;
    }

    std::vector<StandingRedirect> standing(const std::vector<std::filesystem::path>&, StandingSearch,
                                           const std::vector<FolderRedirect>&) const override {
        ++searches;
        return stands;
    }

    std::vector<StandingRedirect> stands;
    mutable int searches = 0;
    std::map<std::string, std::filesystem::path> inPlace;
    std::set<std::string> refused;
    std::set<std::string> halfDone;
    std::set<std::string> stuck;
    std::optional<std::string> notice;

private:
    std::string name(const FolderRedirect& redirect) const { return place(redirect.target).nameOnDisk; }
    const FolderRedirect& storedFor(const FolderRedirect& redirect) const {
        return *std::find_if(repository_.stored.begin(), repository_.stored.end(),
                             [&](const auto& stored) { return stored.id == redirect.id; });
    }

    const FakeRepository& repository_;
};

RedirectTarget folder(const std::string& path) {
    return {RedirectTarget::Folder{path}};
}
const RedirectTarget npm{RedirectTarget::NpmCache{}};
const RedirectTarget pip{RedirectTarget::Cache{KnownCache::pip}};

class FolderRedirects : public testing::Test {
protected:
    using Told = std::vector<std::string>;

    static Told told(const std::vector<RedirectFailure>& failures) {
        Told texts;
        std::transform(failures.begin(), failures.end(), std::back_inserter(texts), failureText);
        return texts;
    }
    std::set<std::string> inPlace() const {
        std::set<std::string> names;
        for (const auto& [name, mountPoint] : redirecting->inPlace) {
            names.insert(name);
        }
        return names;
    }
    RamDisk other() { return machine->attach(5, "Other"); }

    std::shared_ptr<FakeMachine> machine = std::make_shared<FakeMachine>();
    std::shared_ptr<FakeRepository> repository = std::make_shared<FakeRepository>();
    std::shared_ptr<FakeRedirecting> redirecting = std::make_shared<FakeRedirecting>(*repository);
    FolderRedirectsUseCase redirects{repository, redirecting, machine, machine};
    RamDisk dev = machine->attach(4, "Dév");
};

TEST_F(FolderRedirects, AreStoredAppliedUndoneAndForgottenByTheDisksName) {
    EXPECT_THAT(told(redirects.add(dev, {npm, pip})), IsEmpty());
    EXPECT_EQ(redirects.redirects(" DEV ").size(), 2U);
    EXPECT_THAT(redirects.redirects("Other"), IsEmpty());
    EXPECT_EQ(redirects.list().front().restoreState, (State{State::ConfigLine{"before, finished"}}));
    EXPECT_FALSE(redirects.list().front().applying);
    EXPECT_THAT(told(redirects.undo("dev")), IsEmpty());
    EXPECT_THAT(inPlace(), IsEmpty());
    EXPECT_EQ(redirects.list().size(), 2U);
    EXPECT_THAT(told(redirects.apply(dev)), IsEmpty());
    EXPECT_THAT(inPlace(), ElementsAre("npm", "pip"));
    EXPECT_THAT(told(redirects.change(dev, {pip, folder("a")})), IsEmpty());
    EXPECT_THAT(inPlace(), ElementsAre("a", "pip"));
    EXPECT_THAT(told(redirects.remove("DEV", {pip, npm})), ElementsAre("It is not kept on “DEV”."));
    EXPECT_THAT(inPlace(), ElementsAre("a"));
    redirecting->notice = "files are kept";
    EXPECT_THAT(told(redirects.forget("dev")), ElementsAre("files are kept"));
    EXPECT_THAT(redirects.list(), IsEmpty());
}

TEST_F(FolderRedirects, ConflictsAreRefusedWithTheirTexts) {
    const std::string taken = "It is already kept on “Dév”.";
    const std::string nameTaken =
        "Another folder kept on this disk is also named “pip”: rename one of them first.";
    const std::string notAFolder = "“../x” is not a folder to make on the disk. Give a path below its top "
                                   "folder, like Temp or Cache/Chrome.";
    const auto disk = other();
    ASSERT_THAT(told(redirects.add(dev, {npm, pip, folder("work/a")})), IsEmpty());
    EXPECT_THAT(told(redirects.add(disk, {npm, pip, folder(".cache/pip"), folder("./.cache//pip"),
                                          folder(".cache/pip/wheels"), folder(".cache"), folder("work/a/b"),
                                          folder("../x"), folder("work/ab")})),
                ElementsAre(taken, taken, taken, taken, taken, taken, taken, notAFolder));
    EXPECT_THAT(told(redirects.add(dev, {folder("x/PIP"), folder("work")})), ElementsAre(nameTaken, taken));
    EXPECT_THAT(told(redirects.add(dev, {npm, folder("work/./a"), folder(".cache/pip")})), IsEmpty())
        << "the disk's already";
    EXPECT_EQ(redirects.list().size(), 4U);
}

TEST_F(FolderRedirects, OneLeftByAnEjectedDiskGivesWayUnlessItIsAStartupDisk) {
    const auto disk = other();
    ASSERT_THAT(told(redirects.add(dev, {npm, pip})), IsEmpty());
    ASSERT_THAT(told(redirects.undo("Dév")), IsEmpty());
    machine->startupDisks = {"DEV"};
    EXPECT_THAT(told(redirects.add(disk, {npm})), ElementsAre("It is already kept on “Dév”."));
    machine->startupDisks.clear();
    EXPECT_THAT(told(redirects.add(disk, {npm})),
                ElementsAre("“npm” was to be kept on “Dév”. It gives way to “Other”."));
    EXPECT_EQ(redirects.redirects("dev").size(), 1U);
    EXPECT_THAT(told(redirects.apply(dev)), IsEmpty());
    EXPECT_THAT(inPlace(), ElementsAre("npm", "pip"));
    EXPECT_EQ(redirecting->inPlace["npm"], *disk.mountPoint);
}

TEST_F(FolderRedirects, OneThatFailsLeavesTheOthersInForce) {
    redirecting->refused = {"b"};
    redirecting->halfDone = {"d"};
    EXPECT_THAT(told(redirects.add(dev, {folder("a"), folder("b"), folder("c"), folder("d"), folder("e")})),
                ElementsAre("refused", "half done"));
    EXPECT_THAT(inPlace(), ElementsAre("a", "c", "e"));
    EXPECT_EQ(redirects.list().size(), 3U);

    redirecting->stuck = {"c"};
    EXPECT_THAT(told(redirects.undo("dev")), ElementsAre("stuck"));
    EXPECT_THAT(inPlace(), ElementsAre("c"));
    EXPECT_THAT(told(redirects.remove("dev", {folder("a"), folder("c")})), ElementsAre("stuck"));
    EXPECT_EQ(redirects.list().size(), 2U) << "what is still in place is not forgotten";
    redirecting->stuck.clear();
    EXPECT_THAT(told(redirects.repair()), IsEmpty());
    EXPECT_THAT(inPlace(), IsEmpty());

    redirecting->halfDone = {"f"};
    redirecting->stuck = {"f"};
    EXPECT_THAT(told(redirects.add(dev, {folder("f")})), ElementsAre("half done", "stuck"));
    EXPECT_EQ(redirects.list().back().applying, true) << "kept for the next start";
}

TEST_F(FolderRedirects, RepairUndoesWhatLeadsNowhere) {
    const auto disk = other();
    ASSERT_THAT(told(redirects.add(dev, {npm})), IsEmpty());
    ASSERT_THAT(told(redirects.add(disk, {pip, folder("a")})), IsEmpty());
    EXPECT_THAT(told(redirects.repair()), IsEmpty());
    EXPECT_THAT(inPlace(), ElementsAre("a", "npm", "pip"));
    repository->stored.back().applying = true;
    std::erase_if(machine->disks, [](const RamDisk& attached) { return attached.name == "Dév"; });
    EXPECT_THAT(told(redirects.repair()), IsEmpty());
    EXPECT_THAT(inPlace(), ElementsAre("pip"));
    machine->listingFailure = RamDiskError(RamDiskError::InventoryUnavailable{"why"});
    EXPECT_THROW(redirects.repair(), RamDiskError);
    EXPECT_THAT(inPlace(), ElementsAre("pip")) << "what cannot be told is left alone";
}

TEST_F(FolderRedirects, WhatStandsIsLookedForOnceAndUndoneUnlessItIsListed) {
    ASSERT_THAT(told(redirects.add(dev, {npm})), IsEmpty());
    const auto add = [this](const RedirectTarget& target, const RamDisk& disk) {
        const auto onDisk = *disk.mountPoint / "Redirected" / redirecting->place(target).nameOnDisk;
        redirecting->stands.push_back({{.id = UUID::random(),
                                        .diskName = disk.name,
                                        .target = target,
                                        .restoreState = State{State::ConfigLine{}}},
                                       onDisk});
    };
    add(npm, dev);
    add(folder("a"), dev);
    add(folder("b"), other());
    const std::string back =
        " was still on a disk, although no redirect is stored for it. The original is back.";
    EXPECT_THAT(told(redirects.repair()), ElementsAre("“a”" + back, "“b”" + back));
    EXPECT_EQ(redirecting->searches, 1);
    EXPECT_THAT(told(redirects.undo("Dév")), ElementsAre("“a”" + back));
    EXPECT_EQ(redirecting->searches, 2);
    EXPECT_THAT(inPlace(), IsEmpty());
}

TEST_F(FolderRedirects, FollowADiskThatIsRenamed) {
    ASSERT_THAT(told(redirects.add(dev, {npm, pip})), IsEmpty());
    repository->stored.push_back({.id = UUID::random(), .diskName = "New", .target = npm});
    machine->disks.front().name = "New";
    machine->disks.front().mountPoint = "/Volumes/New";
    EXPECT_THAT(told(redirects.rename("Dév", "New")), IsEmpty());
    EXPECT_EQ(redirects.redirects("new").size(), 2U);
    EXPECT_THAT(redirects.redirects("Dév"), IsEmpty());
    EXPECT_EQ(redirecting->inPlace["npm"], "/Volumes/New");
    EXPECT_EQ(redirecting->inPlace["pip"], "/Volumes/New");
}

TEST_F(FolderRedirects, AListThatCannotBeStoredStopsTheWorkWithNothingUntold) {
    for (int saves = 0; saves < 12; ++saves) {
        repository->savesLeft = saves;
        bool isStored = true;
        try {
            redirects.add(dev, {npm, pip});
        } catch (const std::runtime_error& error) {
            EXPECT_STREQ(error.what(), "no space left");
            isStored = false;
        }
        for (const auto& [name, mountPoint] : redirecting->inPlace) {
            EXPECT_TRUE(std::any_of(repository->stored.begin(), repository->stored.end(),
                                    [&, wanted = name](const auto& stored) {
                                        return stored.restoreState
                                               && redirecting->place(stored.target).nameOnDisk == wanted;
                                    }))
                << name;
        }
        repository->savesLeft = -1;
        redirects.forget("dev");
        EXPECT_THAT(inPlace(), IsEmpty());
        EXPECT_EQ(isStored, saves >= 6) << "three saves each: before, before its step, after";
    }
    dev.mountPoint.reset();
    EXPECT_THROW(redirects.add(dev, {npm}), RamDiskError);
}

} // namespace
} // namespace ramdisk::test
