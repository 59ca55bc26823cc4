#include "tramdisk/KeptDisks.h"

#include "RamDiskCore/Values/RamDiskError.h"
#include "RamDiskUI/ErrorText.h"

#include <fmt/format.h>

#include <stdexcept>

namespace ramdisk::cli {

KeptDisk resolveKept(const RamDiskReference& reference, const CommandContext& context) {
    context.session.profiles->requireReadable();
    const auto disk = context.services.list->resolve(reference);
    if (!disk.mountPoint) {
        throw RamDiskError(RamDiskError::NotMounted{disk.device});
    }
    auto kept = context.session.lifecycle->kept(disk);
    if (!kept) {
        throw std::runtime_error(
            fmt::format("“{}” is not a startup disk. Make it one with `tramdisk startup add`.", disk.name));
    }
    return std::move(*kept);
}

RamDiskProfile resolveProfile(const RamDiskReference& reference, const CommandContext& context) {
    if (const auto* name = std::get_if<RamDiskReference::Name>(&reference.value)) {
        if (auto profile = context.session.profiles->named(name->name)) {
            return std::move(*profile);
        }
    }
    return resolveKept(reference, context).profile;
}

RamDiskProfile startupDiskNamed(const std::string& name, const CommandContext& context) {
    auto profile = context.session.profiles->named(name);
    if (!profile) {
        throw std::runtime_error(fmt::format("There is no startup disk named “{}”.", name));
    }
    return std::move(*profile);
}

std::string unrestoredHint(const std::string& disk) {
    return fmt::format("`tramdisk load {0}` puts the saved files on the disk, and with `--copy N` an earlier "
                       "copy. `tramdisk save {0} --keep-current` makes what is on it now the saved files. "
                       "`tramdisk eject {0} --discard` gives up what is on it.",
                       disk);
}

std::string atLaunchText(const std::string& disk, bool keepsFiles) {
    return fmt::format(
        "“{}” is made at every launch{}.", disk,
        keepsFiles ? "; its files are saved at quit, when it is ejected and with `tramdisk save`" : "");
}

std::optional<std::string> savingHint(const std::string& disk, const RamDiskError& error) {
    if (std::holds_alternative<RamDiskError::SavedContentsNotRestored>(error.value())) {
        return unrestoredHint(disk);
    }
    if (std::holds_alternative<RamDiskError::PartlyFilled>(error.value())) {
        return fmt::format("`tramdisk load {0}` puts all of the saved files on the disk. `tramdisk eject {0} "
                           "--discard` gives up what is on it.",
                           disk);
    }
    return std::nullopt;
}

void noteStorageInMemory(const CommandContext& context) {
    if (context.platform.isFolderInMemory(context.stores.applicationSupport)) {
        context.console.note(
            fmt::format("The folder “{}” lies in memory itself: saved files in it do not outlive a restart.",
                        context.stores.applicationSupport.string()));
    }
}

void tellLostCopies(const CommandContext& context) {
    for (const auto& owner : context.session.profiles->lostCopies()) {
        context.console.note(
            fmt::format("The saved files “{}” belong to no startup disk in the list. `tramdisk startup add "
                        "--from-copies {}` makes one of them.",
                        context.stores.contentStorage->imageLocation(owner).string(), owner.text()));
    }
}

void tellRedirectFailures(const std::vector<RedirectFailure>& failures, const CommandContext& context) {
    for (const auto& failure : failures) {
        context.console.warn(failureText(failure));
    }
}

ExitStatus tellNotUnderstood(std::size_t count, std::string_view what, const CommandContext& context) {
    if (count == 0) {
        return succeeded;
    }
    context.console.fail(fmt::format("{} not understood by this version, and kept as {}.",
                                     count == 1 ? fmt::format("One stored {} is", what)
                                                : fmt::format("{} stored {}s are", count, what),
                                     count == 1 ? "it is" : "they are"));
    return failed;
}

} // namespace ramdisk::cli
