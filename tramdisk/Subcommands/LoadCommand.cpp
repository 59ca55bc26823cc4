#include "RamDiskCore/Values/RamDiskError.h"
#include "RamDiskUI/ErrorText.h"
#include "tramdisk/KeptDisks.h"
#include "tramdisk/ProgressLine.h"
#include "tramdisk/SessionJSON.h"
#include "tramdisk/Subcommand.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace ramdisk::cli {

namespace {

struct LoadCommand {
    RamDiskReference reference{RamDiskReference::Name{}};
    std::uint64_t copy = 1;

    void declare(Syntax& syntax) {
        syntax.value("REF", reference, referenceHelp);
        syntax.number("--copy", copy, "Number of the copy in `tramdisk copies` (default: 1, the latest)");
    }

    ExitStatus run(const CommandContext& context) const {
        const auto kept = resolveKept(reference, context);
        const auto result = [&] {
            ProgressLine progress(context.console.options(), "Filling");
            return context.session.loadSaved->load(kept, copy, progress.observer(kept.disk.name));
        }();
        if (context.console.wantsJSON()) {
            context.console.printDocument(
                compactText({{"disk", toJSON(result.restored.disk)},
                             {"isImageLeftOpen", result.restored.isImageLeftOpen}}));
        }
        tellRedirectFailures(result.redirectFailures, context);
        if (result.restored.isImageLeftOpen) {
            context.console.warn(errorText(RamDiskError(RamDiskError::ImageLeftOpen{})));
        }
        context.console.confirm(fmt::format("Copy {} is on “{}”.", copy, kept.disk.name));
        return succeeded;
    }
};

const RegisteredSubcommand loadSubcommand{
    HelpSection::startupDisks,
    Subcommand::of<LoadCommand>("load", "Replace everything on a disk with a saved copy")};

} // namespace

} // namespace ramdisk::cli
