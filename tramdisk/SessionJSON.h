#pragma once

#include "RamDiskCore/Setup/RamDiskSetupResult.h"
#include "RamDiskCore/Startup/ShutdownReport.h"
#include "RamDiskCore/Startup/StartupOutcome.h"
#include "RamDiskCore/Values/SavedContents.h"
#include "RamDiskInfrastructure/Stores/RecordJSON.h"

#include <vector>

/// What launches, quits and set-ups gave, as scripts read it.
namespace ramdisk::cli {

[[nodiscard]] Json toJSON(const StartupOutcome& outcome);
[[nodiscard]] Json toJSON(const ShutdownReport& report);
[[nodiscard]] Json toJSON(const SavedCopy& copy);
[[nodiscard]] Json toJSON(const RedirectFailure& failure);
[[nodiscard]] Json toJSON(const std::vector<RamDiskSetupProblem>& problems);

} // namespace ramdisk::cli
