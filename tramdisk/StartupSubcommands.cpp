#include "tramdisk/Parser.h"

#include <fmt/format.h>

#include <memory>

namespace ramdisk::cli {

namespace {

struct StartupTexts {
    std::string reference;
    std::vector<std::string> references;
    std::string name;
    bool keepFiles = false;
    std::uint32_t copies = 0;
    bool force = false;
    bool verify = false;
    std::size_t copy = 1;
};

Parser::Command readStartup(const CLI::App& startup, const StartupTexts& texts) {
    if (startup.got_subcommand("add")) {
        return StartupAddInvocation{RamDiskReference::parse(texts.reference), texts.keepFiles, texts.copies};
    }
    if (startup.got_subcommand("remove")) {
        return StartupRemoveInvocation{texts.name, texts.force ? Force::yes : Force::no};
    }
    if (startup.got_subcommand("create")) {
        return StartupCreateInvocation{texts.name};
    }
    return StartupListInvocation{};
}

void addStartup(Parser& parser) {
    const auto texts = std::make_shared<StartupTexts>();
    auto& startup = parser.addGroup("startup", "The disks that are made at every launch",
                                    [texts](const CLI::App& group) { return readStartup(group, *texts); });
    startup.add_subcommand("list", "List them");
    auto& add = *startup.add_subcommand("add", "Have a standing disk made at every launch");
    addReference(add, texts->reference);
    add.add_flag("--keep-files", texts->keepFiles, "Save its files and put them back at the next launch");
    add.add_option("--copies", texts->copies, "How many earlier saved copies to keep");
    auto& remove = *startup.add_subcommand("remove", "Make it no more; its saved files are deleted");
    remove.add_option("NAME", texts->name, "The name of the startup disk")->required();
    remove.add_flag("--force", texts->force, "Do not ask");
    auto& create = *startup.add_subcommand("create", "Make one now, without waiting for the next launch");
    create.add_option("NAME", texts->name, "The name of the startup disk")->required();
}

void addSaving(Parser& parser) {
    const auto texts = std::make_shared<StartupTexts>();
    auto& save = parser.add("save", "Save the files of disks that keep them", [texts] {
        SaveInvocation invocation;
        for (const auto& text : texts->references) {
            invocation.references.push_back(RamDiskReference::parse(text));
        }
        invocation.verification = texts->verify ? Verification::yes : Verification::no;
        return invocation;
    });
    save.add_option("REF", texts->references,
                    "Devices, mount points or names (default: all that keep files)");
    save.add_flag("--verify", texts->verify, "Read the copy back and compare it");

    auto& copies = parser.add("copies", "List the saved copies of a disk", [texts] {
        return CopiesInvocation{RamDiskReference::parse(texts->reference)};
    });
    addReference(copies, texts->reference);

    auto& load = parser.add("load", "Replace everything on a disk by a saved copy", [texts] {
        return LoadInvocation{RamDiskReference::parse(texts->reference), texts->copy};
    });
    addReference(load, texts->reference);
    load.add_option("--copy", texts->copy, "Which copy, as `copies` numbers them (default: 1, the latest)");
}

void addSession(Parser& parser) {
    auto& session = parser.addGroup("session", "Make the startup disks, keep them, and save them when ended",
                                    [](const CLI::App& group) -> Parser::Command {
                                        if (group.got_subcommand("status")) {
                                            return SessionStatusInvocation{};
                                        }
                                        return SessionRunInvocation{};
                                    });
    session.add_subcommand("run", "Run until SIGTERM or SIGINT");
    session.add_subcommand("status", "Tell what a running session is doing");
}

} // namespace

void addStartupSubcommands(Parser& parser) {
    addStartup(parser);
    addSaving(parser);
    addSession(parser);
}

} // namespace ramdisk::cli
