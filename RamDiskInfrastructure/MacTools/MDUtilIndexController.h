#pragma once

#include "RamDiskCore/Ports/CommandRunning.h"
#include "RamDiskCore/Ports/SearchIndexControlling.h"

#include <memory>

namespace ramdisk {

/// Switches Spotlight for a volume with macOS's `mdutil`.
class MDUtilIndexController final : public SearchIndexControlling {
public:
    explicit MDUtilIndexController(std::shared_ptr<CommandRunning> runner);

    /// Where the tool speaks of an error, the volume's state decides.
    /// @throws CommandFailure, CommandTimeout, or std::system_error when the tool cannot be started.
    void set(SearchIndexing indexing, const std::filesystem::path& volume) override;

    /// Waits at most 30 seconds.
    [[nodiscard]] std::optional<SearchIndexing> state(const std::filesystem::path& volume) override;

    [[nodiscard]] std::vector<std::string> plan(SearchIndexing indexing) const override;

private:
    [[nodiscard]] bool isSwitched(SearchIndexing indexing, const std::filesystem::path& volume);

    std::shared_ptr<CommandRunning> runner_;
};

} // namespace ramdisk
