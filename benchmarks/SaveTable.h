#pragma once

#include "benchmarks/BenchmarkDisk.h"
#include "benchmarks/SaveContenders.h"

#include <map>
#include <set>
#include <string>
#include <vector>

namespace ramdisk::benchmarks {

/// What each way of saving took in each phase, run by run.
class SaveTable {
public:
    explicit SaveTable(std::set<Copier> copiers) : copiers_(std::move(copiers)) {}

    void add(const std::string& phase, Copier copier, DiskCost cost);

    /// In seconds.
    [[nodiscard]] double median(const std::string& phase, Copier copier) const;
    /// The median of ours / theirs, run by run.
    [[nodiscard]] double medianRatio(const std::string& phase, Copier peer) const;
    /// In MiB: the least of all runs, since what other programs write meanwhile is counted as well.
    [[nodiscard]] double leastWritten(const std::string& phase, Copier copier) const;

    void print(const std::string& subject) const;
    static void printTarget(const std::string& target, double reached, double most);

private:
    using Costs = std::map<Copier, std::vector<DiskCost>>;

    std::set<Copier> copiers_;
    std::vector<std::string> phases_;
    std::map<std::string, Costs> costs_;
};

} // namespace ramdisk::benchmarks
