#include "RamDiskCore/Values/ByteCountFormat.h"
#include "RamDiskUI/DiskText.h"
#include "tramdisk/KeptDisks.h"
#include "tramdisk/ListJSON.h"
#include "tramdisk/RedirectTargetText.h"
#include "tramdisk/Subcommand.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <nlohmann/json.hpp>

namespace ramdisk::cli {

namespace {

constexpr auto titleHelp = "The title of the template";

struct TemplatesListCommand {
    ExitStatus run(const CommandContext& context) const {
        const auto templates = context.session.templates->templates();
        const auto told = tellNotUnderstood(context.session.templates->notUnderstood(), "template", context);
        if (context.console.wantsJSON()) {
            context.console.printDocument(compactText(listJSON(templates)));
            return told;
        }
        std::vector<std::vector<std::string>> rows;
        for (const auto& one : templates) {
            std::vector<std::string> targets;
            for (const auto& target : one.setup.redirects) {
                targets.push_back(targetText(target));
            }
            const auto& specification = one.setup.specification;
            rows.push_back({one.title(), specification.name, format(specification.size),
                            std::string(rawValue(specification.fileSystem)),
                            one.setup.createsAtLaunch ? "yes" : "no",
                            one.setup.keepsFiles ? "kept" : "not kept",
                            fmt::format("{}", fmt::join(targets, " ")), one.commandLine()});
        }
        context.console.printTable(
            {"TITLE", "NAME", "SIZE", "FORMAT", "AT LAUNCH", "FILES", "REDIRECTS", "COMMAND"}, rows);
        if (templates.size() == builtInTemplates().size()) {
            context.console.note(
                fmt::format("{} `tramdisk templates save TITLE --from DISK` makes one.", noTemplatesText));
        }
        return told;
    }
};

struct TemplatesSaveCommand {
    std::string title;
    RamDiskReference reference{RamDiskReference::Name{}};

    void declare(Syntax& syntax) {
        syntax.value("TITLE", title, titleHelp);
        syntax.value("--from", reference, "The disk: a device, a mount point or a name");
    }

    ExitStatus run(const CommandContext& context) const {
        const auto disk = context.services.list->resolve(reference);
        const auto [saved, hasReplaced] = context.session.templates->save(title, disk);
        if (context.console.wantsJSON()) {
            context.console.printDocument(compactText(toJSON(saved)));
        }
        context.console.confirm(
            fmt::format("“{}” is saved. Use it with: {}", saved.title(), saved.commandLine()));
        if (hasReplaced) {
            context.console.note(templateReplacedText);
        }
        return succeeded;
    }
};

struct TemplatesRemoveCommand {
    std::string title;

    void declare(Syntax& syntax) { syntax.value("TITLE", title, titleHelp); }

    ExitStatus run(const CommandContext& context) const {
        const auto found = context.session.templates->remove(title);
        if (context.console.wantsJSON()) {
            context.console.printDocument(compactText(toJSON(found)));
        }
        context.console.confirm(fmt::format("“{}” is removed.", found.title()));
        return succeeded;
    }
};

const RegisteredSubcommand templatesSubcommand{
    HelpSection::settings,
    Subcommand::group(
        "templates", "Manage templates for new disks",
        {Subcommand::of<TemplatesListCommand>("list", "List the templates"),
         Subcommand::of<TemplatesSaveCommand>("save", "Save the setup of a disk as a template"),
         Subcommand::of<TemplatesRemoveCommand>("remove", "Remove one of your own templates")})};

} // namespace

} // namespace ramdisk::cli
