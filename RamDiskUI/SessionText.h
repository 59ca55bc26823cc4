#pragma once

#include "RamDiskCore/Setup/RamDiskSetupResult.h"
#include "RamDiskCore/Startup/SessionLifecycleUseCase.h"
#include "RamDiskCore/Startup/ShutdownReport.h"
#include "RamDiskCore/Startup/StartupOutcome.h"

#include <string>
#include <string_view>
#include <vector>

/// The texts about set-ups, launches and quits.
namespace ramdisk {

inline constexpr std::string_view launchAttentionTitle = "Some startup disks need attention";
inline constexpr std::string_view quitAttentionTitle = "Some RAM disks need attention before quitting";
inline constexpr std::string_view unreadableListText =
    "The list of startup disks cannot be read: “Startup Disks.json” is damaged. Repair it or move it away.";
inline constexpr std::string_view stillWorkingTitle = "RamDisk is still saving or ejecting disks";
inline constexpr std::string_view stillWorkingText = "Quitting now may leave kept files unsaved.";

/// “NAME” is ready, but not everything worked
[[nodiscard]] std::string setupProblemsTitle(std::string_view diskName);
[[nodiscard]] std::string problemText(const RamDiskSetupProblem& problem);

/// Why the outcome needs attention; if it does not, what happened.
[[nodiscard]] std::string outcomeText(const StartupOutcome& outcome);

/// That a disk is gone which was to keep its files, and from when they are still there.
[[nodiscard]] std::string lostText(const LostDisk& disk);

/// One line per disk that could not be saved, then one per disk that could not be ejected,
/// then one per redirect.
[[nodiscard]] std::vector<std::string> attentionLines(const ShutdownReport& report);

} // namespace ramdisk
