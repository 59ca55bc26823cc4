#include "benchmarks/SaveTable.h"

#include "benchmarks/BenchmarkTable.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>

namespace ramdisk::benchmarks {

void SaveTable::add(const std::string& phase, Copier copier, DiskCost cost) {
    if (!costs_.contains(phase)) {
        phases_.push_back(phase);
    }
    costs_[phase][copier].push_back(cost);
}

double SaveTable::median(const std::string& phase, Copier copier) const {
    std::vector<double> seconds;
    for (const auto& cost : costs_.at(phase).at(copier)) {
        seconds.push_back(cost.seconds);
    }
    return timingOf(seconds).median;
}

double SaveTable::medianRatio(const std::string& phase, Copier peer) const {
    const auto& ours = costs_.at(phase).at(Copier::tramdisk);
    const auto& theirs = costs_.at(phase).at(peer);
    std::vector<double> ratios;
    for (std::size_t run = 0; run < ours.size(); ++run) {
        ratios.push_back(ours[run].seconds / theirs[run].seconds);
    }
    return timingOf(ratios).median;
}

double SaveTable::leastWritten(const std::string& phase, Copier copier) const {
    const auto& costs = costs_.at(phase).at(copier);
    return std::min_element(costs.begin(), costs.end(),
                            [](const DiskCost& left, const DiskCost& right) {
                                return left.mebibytesWritten < right.mebibytesWritten;
                            })
        ->mebibytesWritten;
}

void SaveTable::print(const std::string& subject) const {
    fmt::print("\n{}: seconds until the system disk has it / MiB written (ours by theirs)\n{:<30}", subject,
               "");
    for (const auto copier : copiers_) {
        fmt::print(" {:>26}", nameOf(copier));
    }
    fmt::print("\n");
    for (const auto& phase : phases_) {
        fmt::print("{:<30}", phase);
        for (const auto copier : copiers_) {
            std::string cell = "-";
            if (costs_.at(phase).contains(copier)) {
                cell = fmt::format("{:.2f} /{:6.0f}", median(phase, copier), leastWritten(phase, copier));
                cell += copier == Copier::tramdisk ? std::string()
                                                   : fmt::format(" ({:4.2f})", medianRatio(phase, copier));
            }
            fmt::print(" {:>26}", cell);
        }
        fmt::print("\n");
    }
    std::fflush(stdout);
}

void SaveTable::printTarget(const std::string& target, double reached, double most) {
    fmt::print("{:<60} {:>6.2f}   {}\n", target, reached, reached <= most ? "met" : "missed");
    std::fflush(stdout);
}

} // namespace ramdisk::benchmarks
