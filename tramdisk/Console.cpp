#include "tramdisk/Console.h"

#include "RamDiskCore/Values/Text.h"

#include <fmt/format.h>
#include <utf8proc.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include <unistd.h>

namespace ramdisk::cli {

namespace {

void write(std::FILE* stream, std::string_view text) {
    static_cast<void>(std::fwrite(text.data(), 1, text.size(), stream));
    static_cast<void>(std::fputc('\n', stream));
}

/// Calls `visit(bytes, codePoint)` for each character; a byte that is not UTF-8 comes alone with -1.
template <typename Visit>
void forEachCodePoint(std::string_view text, Visit visit) {
    while (!text.empty()) {
        utf8proc_int32_t codePoint = -1;
        const auto length = utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
                                             static_cast<utf8proc_ssize_t>(text.size()), &codePoint);
        const auto count = length > 0 ? static_cast<std::size_t>(length) : std::size_t{1};
        visit(text.substr(0, count), length > 0 ? codePoint : -1);
        text.remove_prefix(count);
    }
}

/// Nearly every cell: one column a byte, nothing to replace.
bool isPrintableASCII(std::string_view text) {
    return std::all_of(text.begin(), text.end(),
                       [](char character) { return character >= ' ' && character < 0x7f; });
}

std::size_t displayWidth(std::string_view text) {
    if (isPrintableASCII(text)) {
        return text.size();
    }
    std::size_t width = 0;
    forEachCodePoint(text, [&](std::string_view, utf8proc_int32_t codePoint) {
        width += codePoint < 0 ? 1U : static_cast<std::size_t>(std::max(utf8proc_charwidth(codePoint), 0));
    });
    return width;
}

std::string padded(const std::string& cell, std::size_t width) {
    return cell + std::string(width - std::min(width, displayWidth(cell)), ' ');
}

std::string trimmedRight(std::string line) {
    line.erase(line.find_last_not_of(' ') + 1);
    return line;
}

} // namespace

std::string printable(std::string_view text) {
    if (isPrintableASCII(text)) {
        return std::string(text);
    }
    return replacingControls(replacingInvalidUTF8(text), "\uFFFD");
}

Console::Console(const GlobalOptions& options)
    : options_(options),
      hasColor_(!options.noColor && std::getenv("NO_COLOR") == nullptr && isatty(STDOUT_FILENO) != 0) {}

std::optional<bool> Console::ask(std::string_view question) {
    if (isatty(STDIN_FILENO) == 0 || isatty(STDERR_FILENO) == 0) {
        return std::nullopt;
    }
    fmt::print(stderr, "{} [y/N] ", printable(question));
    std::string answer;
    for (int character = std::getchar(); character != EOF && character != '\n'; character = std::getchar()) {
        answer += static_cast<char>(character);
    }
    return answer == "y" || answer == "Y" || answer == "yes";
}

void Console::print(std::string_view text) const {
    write(stdout, text);
}

void Console::printDocument(std::string_view document) const {
    // Others chose the names in it.
    write(stdout, escapingControls(document));
}

void Console::confirm(std::string_view text) const {
    if (!options_.quiet && !options_.json) {
        write(stdout, printable(text));
    }
}

void Console::note(std::string_view text) const {
    if (!options_.quiet) {
        write(stderr, fmt::format("tramdisk: note: {}", printable(text)));
    }
}

void Console::warn(std::string_view text) const {
    if (!options_.quiet) {
        write(stderr, fmt::format("tramdisk: warning: {}", printable(text)));
    }
}

void Console::fail(std::string_view text) const {
    write(stderr, fmt::format("tramdisk: {}", printable(text)));
}

void Console::fail(const std::vector<std::string>& sentences) const {
    std::string shown;
    for (const auto& sentence : sentences) {
        shown += (shown.empty() ? "" : "\n") + printable(sentence);
    }
    write(stderr, fmt::format("tramdisk: {}", shown));
}

void Console::hint(std::string_view text) const {
    write(stderr, printable(text));
}

void Console::printTable(const std::vector<std::string>& heading,
                         const std::vector<std::vector<std::string>>& rows) const {
    std::vector<std::size_t> widths(heading.size(), 0);
    const auto widen = [&widths](const std::vector<std::string>& row) {
        for (std::size_t column = 0; column < row.size(); ++column) {
            widths[column] = std::max(widths[column], displayWidth(row[column]));
        }
    };
    const auto line = [&widths](const std::vector<std::string>& row) {
        std::string text;
        for (std::size_t column = 0; column < row.size(); ++column) {
            text += padded(row[column], widths[column]) + "  ";
        }
        return trimmedRight(text);
    };
    std::vector<std::vector<std::string>> shown;
    for (const auto& row : rows) {
        auto& cells = shown.emplace_back();
        std::transform(row.begin(), row.end(), std::back_inserter(cells), printable);
    }
    widen(heading);
    std::for_each(shown.begin(), shown.end(), widen);
    print(hasColor_ ? "\033[1m" + line(heading) + "\033[0m" : line(heading));
    for (const auto& row : shown) {
        print(line(row));
    }
}

void Console::printFields(const std::vector<std::pair<std::string, std::string>>& fields) const {
    std::size_t width = 0;
    for (const auto& [name, value] : fields) {
        width = std::max(width, displayWidth(name));
    }
    for (const auto& [name, value] : fields) {
        print(fmt::format("{}  {}", padded(name, width), printable(value)));
    }
}

} // namespace ramdisk::cli
