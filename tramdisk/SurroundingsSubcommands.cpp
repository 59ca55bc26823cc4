#include "tramdisk/SetupTexts.h"

#include <memory>

namespace ramdisk::cli {

namespace {

struct SurroundingsTexts {
    std::string reference;
    std::string target;
    std::string title;
};

Parser::Command readRedirects(const CLI::App& redirects, const SurroundingsTexts& texts) {
    if (redirects.got_subcommand("add")) {
        return RedirectsAddInvocation{RamDiskReference::parse(texts.reference), readTarget(texts.target)};
    }
    if (redirects.got_subcommand("remove")) {
        return RedirectsRemoveInvocation{RamDiskReference::parse(texts.reference), readTarget(texts.target)};
    }
    if (redirects.got_subcommand("repair")) {
        return RedirectsRepairInvocation{};
    }
    return RedirectsListInvocation{};
}

void addRedirects(Parser& parser) {
    const auto texts = std::make_shared<SurroundingsTexts>();
    auto& redirects =
        parser.addGroup("redirects", "The tools' folders that are kept on disks",
                        [texts](const CLI::App& group) { return readRedirects(group, *texts); });
    redirects.add_subcommand("list", "List them");
    const auto addPair = [&](const char* name, const char* help) {
        auto& subcommand = *redirects.add_subcommand(name, help);
        addReference(subcommand, texts->reference);
        subcommand.add_option("TARGET", texts->target, "xcode, npm, tmp, cache:NAME or folder:PATH")
            ->required();
    };
    addPair("add", "Keep a tool's folder on a disk");
    addPair("remove", "Put it back and forget it");
    redirects.add_subcommand("repair", "Put back what an interrupted change or a lost disk left");
}

Parser::Command readTemplates(const CLI::App& templates, const SurroundingsTexts& texts) {
    if (templates.got_subcommand("save")) {
        return TemplatesSaveInvocation{texts.title, RamDiskReference::parse(texts.reference)};
    }
    if (templates.got_subcommand("remove")) {
        return TemplatesRemoveInvocation{texts.title};
    }
    return TemplatesListInvocation{};
}

void addTemplates(Parser& parser) {
    const auto texts = std::make_shared<SurroundingsTexts>();
    auto& templates =
        parser.addGroup("templates", "Named set-ups for new disks",
                        [texts](const CLI::App& group) { return readTemplates(group, *texts); });
    templates.add_subcommand("list", "List them");
    auto& save = *templates.add_subcommand("save", "Save a disk's set-up as a template");
    save.add_option("TITLE", texts->title, "The template's title")->required();
    save.add_option("--from", texts->reference, "The disk: a device, a mount point or a name")->required();
    auto& remove = *templates.add_subcommand("remove", "Remove one of your own templates");
    remove.add_option("TITLE", texts->title, "The template's title")->required();
}

} // namespace

void addSurroundingsSubcommands(Parser& parser) {
    addRedirects(parser);
    addTemplates(parser);
}

} // namespace ramdisk::cli
