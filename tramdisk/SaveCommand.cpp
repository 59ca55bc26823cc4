#include "RamDiskCore/Startup/TransferError.h"
#include "RamDiskCore/Values/ByteCountFormat.h"
#include "RamDiskUI/ErrorText.h"
#include "tramdisk/KeptDisks.h"
#include "tramdisk/ProgressLine.h"
#include "tramdisk/SessionJSON.h"

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <stdexcept>

namespace ramdisk::cli {

namespace {

/// Those that were named, or all that keep their files.
std::vector<KeptDisk> disksToSave(const SaveInvocation& invocation, const CommandContext& context) {
    std::vector<KeptDisk> disks;
    if (invocation.references.empty()) {
        for (auto& kept : context.session.lifecycle->keptDisks()) {
            if (kept.profile.keepsContents) {
                disks.push_back(std::move(kept));
            }
        }
        return disks;
    }
    for (const auto& reference : invocation.references) {
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

} // namespace

ExitStatus run(const SaveInvocation& invocation, const CommandContext& context) {
    const auto disks = disksToSave(invocation, context);
    const auto& console = context.console;
    Json json{{"saved", Json::array()}, {"unchanged", Json::array()}, {"failures", Json::array()}};
    auto status = succeeded;
    for (const auto& kept : disks) {
        const auto name = printable(kept.disk.name);
        try {
            const auto outcome = [&] {
                ProgressLine progress(console.options(), "Saving");
                return context.session.profileContents->save(kept, invocation.verification,
                                                             progress.observer(kept.disk.name));
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

ExitStatus run(const CopiesInvocation& invocation, const CommandContext& context) {
    const auto copies =
        context.session.profileContents->copies(resolveProfile(invocation.reference, context));
    if (context.console.wantsJSON()) {
        auto list = Json::array();
        for (const auto& copy : copies) {
            list.push_back(toJSON(copy));
        }
        context.console.printDocument(compactText(list));
        return succeeded;
    }
    if (copies.empty()) {
        context.console.confirm("No saved copies.");
        return succeeded;
    }
    std::vector<std::vector<std::string>> rows;
    for (const auto& copy : copies) {
        const auto time = std::chrono::system_clock::to_time_t(copy.savedAt);
        rows.push_back({std::to_string(rows.size() + 1),
                        fmt::format("{:%Y-%m-%d %H:%M:%S}", fmt::localtime(time)), format(copy.size),
                        copy.isLatest ? "latest" : ""});
    }
    context.console.printTable({"COPY", "SAVED", "SIZE", ""}, rows);
    return succeeded;
}

ExitStatus run(const LoadInvocation& invocation, const CommandContext& context) {
    const auto kept = resolveKept(invocation.reference, context);
    const auto result = [&] {
        ProgressLine progress(context.console.options(), "Filling");
        return context.session.loadSaved->load(kept, invocation.copy, progress.observer(kept.disk.name));
    }();
    if (context.console.wantsJSON()) {
        context.console.printDocument(compactText(
            {{"disk", toJSON(result.restored.disk)}, {"isImageLeftOpen", result.restored.isImageLeftOpen}}));
    }
    tellRedirectFailures(result.redirectFailures, context);
    if (result.restored.isImageLeftOpen) {
        context.console.warn(errorText(RamDiskError(RamDiskError::ImageLeftOpen{})));
    }
    context.console.confirm(fmt::format("Copy {} is on “{}”.", invocation.copy, printable(kept.disk.name)));
    return succeeded;
}

} // namespace ramdisk::cli
