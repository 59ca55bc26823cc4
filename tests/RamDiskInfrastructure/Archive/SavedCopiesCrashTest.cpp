#include "tests/RamDiskInfrastructure/Archive/SavingWorld.h"

namespace ramdisk::test {
namespace {

using ::testing::IsSupersetOf;

enum class Operation { save, bringBack };
enum class Ending { killed, failed };
using Case = std::tuple<Operation, Ending, HardLinks, std::uint32_t>;

class InterruptedOperation : public ::testing::TestWithParam<Case> {
protected:
    const Operation operation = std::get<0>(GetParam());
    const Ending ending = std::get<1>(GetParam());
    const HardLinks hardLinks = std::get<2>(GetParam());
    const std::uint32_t previousCopies = std::get<3>(GetParam());

    /// Saved "1", "2" and "3", then once more or with the oldest brought back.
    void run(const SavingWorld& world) const {
        if (operation == Operation::save) {
            world.save("new");
        } else {
            world.restore(world.archiver().copies(world.files).back().image);
        }
    }

    void prepare(SavingWorld& world) const {
        const auto saved = std::filesystem::file_time_type::clock::now() - std::chrono::hours(1);
        for (const auto* content : {"1", "2", "3"}) {
            world.save(content);
            // All in one second, however the clock stands: what is brought back keeps its date.
            std::filesystem::last_write_time(world.files.latest, saved);
        }
        world.previousCopies = previousCopies;
    }

    [[nodiscard]] std::vector<std::string> steps() const {
        SavingWorld world(hardLinks);
        prepare(world);
        std::vector<std::string> names;
        world.observer = [&names](std::string_view step) { names.emplace_back(step); };
        run(world);
        return names;
    }

    void interrupt(SavingWorld& world, std::size_t at) const {
        world.observer = [this, at, count = std::size_t{0}](std::string_view) mutable {
            if (count++ == at) {
                ending == Ending::killed ? static_cast<void>(raise(SIGKILL))
                                         : throw std::runtime_error("no such luck");
            }
        };
        if (ending == Ending::failed) {
            EXPECT_THROW(run(world), RamDiskError);
        } else {
            const auto child = fork();
            if (child == 0) {
                run(world);
                _exit(0);
            }
            int status = 0;
            EXPECT_EQ(waitpid(child, &status, 0), child);
            EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
        }
        world.observer = {};
    }
};

TEST_P(InterruptedOperation, LeavesWholeCopiesAndTheNextOneTidiesUp) {
    const auto names = steps();
    ASSERT_GT(names.size(), 4U);
    const auto replacing = std::find(names.begin(), names.end(), "replace latest") - names.begin();
    for (std::size_t at = 0; at < names.size(); ++at) {
        SCOPED_TRACE("before “" + names[at] + "”");
        SavingWorld world(hardLinks);
        prepare(world);
        interrupt(world, at);

        const bool isReplaced = at > static_cast<std::size_t>(replacing);
        const auto newest = operation == Operation::save ? "[new]" : "[1]";
        const auto after = world.copies();
        ASSERT_FALSE(after.empty());
        if (hardLinks == HardLinks::whereSupported) {
            EXPECT_EQ(after.front(), isReplaced ? newest : "[3]");
        } else {
            EXPECT_THAT(after.front(), AnyOf("[3]", newest));
        }
        if (names[at] != "retire") {
            EXPECT_THAT(after, IsSupersetOf(images({"1", "2", "3"})));
        }
        if (ending == Ending::failed) {
            EXPECT_THAT(world.leftovers(), IsEmpty());
        }

        auto expected = after;
        expected.insert(expected.begin(), "[next]");
        expected.resize(std::min<std::size_t>(expected.size(), previousCopies + 1));
        EXPECT_EQ(world.save("next"), SaveOutcome::saved);
        EXPECT_THAT(world.copies(), ElementsAreArray(expected));
        EXPECT_THAT(world.leftovers(), IsEmpty());
    }
}

INSTANTIATE_TEST_SUITE_P(EveryStep, InterruptedOperation,
                         ::testing::Combine(::testing::Values(Operation::save, Operation::bringBack),
                                            ::testing::Values(Ending::killed, Ending::failed),
                                            ::testing::Values(HardLinks::whereSupported, HardLinks::never),
                                            ::testing::Values(0U, 1U, 3U)));

} // namespace
} // namespace ramdisk::test
