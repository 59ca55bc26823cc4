#include "RamDiskInfrastructure/MacTools/MDUtilIndexController.h"

#include "RamDiskCore/Values/ASCII.h"
#include "RamDiskInfrastructure/MacTools/ToolPaths.h"

#include <utility>

namespace ramdisk {

namespace {

SystemCommand setCommand(SearchIndexing indexing, const std::string& volume) {
    return {toolPaths::mdutil,
            {"-i", indexing == SearchIndexing::on ? "on" : "off", volume},
            std::nullopt,
            std::nullopt};
}

} // namespace

MDUtilIndexController::MDUtilIndexController(std::shared_ptr<CommandRunning> runner)
    : runner_(std::move(runner)) {}

void MDUtilIndexController::set(SearchIndexing indexing, const std::filesystem::path& volume) {
    runner_->runChecked(setCommand(indexing, volume.string()));
}

std::optional<SearchIndexing> MDUtilIndexController::state(const std::filesystem::path& volume) {
    const auto output = runner_->run({toolPaths::mdutil, {"-s", volume.string()}, std::nullopt, 30.0});
    // The tool begins the sentence with a capital.
    const auto text = lowerCased(output.standardOutput);
    if (text.find("indexing enabled") != std::string::npos) {
        return SearchIndexing::on;
    }
    if (text.find("indexing disabled") != std::string::npos) {
        return SearchIndexing::off;
    }
    return std::nullopt;
}

std::vector<std::string> MDUtilIndexController::plan(SearchIndexing indexing) const {
    return {setCommand(indexing, "MOUNT-POINT").description()};
}

} // namespace ramdisk
