#pragma once

#include "RamDiskInfrastructure/Commands/FileDescriptor.h"

#include <filesystem>
#include <string>
#include <vector>

namespace ramdisk::benchmarks {

/// A place to make disks in that nobody else sees: a mount namespace of its own and a temporary folder, to
/// which `TRAMDISK_STATE` points. The kernel takes every mount away when the process ends, however it ends;
/// the folder goes with this value.
///
/// Several can stand side by side, each with its own mount table, so that listings of different lengths can
/// be compared in turn. For single-threaded programs.
class BenchmarkState {
public:
    /// Enters the new place. @throws std::system_error, for one when the process may not mount.
    BenchmarkState();
    BenchmarkState(const BenchmarkState&) = delete;
    BenchmarkState& operator=(const BenchmarkState&) = delete;
    ~BenchmarkState();

    /// Makes this place the one that the process and its later children see.
    void enter() const;

    [[nodiscard]] const std::filesystem::path& folder() const noexcept { return folder_; }

    /// Where a disk of this name is mounted.
    [[nodiscard]] std::filesystem::path mountPoint(const std::string& name) const {
        return folder_ / "media" / name;
    }

private:
    FileDescriptor namespace_;
    std::filesystem::path folder_;
};

/// Runs a program, found by PATH, to its end, its output thrown away.
/// @throws std::runtime_error when it cannot be started or does not end with status 0.
void runProgram(const std::vector<std::string>& commandLine);

/// Runs the program that is measured.
void runTramdisk(std::vector<std::string> arguments);

} // namespace ramdisk::benchmarks
