#include "RamDiskInfrastructure/Redirects/NpmConfiguration.h"

#include <algorithm>
#include <stdexcept>

namespace ramdisk {

namespace {

constexpr std::string_view blanks = " \t\f\v";
constexpr std::string_view key = "cache";

std::string_view withoutBlanks(std::string_view text) {
    const auto first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(blanks) + 1 - first);
}

/// One line, and where it stands.
struct Line {
    std::size_t begin = 0;
    /// Before the line end.
    std::size_t end = 0;
    /// After the line end, which a last line need not have.
    std::size_t next = 0;

    [[nodiscard]] std::string_view in(std::string_view content) const {
        return content.substr(begin, end - begin);
    }
};

Line lineAt(std::string_view content, std::size_t begin) {
    const auto end = std::min(content.find_first_of("\r\n", begin), content.size());
    auto next = end;
    if (next < content.size()) {
        next += content.substr(next).starts_with("\r\n") ? 2 : 1;
    }
    return {begin, end, next};
}

bool isSectionHead(std::string_view line) {
    const auto text = withoutBlanks(line);
    return text.starts_with('[') && text.ends_with(']');
}

bool isCacheLine(std::string_view line) {
    const auto equals = line.find('=');
    return equals != std::string_view::npos && withoutBlanks(line.substr(0, equals)) == key;
}

/// Where the settings that belong to no section end.
std::size_t endOfSettings(std::string_view content) {
    for (std::size_t begin = 0; begin < content.size();) {
        const auto line = lineAt(content, begin);
        if (isSectionHead(line.in(content))) {
            return begin;
        }
        begin = line.next;
    }
    return content.size();
}

std::optional<Line> findCacheLine(std::string_view content, const LineChoice& choice) {
    std::optional<Line> found;
    const auto end = endOfSettings(content);
    for (std::size_t begin = 0; begin < end;) {
        const auto line = lineAt(content, begin);
        if (isCacheLine(line.in(content)) && (!choice || choice(line.in(content)))) {
            found = line;
        }
        begin = line.next;
    }
    return found;
}

std::string_view lineEndIn(std::string_view content) {
    const auto end = content.find_first_of("\r\n");
    if (end == std::string_view::npos) {
        return "\n";
    }
    return content.substr(end, content.substr(end).starts_with("\r\n") ? 2 : 1);
}

bool endsLine(std::string_view content) {
    return content.ends_with('\n') || content.ends_with('\r');
}

} // namespace

std::optional<std::string> cacheLine(std::string_view content, const LineChoice& choice) {
    const auto line = findCacheLine(content, choice);
    return line ? std::optional<std::string>(line->in(content)) : std::nullopt;
}

std::string folderInLine(std::string_view line) {
    const auto value = withoutBlanks(line.substr(line.find('=') + 1));
    std::string folder;
    for (std::size_t index = 0; index < value.size(); ++index) {
        const auto letter = value[index];
        if (letter == '\\' && index + 1 < value.size()
            && std::string_view("\\;#").find(value[index + 1]) != std::string_view::npos) {
            folder += value[++index];
        } else if (letter == ';' || letter == '#') {
            break;
        } else {
            folder += letter;
        }
    }
    return std::string(withoutBlanks(folder));
}

std::string lineFor(const std::filesystem::path& folder) {
    std::string line(key);
    line += '=';
    const auto text = folder.string();
    if (text.find_first_of("\r\n") != std::string::npos || text.find("${") != std::string::npos) {
        throw std::runtime_error("npm could not read the name of the disk.");
    }
    for (const auto letter : text) {
        // The rest of a line is a comment from these on.
        if (letter == '\\' || letter == ';' || letter == '#') {
            line += '\\';
        }
        line += letter;
    }
    return line;
}

std::string withCacheLine(const std::optional<std::string>& content, std::string_view line,
                          const LineChoice& choice) {
    if (!content) {
        return std::string(line) + "\n";
    }
    auto text = *content;
    if (const auto former = findCacheLine(text, choice)) {
        return text.replace(former->begin, former->end - former->begin, line);
    }
    const auto place = endOfSettings(text);
    const std::string lineEnd(lineEndIn(text));
    if (text.empty()) {
        return std::string(line);
    }
    if (place == text.size() && !endsLine(text)) {
        return text + lineEnd + std::string(line);
    }
    return text.insert(place, std::string(line) + lineEnd);
}

std::optional<std::string> withoutCacheLine(std::string_view content, const LineChoice& choice) {
    std::string text(content);
    const auto line = findCacheLine(content, choice);
    if (!line) {
        return text;
    }
    if (line->begin == 0 && line->next == text.size() && line->next != line->end) {
        return std::nullopt;
    }
    if (line->next != line->end || line->begin == 0) {
        return text.erase(line->begin, line->next - line->begin);
    }
    // It stands last and without a line end: the one before it was added with it.
    const auto before = content.substr(0, line->begin).ends_with("\r\n") ? line->begin - 2 : line->begin - 1;
    return text.erase(before);
}

} // namespace ramdisk
