#include "tests/support/RedirectInterruptions.h"

#include <fmt/format.h>

namespace ramdisk::test {

namespace {

/// A world in which the scene is set, and what it looked like before anything was done.
struct Stage {
    explicit Stage(const RedirectScene& aScene) : scene(aScene) {
        scene.prepare(world);
        tree = world.tree();
        outside = scene.outside(world);
    }
    Stage(const Stage&) = delete;
    Stage& operator=(const Stage&) = delete;
    /// A mount would keep the scratch folder.
    ~Stage() {
        try {
            world.useCase().undo("Dev");
        } catch (const std::exception& error) {
            ADD_FAILURE() << error.what();
        }
    }
    void putInPlace() const {
        ASSERT_THAT(texts(world.useCase().add(world.disk(), {scene.target}, scene.start)), IsEmpty());
        ASSERT_TRUE(tree != world.tree() || outside != scene.outside(world));
    }
    void expectAsBefore() const {
        EXPECT_EQ(world.tree(), tree);
        EXPECT_EQ(scene.outside(world), outside);
        for (const auto& redirect : world.useCase().list()) {
            EXPECT_FALSE(redirect.restoreState || redirect.applying);
        }
    }
    /// A redirect that came to be in force while its disk is there may be; it goes with the disk.
    void expectRepaired() const {
        EXPECT_THAT(texts(world.useCase().repair()), IsEmpty());
        for (const auto& redirect : world.useCase().list()) {
            EXPECT_FALSE(redirect.applying);
        }
        if (world.isMounted) {
            EXPECT_THAT(texts(world.useCase().undo("Dev")), IsEmpty());
        }
        expectAsBefore();
    }

    const RedirectScene& scene;
    RedirectWorld world;
    std::map<std::string, std::string> tree;
    std::string outside;
};

void undoAll(FolderRedirectsUseCase& redirects) {
    redirects.undo("Dev");
}

/// Runs `attempt` for step 0, 1, 2 ... until it says that there was no such step.
void forEachStep(const std::string& what, const std::function<bool(int)>& attempt) {
    constexpr int fewest = 4;
    int step = 0;
    bool wasInterrupted = true;
    while (wasInterrupted && !testing::Test::HasFatalFailure()) {
        SCOPED_TRACE(fmt::format("{} interrupted at step {}", what, step));
        wasInterrupted = attempt(step++);
    }
    EXPECT_GT(step, fewest) << "too few steps to have been tried at all";
}

bool killRepair(const RedirectScene& scene, int undoStep, int repairStep) {
    Stage stage(scene);
    stage.putInPlace();
    EXPECT_TRUE(stage.world.runKilledAt(undoStep, undoAll));
    stage.world.loseDisk();
    const bool wasKilled = stage.world.runKilledAt(repairStep, [](auto& redirects) { redirects.repair(); });
    stage.expectRepaired();
    return wasKilled;
}

void tryKilling(const RedirectScene& scene) {
    for (const bool isLost : {false, true}) {
        forEachStep("apply, killed", [&](int step) {
            Stage stage(scene);
            const auto apply = [&](auto& redirects) {
                redirects.add(stage.world.disk(), {scene.target}, scene.start);
            };
            if (!stage.world.runKilledAt(step, apply)) {
                return false;
            }
            if (isLost) {
                stage.world.loseDisk();
            }
            stage.expectRepaired();
            return true;
        });
    }
    forEachStep("undo, killed", [&](int step) {
        Stage stage(scene);
        stage.putInPlace();
        if (!stage.world.runKilledAt(step, undoAll)) {
            return false;
        }
        for (int repairStep = 0; killRepair(scene, step, repairStep); ++repairStep) {
        }
        stage.expectRepaired();
        return true;
    });
}

/// Every file below a folder, whatever folder that is in.
std::multiset<std::string> filesIn(const std::filesystem::path& root) {
    std::multiset<std::string> files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
        if (entry.is_regular_file() && !entry.is_symlink()) {
            files.insert(entry.path().filename().string() + ": " + readFile(entry.path()));
        }
    }
    return files;
}

/// Removing a redirect that has a file on the disk. Killed anywhere, it loses neither that file nor the
/// original, and can be done again.
void tryKillingRemoval(const RedirectScene& scene, FolderRedirectsUseCase::FilesOnDisk files) {
    using Files = FolderRedirectsUseCase::FilesOnDisk;
    constexpr auto kept = FolderRedirectsUseCase::LostOriginals::keptListed;
    const auto remove = [&](FolderRedirectsUseCase& redirects) {
        redirects.remove("Dev", {scene.target}, kept, files);
    };
    forEachStep("removal, killed", [&](int step) {
        const Stage stage(scene);
        const auto originals = filesIn(stage.world.home());
        stage.putInPlace();
        const auto name = FolderRedirector(stage.world.parts).place(scene.target).nameOnDisk;
        writeFile(stage.world.onDisk(name) / "result", "of an hour");
        const bool wasKilled = stage.world.runKilledAt(step, remove);
        auto repaired = stage.world.useCase();
        const auto told = texts(repaired.repair());
        EXPECT_TRUE(files == Files::putBack || told.empty()) << testing::PrintToString(told);
        if (!repaired.list().empty()) {
            EXPECT_TRUE(files == Files::discarded
                        || readFile(stage.world.onDisk(name) / "result") == "of an hour"
                        || filesIn(stage.world.home()).contains("result: of an hour"));
            remove(repaired);
        }
        EXPECT_THAT(repaired.list(), IsEmpty());
        EXPECT_FALSE(std::filesystem::exists(stage.world.onDisk(name)));
        const auto left = filesIn(stage.world.home());
        EXPECT_TRUE(std::includes(left.begin(), left.end(), originals.begin(), originals.end()));
        if (files == Files::discarded) {
            stage.expectAsBefore();
        } else {
            EXPECT_TRUE(left.contains("result: of an hour"));
        }
        return wasKilled;
    });
}

/// Fails each step of applying, or of undoing.
void tryFailing(const RedirectScene& scene, bool isUndo) {
    forEachStep(isUndo ? "undo, failed" : "apply, failed", [&](int step) {
        Stage stage(scene);
        if (isUndo) {
            stage.putInPlace();
        }
        bool hasFailed = false;
        auto redirects = stage.world.useCase(failingAt(step, hasFailed));
        std::vector<std::string> told;
        try {
            told = texts(isUndo ? redirects.undo("Dev")
                                : redirects.add(stage.world.disk(), {scene.target}, scene.start));
        } catch (const std::exception& error) {
            told = {error.what()};
        }
        if (!hasFailed && !isUndo) {
            return false;
        }
        EXPECT_THAT(told, testing::ElementsAreArray(
                              std::vector(hasFailed ? 1 : 0, testing::StartsWith("step refused: "))));
        stage.expectRepaired();
        return hasFailed;
    });
}

} // namespace

void expectEveryInterruptionIsRepaired(const RedirectScene& scene) {
    tryKilling(scene);
    tryFailing(scene, false);
    tryFailing(scene, true);
}

void expectEveryInterruptedRemovalIsRepaired(const RedirectScene& scene) {
    tryKillingRemoval(scene, FolderRedirectsUseCase::FilesOnDisk::discarded);
    tryKillingRemoval(scene, FolderRedirectsUseCase::FilesOnDisk::putBack);
}

} // namespace ramdisk::test
