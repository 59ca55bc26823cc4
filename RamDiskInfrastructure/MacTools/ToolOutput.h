#pragma once

#include "RamDiskCore/Ports/SystemCommand.h"
#include "RamDiskCore/Values/DeviceIdentifier.h"

#include <optional>
#include <string_view>

/// Finds what the adapters look for in the tools' texts. The patterns are few and the texts may be long, so
/// they are matched by hand: the standard library's regular expressions recurse once for each character.
namespace ramdisk {

/// The first whole disk that a text names: the group of (?:\/dev\/)?\b(disk[0-9]+)\b. Slices such as disk4s1
/// and raw nodes such as rdisk4 are skipped.
[[nodiscard]] std::optional<DeviceIdentifier> firstWholeDisk(std::string_view text);

/// The container that `diskutil apfs createContainer` made: the group of Disk from APFS operation:
/// (disk[0-9]+).
[[nodiscard]] std::optional<DeviceIdentifier> apfsOperationDisk(std::string_view text);

/// How often a detach is tried. What still uses a volume when it is unmounted, such as its indexing, mostly
/// ends within seconds.
inline constexpr int detachAttempts = 6;

/// Whether a failed detach says that the disk is in use: exit status 16, or, with any status,
/// Error 80 \(|returned 80\b|Resource busy\b|error 49168\b in what it wrote.
[[nodiscard]] bool saysBusy(const CommandOutput& output);

/// Whether a failed attach says that the passphrase is wrong: by its error number, 80, or by its name if the
/// tool speaks English.
[[nodiscard]] bool saysWrongPassphrase(const CommandOutput& output);

} // namespace ramdisk
