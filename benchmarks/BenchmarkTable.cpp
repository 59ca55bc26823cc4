#include "benchmarks/BenchmarkTable.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cstdio>

namespace ramdisk::benchmarks {

namespace {

double secondsOf(const std::function<void()>& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    return taken.count();
}

double secondsOf(const Contender& contender) {
    const double seconds = secondsOf(contender.run);
    if (contender.cleanUp) {
        contender.cleanUp();
    }
    return seconds;
}

/// What was measured of one row, run by run.
struct Series {
    std::vector<double> ours;
    std::vector<double> peer;
};

double printRow(const std::string& title, const std::string& peer, const Series& series) {
    std::vector<double> ratios;
    for (std::size_t run = 0; run < series.ours.size(); ++run) {
        ratios.push_back(series.ours[run] / series.peer[run]);
    }
    const double ratio = timingOf(ratios).median;
    fmt::print("{:<44} {:>12.3f} {:>12.3f} {:>8.2f}   {}\n", title, timingOf(series.ours).median * 1000,
               timingOf(series.peer).median * 1000, ratio, peer);
    std::fflush(stdout);
    return ratio;
}

void runPhases(const std::vector<Phase>& phases, std::function<void()> Phase::*side,
               std::vector<double> Series::*seconds, std::vector<Series>& series) {
    for (std::size_t phase = 0; phase < phases.size(); ++phase) {
        (series[phase].*seconds).push_back(secondsOf(phases[phase].*side));
    }
}

} // namespace

Timing timingOf(std::vector<double> seconds) {
    std::sort(seconds.begin(), seconds.end());
    return {seconds.front(), seconds[seconds.size() / 2], seconds.back()};
}

void printHeading(const std::string& subject) {
    fmt::print("\n{}\n{:<44} {:>12} {:>12} {:>8}   {}\n", subject, "", "ours [ms]", "peer [ms]", "ratio",
               "peer");
    std::fflush(stdout);
}

double compare(const std::string& title, const Contender& ours, const Contender& peer, int runs) {
    secondsOf(ours);
    secondsOf(peer);
    Series series;
    for (int run = 0; run < runs; ++run) {
        series.ours.push_back(secondsOf(ours));
        series.peer.push_back(secondsOf(peer));
    }
    return printRow(title, peer.name, series);
}

void compareInPhases(const std::vector<Phase>& phases, const std::string& peer, int runs) {
    std::vector<Series> warmUp(phases.size());
    runPhases(phases, &Phase::ours, &Series::ours, warmUp);
    runPhases(phases, &Phase::peer, &Series::peer, warmUp);
    std::vector<Series> series(phases.size());
    for (int run = 0; run < runs; ++run) {
        if (run % 2 == 0) {
            runPhases(phases, &Phase::ours, &Series::ours, series);
            runPhases(phases, &Phase::peer, &Series::peer, series);
        } else {
            runPhases(phases, &Phase::peer, &Series::peer, series);
            runPhases(phases, &Phase::ours, &Series::ours, series);
        }
    }
    for (std::size_t phase = 0; phase < phases.size(); ++phase) {
        printRow(phases[phase].title, peer, series[phase]);
    }
}

} // namespace ramdisk::benchmarks
