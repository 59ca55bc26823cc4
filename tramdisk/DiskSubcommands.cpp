#include "tramdisk/SetupTexts.h"

#include <fmt/format.h>

#include <memory>

namespace ramdisk::cli {

namespace {

struct DiskTexts {
    SetupTexts create;
    SetupTexts validate;
    SetupTexts configure;
    bool dryRun = false;
    std::string showReference;
    std::string usersReference;
    std::vector<std::string> ejectReferences;
    bool ejectAll = false;
    bool force = false;
    bool discard = false;
    std::string renameReference;
    std::string newName;
    std::string configureReference;
};

Parser::Command readConfigure(const DiskTexts& texts) {
    ConfigureInvocation invocation{RamDiskReference::parse(texts.configureReference), texts.configure.read()};
    const auto& setup = invocation.setup;
    const auto& specification = setup.specification;
    if (!specification.name && !specification.isIndexingEnabled && !specification.access
        && !setup.createsAtLaunch && !setup.keepsFiles && !setup.seedFolder && setup.folders.empty()
        && setup.redirects.empty()) {
        throw UsageError("Say what to change, such as --name NAME or --no-indexing.");
    }
    return invocation;
}

Parser::Command readEject(const DiskTexts& texts) {
    if (texts.ejectAll != texts.ejectReferences.empty()) {
        throw UsageError("Name the disks to eject, or give --all.");
    }
    EjectInvocation invocation;
    for (const auto& text : texts.ejectReferences) {
        invocation.references.push_back(RamDiskReference::parse(text));
    }
    invocation.force = texts.force ? Force::yes : Force::no;
    invocation.saving = texts.discard ? SaveBeforeEject::no : SaveBeforeEject::yes;
    return invocation;
}

void addCreation(Parser& parser, const std::shared_ptr<DiskTexts>& texts) {
    auto& create = parser.add("create", "Make a RAM disk", [texts] {
        return CreateInvocation{texts->create.read(), texts->create.templateTitle, texts->dryRun};
    });
    texts->create.addTo(create, SetupTexts::Use::newDisk);
    create.add_flag("--dry-run", texts->dryRun, "Print what would be done, and do nothing");

    auto& validate = parser.add("validate", "Check a request for a disk without making it", [texts] {
        return ValidateInvocation{texts->validate.read(), texts->validate.templateTitle};
    });
    texts->validate.addTo(validate, SetupTexts::Use::newDisk);
}

void addLooks(Parser& parser, const std::shared_ptr<DiskTexts>& texts) {
    parser.add("list", "List the RAM disks", [] { return ListInvocation{}; });
    auto& show = parser.add("show", "Show one disk", [texts] {
        return ShowInvocation{RamDiskReference::parse(texts->showReference)};
    });
    addReference(show, texts->showReference);
    auto& users = parser.add("users", "List the processes that keep a disk busy", [texts] {
        return UsersInvocation{RamDiskReference::parse(texts->usersReference)};
    });
    addReference(users, texts->usersReference);
    parser.add("memory", "Show how the memory is used", [] { return MemoryInvocation{}; });
}

void addChanges(Parser& parser, const std::shared_ptr<DiskTexts>& texts) {
    auto& eject = parser.add("eject", "Save what is kept, then remove disks; all else on them is gone",
                             [texts] { return readEject(*texts); });
    eject.add_option("REF", texts->ejectReferences, "Devices, mount points or names");
    eject.add_flag("--all", texts->ejectAll, "Eject all of your disks");
    eject.add_flag("--force", texts->force, "Eject also what is in use");
    eject.add_flag("--discard", texts->discard, "Do not save what is kept");

    auto& rename = parser.add("rename", "Give a disk another name", [texts] {
        return RenameInvocation{RamDiskReference::parse(texts->renameReference), texts->newName};
    });
    addReference(rename, texts->renameReference);
    rename.add_option("NAME", texts->newName, "The new name")->required();

    auto& configure =
        parser.add("configure", "Change a standing disk", [texts] { return readConfigure(*texts); });
    addReference(configure, texts->configureReference);
    texts->configure.addTo(configure, SetupTexts::Use::standingDisk);
}

} // namespace

void addDiskSubcommands(Parser& parser) {
    const auto texts = std::make_shared<DiskTexts>();
    addCreation(parser, texts);
    addLooks(parser, texts);
    addChanges(parser, texts);
}

} // namespace ramdisk::cli
