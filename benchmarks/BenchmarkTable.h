#pragma once

#include <functional>
#include <string>
#include <vector>

namespace ramdisk::benchmarks {

/// One way of doing the work that is measured.
struct Contender {
    std::string name;
    /// Does the work once; what it does before returning is what is timed.
    std::function<void()> run;
    /// Restores the state between two runs; not timed. May be empty.
    std::function<void()> cleanUp;
};

/// What was measured of one contender, in seconds.
struct Timing {
    double minimum = 0;
    double median = 0;
    double maximum = 0;
};

/// Runs ours and its peer in turn, so that a machine whose speed drifts slows both alike, and prints a row:
/// both medians, and the median of the ratios ours / peer run by run. Below 1 ours is faster.
/// @returns that median ratio.
double compare(const std::string& title, const Contender& ours, const Contender& peer, int runs);

/// One part of a longer piece of work, done on our side and on the peer's.
struct Phase {
    std::string title;
    std::function<void()> ours;
    std::function<void()> peer;
};

/// As `compare`, for work in phases that build upon each other, a row each. Every run does all of them on one
/// side and then on the other, and the sides take turns at going first, so that neither always finds the
/// memory that the other has just given back.
void compareInPhases(const std::vector<Phase>& phases, const std::string& peer, int runs);

/// Prints the heading of the rows that `compare` prints.
void printHeading(const std::string& subject);

/// The smallest, middle and largest of `seconds`.
[[nodiscard]] Timing timingOf(std::vector<double> seconds);

} // namespace ramdisk::benchmarks
