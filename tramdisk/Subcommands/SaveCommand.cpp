#include "RamDiskCore/Startup/TransferError.h"
#include "RamDiskUI/ErrorText.h"
#include "tramdisk/KeptDisks.h"
#include "tramdisk/ProgressLine.h"
#include "tramdisk/SessionJSON.h"
#include "tramdisk/Subcommand.h"
#include "tramdisk/UsageError.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <stdexcept>

namespace ramdisk::cli {

namespace {

/// Those that were named, or all that keep their files.
std::vector<KeptDisk> disksToSave(const std::vector<RamDiskReference>& references,
                                  const CommandContext& context) {
    std::vector<KeptDisk> disks;
    if (references.empty()) {
        context.session.profiles->requireReadable();
        for (auto& kept : context.session.lifecycle->keptDisks()) {
            if (kept.profile.keepsContents) {
                disks.push_back(std::move(kept));
            }
        }
        return disks;
    }
    for (const auto& reference : references) {
        auto kept = resolveKept(reference, context);
        if (!kept.profile.keepsContents) {
            throw std::runtime_error(fmt::format(
                "“{0}” does not keep its files. Change that with `tramdisk configure {0} --keep-files`.",
                kept.disk.name));
        }
        disks.push_back(std::move(kept));
    }
    return disks;
}

struct SaveCommand {
    /// None means every disk that keeps its files.
    std::vector<RamDiskReference> references;
    bool isVerified = false;
    bool keepsCurrent = false;

    void declare(Syntax& syntax) {
        syntax.value("REF", references, "Devices, mount points or names (default: all that keep files)");
        syntax.flag("--verify", isVerified, "Read each copy back and compare it");
        syntax.flag("--keep-current", keepsCurrent,
                    "Save what is on the disk although its saved files were not put back");
    }

    void check() const {
        if (keepsCurrent && references.empty()) {
            throw UsageError("Name the disks with --keep-current.");
        }
    }

    ExitStatus run(const CommandContext& context) const {
        const auto disks = disksToSave(references, context);
        const auto& console = context.console;
        Json json{{"saved", Json::array()}, {"unchanged", Json::array()}, {"failures", Json::array()}};
        auto status = succeeded;
        for (const auto& kept : disks) {
            const auto& name = kept.disk.name;
            try {
                const auto outcome = [&] {
                    ProgressLine progress(console.options(), "Saving");
                    return context.session.profileContents->save(
                        kept, isVerified ? Verification::yes : Verification::no,
                        progress.observer(kept.disk.name),
                        keepsCurrent ? Unrestored::taken : Unrestored::refused);
                }();
                const bool isNew = outcome == SaveOutcome::saved;
                json[isNew ? "saved" : "unchanged"].push_back(toJSON(kept.disk));
                console.confirm(isNew ? fmt::format("The files of “{}” are saved.", name)
                                      : fmt::format("Nothing changed on “{}” since it was saved.", name));
            } catch (const std::exception& error) {
                status = failed;
                const auto text = errorText(error);
                json["failures"].push_back({{"ramDisk", toJSON(kept.disk)}, {"text", text}});
                console.fail(fmt::format("“{}”: contents not saved. {}", kept.disk.name, text));
                if (const auto hint = savingHint(kept.disk.name, transferError(error))) {
                    console.hint(*hint);
                }
            }
        }
        if (console.wantsJSON()) {
            console.printDocument(compactText(json));
        }
        if (disks.empty()) {
            console.confirm("No mounted disk keeps its files.");
        }
        return status;
    }
};

const RegisteredSubcommand saveSubcommand{
    HelpSection::startupDisks, Subcommand::of<SaveCommand>("save", "Save the files of disks that keep them")};

} // namespace

} // namespace ramdisk::cli
