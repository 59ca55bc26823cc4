#include "RamDiskCore/Values/ByteCountFormat.h"
#include "RamDiskInfrastructure/Stores/ValueJSON.h"
#include "RamDiskUI/DiskText.h"
#include "RamDiskUI/ErrorText.h"
#include "tramdisk/KeptDisks.h"
#include "tramdisk/ProgressLine.h"
#include "tramdisk/Subcommand.h"
#include "tramdisk/UsageError.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <nlohmann/json.hpp>

#include <algorithm>

namespace ramdisk::cli {

namespace {

/// A disk, and what the user calls it.
struct NamedDisk {
    RamDisk disk;
    RamDiskReference reference;
};

/// The disks that were named, each once. A name that means nothing stops the call before anything is ejected.
std::vector<NamedDisk> resolveAll(const std::vector<RamDiskReference>& references,
                                  const RamDiskServices& services) {
    std::vector<NamedDisk> disks;
    for (const auto& reference : references) {
        auto disk = services.list->resolve(reference);
        // Not by all that is known of it: programs write to it meanwhile.
        if (std::none_of(disks.begin(), disks.end(),
                         [&disk](const NamedDisk& former) { return former.disk.device == disk.device; })) {
            disks.push_back({std::move(disk), reference});
        }
    }
    return disks;
}

/// All of the caller's disks that this system made. Tells it when there are others.
std::vector<NamedDisk> allDisks(const CommandContext& context) {
    std::vector<NamedDisk> disks;
    bool hasOthers = false;
    for (auto& disk : context.services.list->listOwn()) {
        if (disk.isCreatedByRamDisk) {
            RamDiskReference reference{RamDiskReference::Name{disk.name}};
            disks.push_back({std::move(disk), std::move(reference)});
        } else {
            hasOthers = true;
        }
    }
    if (hasOthers) {
        context.console.note(onlyOwnDisksText);
    }
    return disks;
}

/// Somebody else may have been first. Then the disk is not found by what the user calls it.
RamDiskError asUserCallsIt(const RamDiskError& error, const RamDiskReference& reference) {
    return std::holds_alternative<RamDiskError::NotFound>(error.value())
               ? RamDiskError(RamDiskError::NotFound{reference})
               : error;
}

bool hasFailure(const std::vector<RedirectFailure>& told) {
    return std::any_of(told.begin(), told.end(),
                       [](const RedirectFailure& one) { return one.kind != RedirectFailure::Kind::note; });
}

/// Ejects the disks one after another; one disk's failure never stops the others.
/// @param areFoldersBack set to false when something went wrong with a disk's redirects.
BatchEjectResult ejectEach(std::vector<NamedDisk> disks, SaveBeforeEject saving, Force force,
                           bool& areFoldersBack, const CommandContext& context) {
    BatchEjectResult result;
    for (auto& [disk, reference] : disks) {
        auto left = [&] {
            ProgressLine progress(context.console.options(), "Saving");
            return context.session.lifecycle->leave(disk, saving, force, progress.observer(disk.name));
        }();
        tellRedirectFailures(left.redirectFailures, context);
        areFoldersBack = areFoldersBack && !hasFailure(left.redirectFailures);
        if (left.saveError || left.ejectError) {
            const auto error = asUserCallsIt(left.saveError ? *left.saveError : *left.ejectError, reference);
            result.failures.push_back({std::move(disk), error});
        } else {
            result.outcomes.push_back(std::move(left.outcome));
            result.ejected.push_back(std::move(disk));
        }
    }
    return result;
}

std::optional<std::string> heldText(const RamDisk& disk, const ReleaseOutcome& outcome) {
    if (!outcome.stillHeld) {
        return std::nullopt;
    }
    return fmt::format(
        "“{}” is ejected, but {} of its memory stays in use until its last file is closed{}{}.", disk.name,
        format(*outcome.stillHeld), outcome.holders.empty() ? "" : ": ", fmt::join(outcome.holders, ", "));
}

Json resultJSON(const BatchEjectResult& result) {
    Json json{{"ejected", Json::array()}, {"failures", Json::array()}};
    auto notes = Json::array();
    for (std::size_t index = 0; index < result.ejected.size(); ++index) {
        json["ejected"].push_back(toJSON(result.ejected[index]));
        if (const auto text = heldText(result.ejected[index], result.outcomes[index])) {
            notes.push_back(*text);
        }
    }
    for (const auto& failure : result.failures) {
        json["failures"].push_back(
            {{"ramDisk", toJSON(failure.ramDisk)}, {"text", errorText(failure.error)}});
    }
    if (!notes.empty()) {
        json["notes"] = notes;
    }
    return json;
}

void tell(const BatchEjectResult& result, const Console& console) {
    for (std::size_t index = 0; index < result.ejected.size(); ++index) {
        console.confirm(fmt::format("“{}” is ejected.", result.ejected[index].name));
        if (const auto text = heldText(result.ejected[index], result.outcomes[index])) {
            console.note(*text);
        }
    }
    for (const auto& failure : result.failures) {
        console.fail(errorText(failure.error));
        const auto hint = savingHint(failure.ramDisk.name, failure.error);
        if (const auto suggestion = hint ? hint : recoverySuggestion(failure.error)) {
            console.hint(*suggestion);
        }
    }
}

struct EjectCommand {
    std::vector<RamDiskReference> references;
    bool isAll = false;
    bool isForced = false;
    bool isDiscarded = false;

    void declare(Syntax& syntax) {
        syntax.value("REF", references, "Devices, mount points or names");
        syntax.flag("--all", isAll, "Eject all of your disks");
        syntax.flag("--force", isForced, "Eject disks that are in use as well");
        syntax.flag("--discard", isDiscarded, "Eject without saving files");
    }

    void check() const {
        if (isAll != references.empty()) {
            throw UsageError("Name the disks to eject, or give --all.");
        }
    }

    ExitStatus run(const CommandContext& context) const {
        bool areFoldersBack = true;
        const auto result = ejectEach(isAll ? allDisks(context) : resolveAll(references, context.services),
                                      isDiscarded ? SaveBeforeEject::no : SaveBeforeEject::yes,
                                      isForced ? Force::yes : Force::no, areFoldersBack, context);
        if (context.console.wantsJSON()) {
            context.console.printDocument(compactText(resultJSON(result)));
        }
        tell(result, context.console);
        if (isAll && result.ejected.empty() && result.failures.empty()) {
            context.console.confirm("No RAM disks to eject.");
        }
        return result.failures.empty() && areFoldersBack ? succeeded : failed;
    }
};

const RegisteredSubcommand ejectSubcommand{
    HelpSection::disks,
    Subcommand::of<EjectCommand>("eject",
                                 "Eject disks: save the files that they keep, and discard everything else")};

} // namespace

} // namespace ramdisk::cli
