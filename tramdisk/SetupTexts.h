#pragma once

#include "tramdisk/Parser.h"

#include <optional>
#include <string>
#include <vector>

namespace ramdisk::cli {

/// The options that describe a disk, as typed.
struct SetupTexts {
    /// For which subcommand: a standing disk has settled what a new one may choose.
    enum class Use { newDisk, standingDisk };

    void addTo(CLI::App& app, Use use);

    /// @throws UsageError for the first text that cannot be meant.
    [[nodiscard]] SetupOptions read() const;

    std::optional<std::string> templateTitle;

private:
    void addNewDiskOptions(CLI::App& app);

    std::optional<std::string> name_;
    std::optional<std::string> size_;
    std::optional<std::string> format_;
    std::optional<std::string> access_;
    std::optional<std::string> seed_;
    std::vector<std::string> folders_;
    std::vector<std::string> redirects_;
    Switch indexing_;
    Switch encrypt_;
    Switch atLaunch_;
    Switch keepFiles_;
};

/// @throws UsageError
[[nodiscard]] RedirectTarget readTarget(const std::string& text);

} // namespace ramdisk::cli
