#include "RamDiskInfrastructure/Commands/Watchdog.h"

#include "tests/support/Testing.h"

namespace ramdisk::test {
namespace {

using namespace std::chrono_literals;
const Watchdog::TimePoint start{1000s};

TEST(Watchdog, TerminatesAtTheLimitAndKillsTwoSecondsLaterOnce) {
    Watchdog watchdog(1.5, start);
    EXPECT_EQ(watchdog.takeDueSignal(start + 1499ms), std::nullopt);
    EXPECT_EQ(watchdog.takeDueSignal(start + 1600ms), SIGTERM);
    EXPECT_EQ(watchdog.takeDueSignal(start + 3599ms), std::nullopt);
    EXPECT_EQ(watchdog.takeDueSignal(start + 3600ms), SIGKILL);
    EXPECT_EQ(watchdog.takeDueSignal(start + 9000ms), std::nullopt);
}

TEST(Watchdog, NothingIsDueOnceStopped) {
    for (const bool isFired : {false, true}) {
        Watchdog watchdog(1, start);
        EXPECT_EQ(watchdog.takeDueSignal(start + (isFired ? 1s : 0s)),
                  isFired ? std::optional(SIGTERM) : std::nullopt);
        watchdog.stop();
        EXPECT_EQ(watchdog.takeDueSignal(start + 5s), std::nullopt);
        EXPECT_EQ(watchdog.didFire(), isFired);
    }
}

TEST(Watchdog, LimitsAtTheEdgesOfTheirRange) {
    constexpr auto infinity = std::numeric_limits<double>::infinity();
    EXPECT_EQ(Watchdog(std::nullopt, start).limit(), std::nullopt);
    for (const double endless : {infinity, 1e300, 1e10}) {
        EXPECT_EQ(Watchdog(endless, start).limit(), std::nullopt) << endless;
    }
    for (const double passed : {0.0, -3.0, -infinity, std::numeric_limits<double>::quiet_NaN()}) {
        EXPECT_EQ(Watchdog(passed, start).takeDueSignal(start), SIGTERM) << passed;
    }
}

} // namespace
} // namespace ramdisk::test
