#include "tests/support/FakeSession.h"

namespace ramdisk {
namespace {

using test::caseOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;

struct Session : test::FakeSession {
    StartupOutcome launchOne() { return lifecycle().launch({}).outcomes.at(0); }
    KeptDisk kept() { return lifecycle().keptDisks().at(0); }
    std::string saveCase() {
        return caseOf([this] { contents()->save(kept(), Verification::no, {}); });
    }
    std::string loadCase(std::size_t number) {
        return caseOf([&] { contents()->load(kept(), number, {}); });
    }
    UUID addWork() { return add({.id = UUID::random(), .name = "Work", .size = {}}); }
    UUID addVault() {
        return add({.id = UUID::random(),
                    .name = "Vault",
                    .size = {},
                    .fileSystem = FileSystem::apfs,
                    .isEncrypted = true});
    }
    /// What an editor's slip does to the list.
    void damageList() const {
        std::ofstream(storage->directory().parent_path() / "Startup Disks.json", std::ios::app) << ']';
    }
    void addRedirect() { redirectList->save({{UUID::random(), "Work", {RedirectTarget::Folder{"cache"}}}}); }
};

TEST(SessionLifecycleTest, TheFilesOfADiskOutliveIt) {
    Session session;
    const auto id = session.addWork();
    auto outcome = session.launchOne();
    EXPECT_EQ(outcome.caseName(), "created");
    EXPECT_FALSE(std::get<StartupOutcome::Created>(outcome.value).restoredContents);
    session.write("Work", "first");
    const auto report = session.lifecycle().quit(Force::no, {});
    EXPECT_EQ(report.saved.size(), 1U);
    EXPECT_EQ(report.ejected.size(), 1U);
    EXPECT_THAT(session.machine->disks, IsEmpty());

    outcome = session.launchOne();
    EXPECT_TRUE(std::get<StartupOutcome::Created>(outcome.value).restoredContents);
    EXPECT_EQ(session.read("Work"), "first");
    EXPECT_EQ(session.launchOne().caseName(), "alreadyMounted");
    session.write("Work", "second");
    EXPECT_EQ(session.saveCase(), "");
    EXPECT_THAT(session.copies(id), ElementsAre("second"));

    session.machine->disks.at(0).name = "Renamed"; // behind the record's back
    EXPECT_EQ(session.kept().profile.id, id);
}

TEST(SessionLifecycleTest, WhatChangesDuringTheSaveAtQuitIsSavedAsWellWhateverHappensToRedirects) {
    Session session;
    const auto id = session.addWork();
    session.addRedirect();
    session.launchOne();
    session.write("Work", "before");
    session.machine->meanwhile = [&](const std::string& step) {
        if (step == "undo cache") {
            if (!session.machine->disks.empty()) {
                EXPECT_THAT(session.copies(id), ElementsAre("before"));
                session.write("Work", "after");
            }
            throw std::runtime_error("the home folder is read-only");
        }
    };
    const auto report = session.lifecycle().quit(Force::no, {});
    EXPECT_THAT(session.copies(id), ElementsAre("after"));
    EXPECT_EQ(report.redirectFailures.size(), 1U) << "told once, though it was tried again";
    EXPECT_TRUE(report.needsAttention());
}

TEST(SessionLifecycleTest, ADiskThatCannotBeSavedOrEjectedStaysAsItWas) {
    Session session;
    session.addWork();
    session.addRedirect();
    const auto device = session.launchOne().disk()->device;
    EXPECT_THAT(session.machine->steps, Contains("redirect cache"));

    session.images->meanwhile = [&] { session.write("Work", session.read("Work") + "."); };
    session.machine->steps.clear();
    auto report = session.lifecycle().quit(Force::yes, {});
    EXPECT_EQ(report.saveFailures.at(0).error.caseName(), "filesKeptChanging");
    EXPECT_THAT(session.machine->steps,
                ElementsAre("undo cache", "block Work", "allow Work", "redirect cache"));

    session.images->meanwhile = {};
    session.machine->steps.clear();
    session.machine->releaseFailures.emplace(device,
                                             RamDiskError::EjectFailed{device, "vi", EjectObstacle::busy});
    report = session.lifecycle().quit(Force::no, {});
    EXPECT_EQ(report.saved.size(), 1U);
    EXPECT_EQ(report.ejectFailures.at(0).error.caseName(), "ejectFailed");
    EXPECT_THAT(session.machine->steps,
                ElementsAre("undo cache", "block Work", "release disk4", "allow Work", "redirect cache"));
}

TEST(SessionLifecycleTest, RedirectsAreNotPutBackOntoAPathThatIsNoMountAnyMore) {
    for (const bool isLoad : {false, true}) {
        Session session;
        session.saveEarlier(session.addWork(), {"saved"});
        session.addRedirect();
        const auto device = session.launchOne().disk()->device;
        session.machine->releaseFailures.emplace(
            device, RamDiskError::EjectFailed{device, "unmounted, but not gone", EjectObstacle::busy});
        session.machine->meanwhile = [&](const std::string& step) {
            if (step == "release disk4") {
                session.machine->find(device)->mountPoint.reset();
            }
        };
        session.machine->steps.clear();
        if (isLoad) {
            session.images->lacksRoom = 1;
            EXPECT_EQ(caseOf([&] {
                          LoadSavedContentsUseCase(session.services(), session.contents(),
                                                   session.redirects())
                              .load(session.kept(), 1, {});
                      }),
                      "ejectFailed");
        } else {
            EXPECT_EQ(session.lifecycle().quit(Force::no, {}).ejectFailures.size(), 1U);
        }
        EXPECT_THAT(session.machine->steps, Contains("release disk4"));
        EXPECT_THAT(session.machine->steps, Not(Contains("redirect cache")));
    }
}

TEST(SessionLifecycleTest, ADiskWithoutItsFilesIsNeverSaved) {
    const struct {
        const char* what;
        bool failsHalfWay;
        bool cannotEject;
        const char* outcome;
        const char* save;
    } rows[] = {{"nothing copied", false, false, "restoreFailed", "savedContentsNotRestored"},
                {"half copied", true, false, "restoreFailed", "savedContentsNotRestored"},
                {"half copied, cannot go", true, true, "restoreFailed", "partlyFilled"}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        Session session;
        const auto id = session.addWork();
        session.saveEarlier(id, {"precious"});
        session.images->restoreFailure = RamDiskError::ImageEjected{};
        session.images->failsHalfWay = row.failsHalfWay;
        if (row.cannotEject) {
            const auto device = DeviceIdentifier::wholeDisk(4);
            session.machine->releaseFailures.emplace(device, RamDiskError::EjectFailed{device, "vi"});
        }
        EXPECT_EQ(session.launchOne().caseName(), row.outcome);
        EXPECT_EQ(session.saveCase(), row.save);
        EXPECT_EQ(session.read("Work").empty(), !row.cannotEject) << "half of the files look like all";
        EXPECT_THAT(session.copies(id), ElementsAre("precious"));
        // The next session goes on where this one broke off, and only there.
        session.images->restoreFailure.reset();
        const bool isLeftAlone = std::string_view(row.save) == "savedContentsNotRestored";
        EXPECT_EQ(session.launchOne().caseName(), isLeftAlone ? "restoreFailed" : "created");
        EXPECT_EQ(session.read("Work"), isLeftAlone ? "" : "precious");
        // And a user who loads a copy by hand has a disk like any other.
        LoadSavedContentsUseCase(session.services(), session.contents(), session.redirects())
            .load(session.kept(), 1, {});
        EXPECT_EQ(session.saveCase(), "");
    }
}

TEST(SessionLifecycleTest, ADiskWhoseRecordIsLostIsNotDroppedAndItsSessionStillSavesIt) {
    for (const bool isSaved : {false, true}) {
        for (const bool isListReplaced : {false, true}) {
            Session session;
            const auto id = session.addWork();
            auto lifecycle = session.lifecycle();
            lifecycle.launch({});
            session.write("Work", "precious");
            if (isSaved) {
                EXPECT_EQ(session.saveCase(), "");
                session.write("Work", "newer");
            }
            session.damageList();
            if (isListReplaced) {
                session.profiles->update([](ProfileRepository::List list) {
                    list.push_back(
                        {.id = UUID::random(), .name = "Work", .size = {}, .fileSystem = FileSystem::apfs});
                    return list;
                });
            }
            const auto disk = session.machine->disks.at(0);
            const auto left = session.lifecycle().leave(disk, SaveBeforeEject::yes, Force::yes, {});
            EXPECT_TRUE(left.saveError);
            EXPECT_EQ(session.lifecycle().quit(Force::yes, {}).saveFailures.size(), 1U);
            ASSERT_EQ(session.machine->disks.size(), 1U);
            if (!isListReplaced) {
                EXPECT_EQ(lifecycle.quit(Force::no, {}).saved.size(), 1U);
                EXPECT_THAT(session.copies(id), ElementsAre(isSaved ? "newer" : "precious"));
                EXPECT_FALSE(session.lifecycle().launch({}).isListReadable);
                continue;
            }
            session.lifecycle().leave(disk, SaveBeforeEject::no, Force::no, {});
            EXPECT_THAT(session.machine->disks, IsEmpty());
        }
    }
}

TEST(SessionLifecycleTest, AnInterruptedLoadIsFinishedWithTheCopyThatWasChosen) {
    Session session;
    const auto id = session.addWork();
    session.saveEarlier(id, {"old", "new"});
    session.launchOne();
    session.images->restoreFailure = RamDiskError::ImageEjected{};
    session.images->failsHalfWay = true;
    EXPECT_EQ(session.loadCase(2), "imageEjected");
    EXPECT_EQ(session.saveCase(), "partlyFilled");
    // One that did not begin changes nothing about that.
    session.images->failsHalfWay = false;
    EXPECT_EQ(session.loadCase(1), "imageEjected");
    EXPECT_EQ(session.launchOne().caseName(), "restoreFailed");
    session.images->restoreFailure.reset();
    EXPECT_EQ(session.launchOne().caseName(), "created");
    EXPECT_EQ(session.images->lastMode, RestoreMode::replace);
    EXPECT_EQ(session.read("Work"), "old");
    EXPECT_THAT(session.copies(id), ElementsAre("old", "new"));
    EXPECT_EQ(session.saveCase(), "");
}

TEST(SessionLifecycleTest, ADiskThatProgramsKeepWritingToIsEjectedOnlyByForce) {
    Session session;
    const auto id = session.addWork();
    session.launchOne();
    session.machine->writers = 1000;
    const auto report = session.lifecycle().quit(Force::no, {});
    const auto& failure = std::get<RamDiskError::EjectFailed>(report.ejectFailures.at(0).error.value());
    EXPECT_EQ(failure.obstacle, EjectObstacle::busy);
    EXPECT_EQ(session.machine->disks.size(), 1U);
    session.machine->writers = 3;
    session.write("Work", "last");
    EXPECT_EQ(session.lifecycle().quit(Force::no, {}).ejected.size(), 1U);
    EXPECT_THAT(session.copies(id), ElementsAre("last"));
    session.launchOne();
    session.machine->writers = 1000;
    EXPECT_EQ(session.lifecycle().quit(Force::yes, {}).ejected.size(), 1U);
}

TEST(SessionLifecycleTest, CopiesThatAreGoneAreToldUntilTheUserKeepsWhatIsThere) {
    Session session;
    const auto id = session.addWork();
    session.launchOne();
    session.write("Work", "precious");
    session.lifecycle().quit(Force::no, {});
    const auto image = session.storage->imageLocation(id);
    std::filesystem::rename(image, image.string() + ".away");
    EXPECT_EQ(session.launchOne().caseName(), "restoreFailed");
    EXPECT_EQ(session.launchOne().caseName(), "restoreFailed");
    EXPECT_EQ(session.saveCase(), "savedContentsNotRestored");
    session.write("Work", "new");
    session.contents()->save(session.kept(), Verification::no, {}, Unrestored::taken);
    EXPECT_THAT(session.copies(id), ElementsAre("new"));
    EXPECT_EQ(session.saveCase(), "");

    // A link in an image's place is neither a copy nor none.
    session.machine->disks.clear();
    std::filesystem::remove(image);
    std::filesystem::create_symlink(image.string() + ".away", image);
    EXPECT_EQ(session.launchOne().caseName(), "failed");
}

TEST(SessionLifecycleTest, WhatIsOnADiskIsKeptOnRequestAndTheFormerLatestBecomesAnEarlierCopy) {
    Session session;
    const auto id = session.addWork();
    session.saveEarlier(id, {"older", "precious"});
    session.images->restoreFailure = RamDiskError::ImageEjected{};
    session.launchOne();
    session.write("Work", "current");
    EXPECT_EQ(session.saveCase(), "savedContentsNotRestored");
    session.contents()->save(session.kept(), Verification::no, {}, Unrestored::taken);
    EXPECT_THAT(session.copies(id), ElementsAre("current", "precious", "older"));
    EXPECT_EQ(session.saveCase(), "");
}

TEST(SessionLifecycleTest, WhileAnotherProcessFillsADiskItIsNotSavedNorWaitedFor) {
    Session session;
    const auto id = session.addWork();
    session.launchOne();
    session.saveEarlier(id, {"precious"});
    std::promise<void> isHeld;
    std::promise<void> isFilled;
    const auto holder = session.storage->withLock(id, [&] {
        isHeld.set_value();
        isFilled.get_future().wait_for(std::chrono::seconds(20)); // who waits all the same fails
    });
    isHeld.get_future().wait();
    EXPECT_EQ(session.saveCase(), "beingFilled");
    EXPECT_EQ(session.loadCase(1), "beingFilled");
    isFilled.set_value();
    holder.wait();
}

TEST(SessionLifecycleTest, AKeyIsMadeBeforeTheFirstImageAndNeverInPlaceOfOneThatCannotBeRead) {
    Session session;
    const auto id = session.addVault();
    session.launchOne();
    session.write("Vault", "secret");
    session.keyring->isLocked = true;
    EXPECT_EQ(session.saveCase(), "The keyring is locked.");
    EXPECT_THAT(session.copies(id), IsEmpty());
    session.keyring->isLocked = false;
    EXPECT_EQ(session.saveCase(), "");
    EXPECT_THAT(session.copies(id), ElementsAre("secret"));

    session.keyring->secrets.clear();
    EXPECT_EQ(session.saveCase(), "savedContentsKeyMissing");
    EXPECT_THAT(session.keyring->secrets, IsEmpty());
    EXPECT_EQ(session.lifecycle().quit(Force::no, {}).saveFailures.size(), 1U);
    session.machine->disks.clear();
    const auto outcome = session.launchOne();
    EXPECT_EQ(std::get<StartupOutcome::RestoreFailed>(outcome.value).error,
              RamDiskError(RamDiskError::SavedContentsKeyMissing{"Vault"}));
    EXPECT_THAT(session.copies(id), ElementsAre("secret"));
}

TEST(SessionLifecycleTest, SeedsFillOnlyDisksWithoutFilesOfTheirOwnAndFailuresAreToldBesideTheDisk) {
    Session session;
    session.add({.id = UUID::random(),
                 .name = "Work",
                 .size = {},
                 .seedFolder = "/seed",
                 .folders = {"good", "bad"}});
    session.machine->failingFolders = {"bad", "/seed"};
    const auto outcome = session.launchOne();
    const auto& errors = std::get<StartupOutcome::FoldersNotCreated>(outcome.value).errors;
    ASSERT_EQ(errors.size(), 2U);
    EXPECT_EQ(errors[0].caseName(), "contentsTransferFailed");
    EXPECT_EQ(errors[1].caseName(), "folderNotCreated");
    EXPECT_THAT(session.machine->steps, Contains("make good on Work"));
    session.lifecycle().quit(Force::no, {});
    session.machine->steps.clear();
    session.launchOne();
    EXPECT_THAT(session.machine->steps, Not(Contains("copy /seed to Work")));
}

TEST(SessionLifecycleTest, ADiskThatCannotBeMadeIsTold) {
    Session session;
    session.addWork();
    session.machine->memory.physical = ByteCount{1};
    const auto outcome = session.launchOne();
    EXPECT_EQ(outcome.name(), "Work");
    EXPECT_EQ(std::get<StartupOutcome::Failed>(outcome.value).error.caseName(), "invalidSpecification");
}

TEST(SessionLifecycleTest, ADiskGetsRoomForARestoreOnlyWhenTheRestoreNeedsIt) {
    Session session;
    const auto id = session.addWork();
    session.saveEarlier(id, {"old", "new"});
    session.launchOne();
    EXPECT_THAT(session.machine->steps, Not(Contains("room for a restore")));
    session.images->lacksRoom = 1;
    LoadSavedContentsUseCase(session.services(), session.contents(), session.redirects())
        .load(session.kept(), 2, {});
    EXPECT_EQ(session.read("Work"), "old");
    EXPECT_THAT(session.machine->steps, Contains("room for a restore"));
    EXPECT_EQ(session.saveCase(), "");
    session.lifecycle().quit(Force::no, {});

    for (const int lacks : {1, 2}) {
        session.machine->steps.clear();
        session.images->lacksRoom = lacks;
        EXPECT_EQ(session.launchOne().caseName(), lacks == 1 ? "created" : "restoreFailed");
        EXPECT_THAT(session.machine->steps, Contains("room for a restore"));
        EXPECT_EQ(session.read("Work"), lacks == 1 ? "old" : "");
        EXPECT_EQ(session.saveCase(), lacks == 1 ? "" : "savedContentsNotRestored");
        session.lifecycle().leave(session.kept().disk, SaveBeforeEject::no, Force::no, {});
    }
}

TEST(SessionLifecycleTest, AnInterruptedFillingThatLacksRoomGoesOnOnADiskWithRoom) {
    for (const std::size_t number : {std::size_t{0}, std::size_t{2}}) {
        for (const int lacks : {1, 2}) {
            SCOPED_TRACE(std::to_string(number) + ", lacks room " + std::to_string(lacks));
            Session session;
            const auto id = session.addWork();
            session.saveEarlier(id, {"old", "new"});
            session.launchOne();
            if (number > 0) {
                session.images->restoreFailure = RamDiskError::ImageEjected{};
                session.images->failsHalfWay = true;
                EXPECT_EQ(session.loadCase(number), "imageEjected");
                session.images->restoreFailure.reset();
            } else {
                session.storage->setFilling(id, Filling{*session.kept().disk.instance});
            }
            session.machine->steps.clear();
            session.images->lacksRoom = lacks;
            EXPECT_EQ(session.launchOne().caseName(), lacks == 1 ? "created" : "restoreFailed");
            EXPECT_THAT(session.machine->steps, Contains("room for a restore"));
            EXPECT_EQ(session.copies(id).size(), 2U);
            const auto* wanted = number > 0 ? "old" : "new";
            EXPECT_EQ(session.read("Work"), lacks == 1 ? wanted : "");
            EXPECT_EQ(session.saveCase(), lacks == 1 ? "" : "savedContentsNotRestored");
        }
    }
}

TEST(SessionLifecycleTest, ASaveThatAnEjectForestallsTellsWhatBecameOfTheFiles) {
    for (const auto saving : {SaveBeforeEject::yes, SaveBeforeEject::no}) {
        for (const bool isOld : {false, true}) {
            Session session;
            session.addWork();
            session.launchOne();
            if (isOld) {
                session.write("Work", "saved");
                session.lifecycle().quit(Force::no, {});
                session.launchOne();
            }
            session.write("Work", "last");
            EXPECT_EQ(isOld ? session.saveCase() : "", "");
            const auto kept = session.kept();
            session.lifecycle().leave(kept.disk, saving, Force::no, {});
            const auto* told = saving == SaveBeforeEject::yes ? "contentsTransferFailed" : "diskEjected";
            EXPECT_EQ(caseOf([&] { session.contents()->save(kept, Verification::no, {}); }), told);
            EXPECT_EQ(caseOf([&] { session.contents()->load(kept, 1, {}); }), told);
        }
    }
}

TEST(SessionLifecycleTest, LoadingChoosesACopyByItsNumber) {
    Session session;
    session.saveEarlier(session.addWork(), {"old", "new"});
    session.launchOne();
    for (const std::size_t number : {std::size_t{0}, std::size_t{3}}) {
        EXPECT_EQ(session.loadCase(number), "contentsTransferFailed");
        EXPECT_EQ(session.read("Work"), "new");
    }
    EXPECT_EQ(session.loadCase(2), "");
    EXPECT_EQ(session.read("Work"), "old");
}

TEST(SessionLifecycleTest, RemovingARecordTakesItsCopiesAndItsKeyAlong) {
    Session session;
    const auto id = session.addVault();
    session.saveEarlier(id, {"secret"});
    session.keyring->secrets.emplace(id.text(), VolumePassphrase("x"));
    session.launchOne();
    const auto kept = session.kept();
    auto profile = session.profiles->load().at(0);
    profile.keepsContents = false;
    session.manage()->store(profile);
    session.manage()->remove(profile);
    // A save that waited for the removal comes too late.
    EXPECT_EQ(caseOf([&] { session.contents()->save(kept, Verification::no, {}); }),
              "contentsTransferFailed");
    EXPECT_THAT(session.profiles->load(), IsEmpty());
    EXPECT_THAT(session.copies(id), IsEmpty());
    EXPECT_THAT(session.keyring->secrets, IsEmpty());
}

} // namespace
} // namespace ramdisk
