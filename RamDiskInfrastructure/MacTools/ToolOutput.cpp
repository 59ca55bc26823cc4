#include "RamDiskInfrastructure/MacTools/ToolOutput.h"

#include "RamDiskCore/Values/ASCII.h"

#include <cstddef>
#include <cstdint>

namespace ramdisk {

namespace {

constexpr std::int32_t busyExitCode = 16;

bool isWordCharacter(char character) {
    return isDigit(character) || isLetter(character) || character == '_';
}

bool isWordBoundaryBefore(std::string_view text, std::size_t at) {
    return at == 0 || !isWordCharacter(text[at - 1]);
}

/// Whether no word goes on at `at`, given that one ends there.
bool isWordBoundaryAfter(std::string_view text, std::size_t at) {
    return at == text.size() || !isWordCharacter(text[at]);
}

/// The end of disk[0-9]+ at `start`, or `start` when it does not stand there.
std::size_t endOfDiskName(std::string_view text, std::size_t start) {
    constexpr std::string_view prefix = "disk";
    if (text.substr(start, prefix.size()) != prefix) {
        return start;
    }
    auto end = start + prefix.size();
    while (end < text.size() && isDigit(text[end])) {
        ++end;
    }
    return end == start + prefix.size() ? start : end;
}

/// Whether `phrase` stands in the text and no word goes on after it.
bool containsWord(std::string_view text, std::string_view phrase) {
    for (auto at = text.find(phrase); at != std::string_view::npos; at = text.find(phrase, at + 1)) {
        if (isWordBoundaryAfter(text, at + phrase.size())) {
            return true;
        }
    }
    return false;
}

bool namesError80(std::string_view text) {
    return text.find("Error 80 (") != std::string_view::npos || containsWord(text, "returned 80");
}

bool namesBusy(std::string_view text) {
    // 49168 is 0xC010, the system's errno 16 in the form of its kernel.
    return namesError80(text) || containsWord(text, "Resource busy") || containsWord(text, "error 49168");
}

} // namespace

std::optional<DeviceIdentifier> firstWholeDisk(std::string_view text) {
    for (auto at = text.find("disk"); at != std::string_view::npos; at = text.find("disk", at + 1)) {
        const auto end = endOfDiskName(text, at);
        if (end != at && isWordBoundaryBefore(text, at) && isWordBoundaryAfter(text, end)) {
            return DeviceIdentifier::make(text.substr(at, end - at));
        }
    }
    return std::nullopt;
}

std::optional<DeviceIdentifier> apfsOperationDisk(std::string_view text) {
    constexpr std::string_view phrase = "Disk from APFS operation: ";
    for (auto at = text.find(phrase); at != std::string_view::npos; at = text.find(phrase, at + 1)) {
        const auto start = at + phrase.size();
        const auto end = endOfDiskName(text, start);
        if (end != start) {
            return DeviceIdentifier::make(text.substr(start, end - start));
        }
    }
    return std::nullopt;
}

bool saysBusy(const CommandOutput& output) {
    return output.exitCode == busyExitCode || namesBusy(output.standardError)
           || namesBusy(output.standardOutput);
}

bool saysWrongPassphrase(const CommandOutput& output) {
    return namesError80(output.standardError)
           || output.standardError.find("Authentication error") != std::string::npos;
}

} // namespace ramdisk
