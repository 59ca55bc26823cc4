#include "tests/support/FakeSession.h"

#include <gmock/gmock.h>

namespace ramdisk {
namespace {

using test::caseOf;
using test::FakeSession;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::IsSupersetOf;
using ::testing::Not;

class SessionLifecycleTest : public ::testing::Test {
protected:
    RamDiskProfile& addKept(const std::string& name) {
        auto& profile = session.add(name);
        profile.keepsContents = true;
        return profile;
    }
    StartupOutcome launchOne() { return session.lifecycle().launch({}).outcomes.at(0); }
    KeptDisk kept() { return session.lifecycle().keptDisks().at(0); }
    std::string saveCase() {
        return caseOf([&] { session.contents()->save(kept(), Verification::no, {}); });
    }

    FakeSession session;
};

TEST_F(SessionLifecycleTest, TheFilesOfADiskOutliveIt) {
    const auto id = addKept("Work").id;
    auto outcome = launchOne();
    EXPECT_EQ(outcome.caseName(), "created");
    EXPECT_FALSE(std::get<StartupOutcome::Created>(outcome.value).restoredContents);
    session.files["Work"] = "first";
    const auto report = session.lifecycle().quit(Force::no, {});
    EXPECT_EQ(report.saved.size(), 1U);
    EXPECT_EQ(report.ejected.size(), 1U);
    EXPECT_THAT(session.machine->disks, IsEmpty());
    session.files.clear();

    outcome = launchOne();
    EXPECT_TRUE(std::get<StartupOutcome::Created>(outcome.value).restoredContents);
    EXPECT_EQ(session.files["Work"], "first");
    EXPECT_EQ(launchOne().caseName(), "alreadyMounted");
    session.files["Work"] = "second";
    EXPECT_EQ(saveCase(), "");
    EXPECT_THAT(session.copies[id], ElementsAre("second"));
}

TEST_F(SessionLifecycleTest, WhatChangesDuringTheSaveAtQuitIsSavedAsWell) {
    const auto id = addKept("Work").id;
    launchOne();
    session.files["Work"] = "before";
    session.afterSave = [this] { session.files["Work"] = "after"; };
    session.lifecycle().quit(Force::no, {});
    EXPECT_THAT(session.copies[id], ElementsAre("after"));
}

TEST_F(SessionLifecycleTest, ADiskThatCannotBeSavedOrEjectedStaysAsItWas) {
    addKept("Work");
    session.redirects.push_back({UUID::random(), "Work", {RedirectTarget::Folder{"cache"}}});
    const auto device = launchOne().disk()->device;
    EXPECT_THAT(session.machine->steps, Contains("redirect cache"));

    session.saveFailure = RamDiskError::FilesKeptChanging{};
    session.machine->steps.clear();
    auto report = session.lifecycle().quit(Force::yes, {});
    EXPECT_EQ(report.saveFailures.at(0).error, *session.saveFailure);
    EXPECT_THAT(session.machine->steps, IsEmpty());

    session.saveFailure.reset();
    session.machine->releaseFailures.emplace(device,
                                             RamDiskError::EjectFailed{device, "vi", EjectObstacle::busy});
    report = session.lifecycle().quit(Force::no, {});
    EXPECT_EQ(report.saved.size(), 1U);
    EXPECT_EQ(report.ejectFailures.at(0).error.caseName(), "ejectFailed");
    EXPECT_THAT(session.machine->steps,
                ElementsAre("undo cache", "block Work", "release disk4", "allow Work", "redirect cache"));
}

TEST_F(SessionLifecycleTest, ADiskWithoutItsFilesIsNeverSaved) {
    struct Row {
        const char* what;
        bool failsHalfWay;
        bool cannotEject;
        const char* outcome;
        const char* save;
    };
    const std::vector<Row> rows{
        {"nothing copied", false, false, "restoreFailed", "savedContentsNotRestored"},
        {"half copied", true, false, "failed", "gone"},
        {"half copied, cannot go", true, true, "restoreFailed", "partlyFilled"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        session = FakeSession();
        const auto id = addKept("Work").id;
        session.copies[id] = {"precious"};
        session.restoreFailure = RamDiskError::ImageEjected{};
        session.failsHalfWay = row.failsHalfWay;
        if (row.cannotEject) {
            const auto device = DeviceIdentifier::wholeDisk(4);
            session.machine->releaseFailures.emplace(device, RamDiskError::EjectFailed{device, "vi"});
        }
        EXPECT_EQ(launchOne().caseName(), row.outcome);
        EXPECT_EQ(session.machine->disks.empty() ? "gone" : saveCase(), row.save);
        EXPECT_THAT(session.copies[id], ElementsAre("precious"));
        // The next session goes on where this one broke off, and only there.
        session.restoreFailure.reset();
        const bool isLeftAlone = std::string_view(row.save) == "savedContentsNotRestored";
        EXPECT_EQ(launchOne().caseName(), isLeftAlone ? "restoreFailed" : "created");
        EXPECT_EQ(session.files["Work"], isLeftAlone ? "" : "precious");
        // And a user who loads a copy by hand has a disk like any other.
        const auto redirects = session.redirectsUseCase();
        LoadSavedContentsUseCase(session.contents(), redirects).load(kept(), 1, {});
        EXPECT_EQ(saveCase(), "");
    }
}

TEST_F(SessionLifecycleTest, WhileAnotherProcessFillsADiskItIsNotSavedNorWaitedFor) {
    const auto id = addKept("Work").id;
    launchOne();
    session.copies[id] = {"precious"};
    session.bound.clear();
    session.lockedElsewhere.insert(id);
    EXPECT_EQ(saveCase(), "beingFilled");
    EXPECT_EQ(caseOf([&] { session.contents()->load(kept(), 1, {}); }), "beingFilled");
}

TEST_F(SessionLifecycleTest, AKeyIsMadeBeforeTheFirstImageAndNeverInPlaceOfOneThatCannotBeRead) {
    auto& profile = addKept("Vault");
    profile.isEncrypted = true;
    profile.fileSystem = FileSystem::apfs;
    const auto id = profile.id;
    launchOne();
    session.files["Vault"] = "secret";
    session.keyringFailure = "The keyring is locked.";
    EXPECT_EQ(saveCase(), "The keyring is locked.");
    EXPECT_THAT(session.copies[id], IsEmpty());
    session.keyringFailure.reset();
    EXPECT_EQ(saveCase(), "");
    EXPECT_THAT(session.copies[id], ElementsAre("secret"));

    session.secrets.clear();
    EXPECT_EQ(saveCase(), "savedContentsKeyMissing");
    EXPECT_THAT(session.secrets, IsEmpty());
    EXPECT_EQ(session.lifecycle().quit(Force::no, {}).saveFailures.size(), 1U);
    session.machine->disks.clear();
    const auto outcome = launchOne();
    EXPECT_EQ(std::get<StartupOutcome::RestoreFailed>(outcome.value).error,
              RamDiskError(RamDiskError::SavedContentsKeyMissing{"Vault"}));
    EXPECT_THAT(session.copies[id], ElementsAre("secret"));
}

TEST_F(SessionLifecycleTest, SeedsFillOnlyDisksWithoutFilesOfTheirOwnAndFailuresAreToldBesideTheDisk) {
    auto& profile = addKept("Work");
    profile.seedFolder = "/seed";
    profile.folders = {"good", "bad"};
    session.failingFolders = {"bad", "/seed"};
    const auto outcome = launchOne();
    const auto& errors = std::get<StartupOutcome::FoldersNotCreated>(outcome.value).errors;
    ASSERT_EQ(errors.size(), 2U);
    EXPECT_EQ(errors[0].caseName(), "contentsTransferFailed");
    EXPECT_EQ(errors[1].caseName(), "folderNotCreated");
    EXPECT_THAT(session.machine->steps, Contains("make good on /Volumes/Work"));
    session.lifecycle().quit(Force::no, {});
    session.machine->steps.clear();
    launchOne();
    EXPECT_THAT(session.machine->steps, Not(Contains("copy /seed to /Volumes/Work")));
}

TEST_F(SessionLifecycleTest, ADiskThatCannotBeMadeIsTold) {
    addKept("Work").size = ByteCount::of(32, ByteCount::Unit::gibibyte);
    const auto outcome = launchOne();
    EXPECT_EQ(outcome.name(), "Work");
    EXPECT_EQ(std::get<StartupOutcome::Failed>(outcome.value).error.caseName(), "invalidSpecification");
}

TEST_F(SessionLifecycleTest, LoadingChoosesACopyByItsNumber) {
    const auto id = addKept("Work").id;
    session.copies[id] = {"new", "old"};
    launchOne();
    for (const std::size_t number : {std::size_t{0}, std::size_t{3}}) {
        EXPECT_EQ(caseOf([&] { session.contents()->load(kept(), number, {}); }), "contentsTransferFailed");
        EXPECT_EQ(session.files["Work"], "new");
    }
    session.contents()->load(kept(), 2, {});
    EXPECT_EQ(session.files["Work"], "old");
}

TEST_F(SessionLifecycleTest, RemovingARecordTakesItsCopiesAndItsKeyAlong) {
    auto profile = addKept("Vault");
    profile.isEncrypted = true;
    session.copies[profile.id] = {"secret"};
    session.secrets.emplace(profile.id.text(), VolumePassphrase("x"));
    session.manage()->remove(profile);
    EXPECT_THAT(session.profiles, IsEmpty());
    EXPECT_THAT(session.copies, IsEmpty());
    EXPECT_THAT(session.secrets, IsEmpty());
}

TEST_F(SessionLifecycleTest, ADiskRenamedBehindTheRecordsBackStillBelongsToIt) {
    const auto id = addKept("Work").id;
    launchOne();
    ASSERT_EQ(saveCase(), "");
    session.machine->disks.at(0).name = "Renamed";
    EXPECT_EQ(kept().profile.id, id);
}

} // namespace
} // namespace ramdisk
