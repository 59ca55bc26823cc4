#include "benchmarks/BenchmarkTable.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cstdio>

namespace ramdisk::benchmarks {

namespace {

double secondsOf(const Contender& contender) {
    const auto start = std::chrono::steady_clock::now();
    contender.run();
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    if (contender.cleanUp) {
        contender.cleanUp();
    }
    return taken.count();
}

} // namespace

Timing timingOf(std::vector<double> seconds) {
    std::sort(seconds.begin(), seconds.end());
    return {seconds.front(), seconds[seconds.size() / 2], seconds.back()};
}

void printHeading(const std::string& subject) {
    fmt::print("\n{}\n{:<44} {:>12} {:>12} {:>8}   {}\n", subject, "", "ours [ms]", "peer [ms]", "ratio", "peer");
    std::fflush(stdout);
}

double compare(const std::string& title, const Contender& ours, const Contender& peer, int runs) {
    secondsOf(ours);
    secondsOf(peer);
    std::vector<double> oursSeconds;
    std::vector<double> peerSeconds;
    std::vector<double> ratios;
    for (int run = 0; run < runs; ++run) {
        oursSeconds.push_back(secondsOf(ours));
        peerSeconds.push_back(secondsOf(peer));
        ratios.push_back(oursSeconds.back() / peerSeconds.back());
    }
    const double ratio = timingOf(ratios).median;
    fmt::print("{:<44} {:>12.3f} {:>12.3f} {:>8.2f}   {}\n", title, timingOf(oursSeconds).median * 1000,
               timingOf(peerSeconds).median * 1000, ratio, peer.name);
    std::fflush(stdout);
    return ratio;
}

} // namespace ramdisk::benchmarks
