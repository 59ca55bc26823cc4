#include "RamDiskCore/Values/RamDiskError.h"
#include "RamDiskInfrastructure/Platform/Platform.h"
#include "RamDiskInfrastructure/Platform/SessionServices.h"
#include "RamDiskInfrastructure/Stores/ValueJSON.h"
#include "RamDiskUI/ErrorText.h"
#include "tramdisk/CommandLine.h"
#include "tramdisk/TracePrinter.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include <fcntl.h>
#include <unistd.h>

namespace {

using namespace ramdisk;
using namespace ramdisk::cli;

/// The table's text, with what helps at a prompt: for an ambiguous name, the devices to choose from.
std::string lineText(const RamDiskError& error) {
    const auto text = errorText(error);
    const auto* ambiguous = std::get_if<RamDiskError::AmbiguousReference>(&error.value());
    if (ambiguous == nullptr) {
        return text;
    }
    std::vector<std::string> devices;
    for (const auto& device : ambiguous->matches) {
        devices.push_back(device.bsdName());
    }
    return fmt::format("{} ({}). Use a device name instead.", text.substr(0, text.size() - 1),
                       fmt::join(devices, ", "));
}

void printErrorDocument(const Console& console, std::string_view caseName, const std::string& text) {
    if (console.wantsJSON()) {
        console.printDocument(compactText({{"error", {{"case", caseName}, {"text", text}}}}));
    }
}

ExitStatus carryOut(const Invocation& invocation, const Console& console) {
    if (!invocation.action) {
        static_cast<void>(std::fputs(invocation.text.c_str(), stdout));
        return succeeded;
    }
    const auto platform = makePlatform([&console](const std::string& text) { console.note(text); });
    const auto session = makeSessionServices(platform.services, platform.stores, platform.redirecting);
    return invocation.action({platform, platform.services, session, platform.stores, console});
}

ExitStatus carryOutAndTell(const Invocation& invocation, const Console& console) {
    try {
        return carryOut(invocation, console);
    } catch (const UsageError&) {
        throw;
    } catch (const RamDiskError& error) {
        printErrorDocument(console, error.caseName(), lineText(error));
        // Only an invalid specification has several sentences, and only an ambiguous name a line of its own.
        const auto sentences = errorSentences(error);
        console.fail(sentences.size() > 1 ? sentences : std::vector<std::string>{lineText(error)});
        if (const auto suggestion = recoverySuggestion(error)) {
            console.hint(*suggestion);
        }
    } catch (const std::exception& error) {
        printErrorDocument(console, "failed", errorText(error));
        console.fail(errorText(error));
    }
    return failed;
}

/// Fills the numbers of closed standard streams, so that no file that is opened later gets what is written to
/// them. Writing to these still fails.
void keepStandardDescriptors() {
    for (;;) {
        const int file = open("/dev/null", O_RDONLY);
        if (file > STDERR_FILENO) {
            close(file);
        }
        if (file < 0 || file > STDERR_FILENO) {
            return;
        }
    }
}

/// A result that could not be written was not delivered.
int finish(ExitStatus status) {
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        std::perror("tramdisk: could not write the result");
        return failed;
    }
    return status;
}

/// For a command line that was not understood.
Console consoleOf(int argumentCount, char** arguments) {
    GlobalOptions options;
    options.json = std::find(arguments, arguments + argumentCount, std::string_view("--json"))
                   != arguments + argumentCount;
    return Console(options);
}

} // namespace

int main(int argumentCount, char** arguments) {
    keepStandardDescriptors();
    // A reader that went away must not stop a disk half way; the lost result is told at the end.
    std::signal(SIGPIPE, SIG_IGN);
    // Inherited as ignored, it would have the kernel throw away how our tools end.
    std::signal(SIGCHLD, SIG_DFL);
    try {
        const auto invocation = parseCommandLine(argumentCount, arguments);
        installTracePrinter(invocation.global);
        return finish(carryOutAndTell(invocation, Console(invocation.global)));
    } catch (const MissingSubcommand& error) {
        printErrorDocument(consoleOf(argumentCount, arguments), "wrongCommandLine",
                           "Name a subcommand. Run `tramdisk --help` to see them.");
        static_cast<void>(std::fputs(error.what(), stderr));
        return finish(wrongCommandLine);
    } catch (const UsageError& error) {
        const auto console = consoleOf(argumentCount, arguments);
        printErrorDocument(console, "wrongCommandLine", error.what());
        console.fail(error.what());
        return finish(wrongCommandLine);
    } catch (const std::exception& error) {
        const auto console = consoleOf(argumentCount, arguments);
        printErrorDocument(console, "failed", errorText(error));
        console.fail(errorText(error));
        return finish(failed);
    }
}
