#include "tramdisk/SetupTexts.h"

#include "RamDiskUI/ErrorText.h"
#include "tramdisk/RedirectTargetText.h"

#include <fmt/format.h>

#include <filesystem>

namespace ramdisk::cli {

void SetupTexts::addTo(CLI::App& app, Use use) {
    const bool isNew = use == Use::newDisk;
    if (isNew) {
        addNewDiskOptions(app);
    }
    app.add_option("--name", name_,
                   isNew ? "Name of the volume (default: the first free of RAMDisk, RAMDisk 2, ...)"
                         : "The new name");
    indexing_.addTo(app, "indexing", "Let the desktop's search index read the volume",
                    isNew ? "Not so, whatever the settings say" : "Keep the search index off the volume");
    app.add_option("--access", access_, "everyone or onlyMe");
    if (isNew) {
        atLaunch_.addTo(app, "at-launch", "Make the disk at every launch",
                        "Not so, whatever the template says");
    } else {
        app.add_flag("--at-launch", atLaunch_.on, "Make the disk at every launch");
    }
    keepFiles_.addTo(app, "keep-files", "Save its files and put them back at the next launch",
                     isNew ? "Not so, whatever the template says" : "No more");
    app.add_option("--seed", seed_, "Copy the contents of this folder onto the new disk");
    addTexts(app, "--folder", folders_, "Make this folder on the disk (may be given several times)");
    addTexts(app, "--redirect", redirects_,
             "Keep a tool's folder on the disk: xcode, npm, tmp, cache:NAME or folder:PATH (several times)");
}

void SetupTexts::addNewDiskOptions(CLI::App& app) {
    app.add_option("--template", templateTitle, "Start from this template");
    app.add_option("--size", size_,
                   "Size, such as 512M, 2G or 1.5GB; a bare number means MB (default: as in the settings)");
    app.add_option("--format", format_, "apfs, apfsx, hfs+, jhfs+, exfat or fat32");
    encrypt_.addTo(app, "encrypt", "Encrypt the volume (apfs and apfsx)",
                   "Not so, whatever the settings say");
}

SetupOptions SetupTexts::read() const {
    SetupOptions options;
    auto& specification = options.specification;
    specification.name = name_;
    specification.isEncrypted = encrypt_.read();
    specification.isIndexingEnabled = indexing_.read();
    options.createsAtLaunch = atLaunch_.read();
    options.keepsFiles = keepFiles_.read();
    options.folders = folders_;
    if (size_) {
        try {
            specification.size = ByteCount::parse(*size_, ByteCount::Unit::mebibyte);
        } catch (const ByteCountParsingError& error) {
            throw UsageError(errorText(error));
        }
    }
    if (format_) {
        specification.fileSystem = fileSystemFromRawValue(*format_);
        if (!specification.fileSystem) {
            throw UsageError(
                fmt::format("“{}” is not a format. Use apfs, apfsx, hfs+, jhfs+, exfat or fat32.", *format_));
        }
    }
    if (access_) {
        specification.access = volumeAccessFromRawValue(*access_);
        if (!specification.access) {
            throw UsageError(fmt::format("“{}” is not an access. Use everyone or onlyMe.", *access_));
        }
    }
    if (seed_) {
        // The disk may be made again by a process that runs elsewhere.
        options.seedFolder = std::filesystem::absolute(*seed_);
    }
    for (const auto& redirect : redirects_) {
        options.redirects.push_back(readTarget(redirect));
    }
    return options;
}

RedirectTarget readTarget(const std::string& text) {
    const auto target = targetFromText(text);
    if (!target) {
        throw UsageError(fmt::format("“{}” is nothing that can be kept on a disk. Use xcode, npm, tmp, "
                                     "cache:NAME or folder:PATH.",
                                     text));
    }
    return *target;
}

} // namespace ramdisk::cli
