#pragma once

#include "RamDiskCore/Values/UUID.h"
#include "RamDiskInfrastructure/Redirects/HomeTree.h"
#include "RamDiskInfrastructure/Redirects/RedirectStep.h"

#include <filesystem>
#include <optional>
#include <string>

namespace ramdisk {

/// Hides a link and the original beside it from git while they stand in a project: a pattern of a folder does
/// not hold for a link, so `git clean` would delete both, and `git add` would take them.
///
/// The lines stand before the user's own in the project's `.git/info/exclude`. A project whose `.git` is no
/// folder, and one of another user's, is left alone. What fails here is traced and hinders nothing.
class GitExclusion {
public:
    GitExclusion(std::filesystem::path home, const UUID& redirect, StepObserver observer);

    /// For the folder `name` in `parent`.
    void add(const OpenedFolder& parent, const std::string& name) const;

    /// How git would still delete the link `name` in `parent` and the original, and what prevents that.
    /// Absent outside of projects, of whatever kind and owner.
    [[nodiscard]] std::optional<std::string> hazard(const OpenedFolder& parent,
                                                    const std::string& name) const;

    /// Takes away what `add` wrote, and a file that it made.
    void remove(const OpenedFolder& parent) const;

private:
    /// The project's folder of patterns, and its own folder.
    struct Project {
        std::filesystem::path patterns;
        std::filesystem::path root;
    };
    [[nodiscard]] std::optional<Project> projectOf(const OpenedFolder& parent) const;
    void replace(const std::filesystem::path& file, const std::string& text) const;

    /// Whether the lines are in the project's file.
    [[nodiscard]] bool isHidden(const OpenedFolder& parent) const;

    std::filesystem::path home_;
    std::string begin_;
    std::string end_;
    StepObserver observer_;
};

} // namespace ramdisk
