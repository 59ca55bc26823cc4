#include "RamDiskCore/Values/ByteCountFormat.h"
#include "RamDiskUI/SessionText.h"
#include "tramdisk/KeptDisks.h"
#include "tramdisk/ProgressLine.h"
#include "tramdisk/SessionJSON.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <stdexcept>

namespace ramdisk::cli {

ExitStatus run(const StartupListInvocation& /*invocation*/, const CommandContext& context) {
    const auto profiles = context.session.profiles->list();
    if (context.console.wantsJSON()) {
        auto list = Json::array();
        for (const auto& profile : profiles) {
            list.push_back(toJSON(profile));
        }
        context.console.printDocument(compactText(list));
        return succeeded;
    }
    if (profiles.empty()) {
        context.console.confirm("No startup disks.");
        return succeeded;
    }
    const auto standing = context.session.lifecycle->keptDisks();
    std::vector<std::vector<std::string>> rows;
    for (const auto& profile : profiles) {
        std::string where;
        for (const auto& kept : standing) {
            if (kept.profile.id == profile.id) {
                where = kept.disk.mountPoint->string();
            }
        }
        rows.push_back({profile.name, format(profile.size), std::string(rawValue(profile.fileSystem)),
                        profile.isEncrypted ? "yes" : "no", profile.keepsContents ? "kept" : "not kept",
                        std::to_string(profile.previousCopies), where});
    }
    context.console.printTable(
        {"NAME", "SIZE", "FORMAT", "ENCRYPTED", "FILES", "EARLIER COPIES", "MOUNTED AT"}, rows);
    return succeeded;
}

ExitStatus run(const StartupAddInvocation& invocation, const CommandContext& context) {
    const auto disk = context.services.list->resolve(invocation.reference);
    auto profile = context.session.configure->makeProfile(disk);
    if (const auto former = context.session.profiles->named(disk.name)) {
        throw std::runtime_error(fmt::format("“{}” is a startup disk already.", former->name));
    }
    if (invocation.keepsFiles) {
        context.services.archiver->requireSupport(disk);
    }
    profile.keepsContents = invocation.keepsFiles;
    profile.previousCopies = invocation.previousCopies;
    context.session.profiles->store(profile);
    if (context.console.wantsJSON()) {
        context.console.printDocument(compactText(toJSON(profile)));
    }
    context.console.confirm(fmt::format(
        "“{}” is made at every launch{}.", printable(profile.name),
        profile.keepsContents ? "; its files are saved at quit, when it is ejected and with `tramdisk save`"
                              : ""));
    return succeeded;
}

ExitStatus run(const StartupRemoveInvocation& invocation, const CommandContext& context) {
    const auto profile = startupDiskNamed(invocation.name, context);
    if (invocation.force == Force::no) {
        const auto answer = Console::ask(fmt::format(
            "Remove “{}” from the startup disks? Its saved contents are deleted as well.", profile.name));
        if (!answer) {
            throw std::runtime_error(fmt::format(
                "Removing “{}” deletes its saved contents. Give --force to do it.", profile.name));
        }
        if (!*answer) {
            context.console.confirm("Nothing was changed.");
            return failed;
        }
    }
    context.session.profiles->remove(profile);
    if (context.console.wantsJSON()) {
        context.console.printDocument(compactText(toJSON(profile)));
    }
    context.console.confirm(fmt::format("“{}” is no startup disk any more.", printable(profile.name)));
    return succeeded;
}

ExitStatus run(const StartupCreateInvocation& invocation, const CommandContext& context) {
    const auto profile = startupDiskNamed(invocation.name, context);
    std::vector<RedirectFailure> failures;
    const auto outcome = [&] {
        ProgressLine progress(context.console.options(), "Filling");
        return context.session.lifecycle->create(profile, failures, progress.observer());
    }();
    if (context.console.wantsJSON()) {
        context.console.printDocument(compactText(toJSON(outcome)));
    }
    tellRedirectFailures(failures, context);
    if (outcome.needsAttention()) {
        context.console.fail(outcomeText(outcome));
        return failed;
    }
    context.console.confirm(printable(outcomeText(outcome)));
    return succeeded;
}

} // namespace ramdisk::cli
