#pragma once

#include <string>
#include <string_view>

/// The texts about making, sharing and ejecting disks.
namespace ramdisk {

/// The title of an alert with the error's text. A shell shows the text alone.
inline constexpr std::string_view creationFailedTitle = "Could not create the RAM disk";
inline constexpr std::string_view onlyOwnDisksText =
    "Only disks RamDisk created are ejected all at once. Eject other apps’ disks one by one.";
/// A window says beside it where its menu makes a template; a shell has a command for that.
inline constexpr std::string_view noTemplatesText = "No templates of your own yet.";
inline constexpr std::string_view templateReplacedText = "A template with this name is replaced.";
inline constexpr std::string_view foldersText =
    "Made each time the disk is created, after its files, if they are missing.";

/// What `onlyMe` means for a disk that is mounted in this folder.
[[nodiscard]] std::string privateAccessText(std::string_view folder = "~/Library/RamDisks");

} // namespace ramdisk
