#include "tramdisk/SessionJSON.h"

#include "RamDiskUI/ErrorText.h"
#include "RamDiskUI/SessionText.h"
#include "tramdisk/ListJSON.h"

#include <nlohmann/json.hpp>

#include <chrono>

namespace ramdisk::cli {

namespace {

Json failuresJSON(const std::vector<ShutdownReport::Failure>& failures) {
    auto list = Json::array();
    for (const auto& failure : failures) {
        list.push_back({{"ramDisk", toJSON(failure.ramDisk)}, {"text", errorText(failure.error)}});
    }
    return list;
}

} // namespace

Json toJSON(const StartupOutcome& outcome) {
    Json json{{"case", outcome.caseName()}, {"name", outcome.name()}, {"text", outcomeText(outcome)}};
    if (const auto* disk = outcome.disk()) {
        json["ramDisk"] = toJSON(*disk);
    }
    return json;
}

Json toJSON(const ShutdownReport& report) {
    return {{"saved", listJSON(report.saved)},
            {"ejected", listJSON(report.ejected)},
            {"saveFailures", failuresJSON(report.saveFailures)},
            {"ejectFailures", failuresJSON(report.ejectFailures)},
            {"redirectFailures", listJSON(report.redirectFailures)}};
}

Json toJSON(const SavedCopy& copy) {
    // Dates are seconds since 1 January 2001, as in the stored lists.
    constexpr std::int64_t referenceDate = 978307200;
    const auto seconds =
        std::chrono::duration_cast<std::chrono::seconds>(copy.savedAt.time_since_epoch()).count();
    return {{"image", copy.image.string()},
            {"savedAt", seconds - referenceDate},
            {"size", toJSON(copy.size)},
            {"isLatest", copy.isLatest}};
}

Json toJSON(const RedirectFailure& failure) {
    return {{"redirect", toJSON(failure.redirect)}, {"text", failureText(failure)}};
}

Json toJSON(const std::vector<RamDiskSetupProblem>& problems) {
    auto list = Json::array();
    for (const auto& problem : problems) {
        list.push_back({{"case", problem.caseName()}, {"text", problemText(problem)}});
    }
    return list;
}

} // namespace ramdisk::cli
