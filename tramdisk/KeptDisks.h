#pragma once

#include "tramdisk/CommandContext.h"

#include <cstddef>
#include <string_view>

namespace ramdisk::cli {

/// The disk that is meant, with its startup disk's record.
/// @throws RamDiskError as `ListRamDisksUseCase::resolve`, `notMounted`; std::runtime_error when it is no
/// startup
///         disk.
[[nodiscard]] KeptDisk resolveKept(const RamDiskReference& reference, const CommandContext& context);

/// The startup disk that is meant, mounted or not.
/// @throws RamDiskError `notFound`; std::runtime_error when the disk is no startup disk.
[[nodiscard]] RamDiskProfile resolveProfile(const RamDiskReference& reference, const CommandContext& context);

/// The startup disk of this name.
/// @throws std::runtime_error
[[nodiscard]] RamDiskProfile startupDiskNamed(const std::string& name, const CommandContext& context);

/// What may be done with a disk on which its saved files were not put back.
[[nodiscard]] std::string unrestoredHint(const std::string& disk);

/// What may be done when the files of a disk cannot be saved; nothing where it lies elsewhere.
[[nodiscard]] std::optional<std::string> savingHint(const std::string& disk, const RamDiskError& error);

/// What it means that a disk is a startup disk.
[[nodiscard]] std::string atLaunchText(const std::string& disk, bool keepsFiles);

/// Tells the user when what is kept between launches lies in memory itself.
void noteStorageInMemory(const CommandContext& context);

/// Names the saved files of startup disks whose record was lost.
void tellLostCopies(const CommandContext& context);

/// Tells each failure as a warning.
void tellRedirectFailures(const std::vector<RedirectFailure>& failures, const CommandContext& context);

/// Tells how many entries of a stored list are not understood, if any are.
/// @returns `failed` then.
ExitStatus tellNotUnderstood(std::size_t count, std::string_view what, const CommandContext& context);

} // namespace ramdisk::cli
