#include "tramdisk/SetupOptions.h"

#include "RamDiskUI/DiskText.h"

#include <fmt/format.h>

namespace ramdisk::cli {

namespace {

constexpr auto indexingHelp = "Let the desktop's search index read the volume";
constexpr auto noIndexingHelp = "Keep the desktop's search index off the volume";
constexpr auto atLaunchHelp = "Make the disk at every launch";
constexpr auto keepFilesHelp = "Save the disk's files and put them back at the next launch";

std::string accessOptionHelp() {
    return fmt::format("Who may open the volume: {}", accessHelp());
}

} // namespace

void SetupOptions::declareForNewDisk(Syntax& syntax) {
    syntax.value("--template", templateTitle, "Take what other options leave open from this template");
    syntax.value("--size", size,
                 "Size, such as 512M, 2G or 1.5GB; a bare number means MB (default: as in the settings)");
    syntax.value("--format", fileSystem,
                 fmt::format("Format: {} (default: as in the settings)", formatHelp()));
    syntax.onOff("encrypt", isEncrypted, fmt::format("Encrypt the volume ({} only)", encryptionHelp()),
                 "Do not encrypt the volume (overrides the settings and the template)");
    syntax.value("--name", name, "Name of the volume (default: the first free of RAMDisk, RAMDisk 2, ...)");
    syntax.onOff("indexing", isIndexingEnabled, indexingHelp, noIndexingHelp);
    syntax.value("--access", access, accessOptionHelp());
    syntax.onOff("at-launch", createsAtLaunch, atLaunchHelp,
                 "Do not make the disk at launch (overrides the template)");
    syntax.onOff("keep-files", keepsFiles, keepFilesHelp,
                 "Do not keep the disk's files (overrides the template)");
    declareAdditions(syntax);
}

void SetupOptions::declareForExistingDisk(Syntax& syntax) {
    syntax.value("--name", name, "New name of the volume");
    syntax.onOff("indexing", isIndexingEnabled, indexingHelp, noIndexingHelp);
    syntax.value("--access", access, accessOptionHelp());
    syntax.flag("--at-launch", createsAtLaunch, atLaunchHelp);
    syntax.onOff("keep-files", keepsFiles, keepFilesHelp, "Stop keeping the disk's files");
    syntax.number("--copies", previousCopies, "Number of earlier saved copies to keep");
    syntax.flag("--replace-redirects", replacesRedirects,
                "Remove the disk's redirects that are not given with --redirect");
    declareAdditions(syntax);
}

void SetupOptions::declareAdditions(Syntax& syntax) {
    syntax.value("--seed", seedFolder, "Copy the contents of this folder onto the disk each time it is made");
    syntax.value("--folder", folders,
                 fmt::format("Make this folder on the disk (may be given several times). {}", foldersText));
    syntax.value(
        "--redirect", redirects,
        fmt::format("Keep a tool's folder on the disk (may be given several times): {}", targetHelp()));
}

} // namespace ramdisk::cli
