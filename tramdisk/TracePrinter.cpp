#include "tramdisk/TracePrinter.h"

#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskInfrastructure/Platform/TrustedEnvironment.h"
#include "tramdisk/Console.h"

#include <fmt/format.h>

#include <chrono>
#include <cstdio>
#include <string_view>

#include <unistd.h>

namespace ramdisk::cli {

namespace {

class TracePrinter final : public TraceObserving {
public:
    explicit TracePrinter(std::string_view prefix) : prefix_(prefix) {}

    void note(std::string_view subject, std::string_view text) noexcept override {
        const std::chrono::duration<double, std::milli> passed = std::chrono::steady_clock::now() - start_;
        try {
            const auto line =
                fmt::format("{}[{:8.3f}] {}: {}\n", prefix_, passed.count(), subject, printable(text));
            // In one piece, so that the lines of several threads and processes do not mix.
            static_cast<void>(std::fwrite(line.data(), 1, line.size(), stderr));
        } catch (const std::exception&) { // NOLINT(bugprone-empty-catch)
            // Without memory for a line there is no line.
        }
    }

private:
    std::string_view prefix_;
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

bool isAskedFor(const GlobalOptions& options) {
    return options.trace || trustedEnvironmentValue("TRAMDISK_TRACE").value_or("0") != "0";
}

void install(std::string_view prefix) {
    // Never deleted: threads may report until the very end.
    static auto* const printer = new TracePrinter(prefix);
    installTraceObserver(*printer);
}

} // namespace

void installTracePrinter(const GlobalOptions& options) {
    if (isAskedFor(options)) {
        install("");
    }
}

void installSessionTracePrinter(const GlobalOptions& options) {
    if (!isAskedFor(options) && !options.quiet && isatty(STDERR_FILENO) == 0) {
        install("tramdisk: trace: ");
    }
}

} // namespace ramdisk::cli
