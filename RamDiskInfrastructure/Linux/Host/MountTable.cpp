#include "RamDiskInfrastructure/Linux/Host/MountTable.h"

#include "RamDiskInfrastructure/Linux/Host/SmallFile.h"

#include <algorithm>
#include <charconv>
#include <optional>

#include <sys/sysmacros.h>

namespace ramdisk {

namespace {

/// The next field of a line whose fields are set apart by single blanks.
std::string_view takeField(std::string_view& line) {
    const auto end = std::min(line.find(' '), line.size());
    const auto field = line.substr(0, end);
    line.remove_prefix(std::min(end + 1, line.size()));
    return field;
}

/// The kernel writes blanks, tabs, line feeds and backslashes of a path as three octal digits.
std::string unescaped(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    const auto isOctal = [](char character) { return character >= '0' && character <= '7'; };
    for (std::size_t index = 0; index < text.size(); ++index) {
        if (text[index] == '\\' && index + 3 < text.size() && isOctal(text[index + 1])
            && isOctal(text[index + 2]) && isOctal(text[index + 3])) {
            const int value =
                (text[index + 1] - '0') * 64 + (text[index + 2] - '0') * 8 + (text[index + 3] - '0');
            result.push_back(static_cast<char>(value));
            index += 3;
        } else {
            result.push_back(text[index]);
        }
    }
    return result;
}

std::uint64_t number(std::string_view field) {
    std::uint64_t value = 0;
    std::from_chars(field.data(), field.data() + field.size(), value);
    return value;
}

std::optional<dev_t> deviceNumber(std::string_view field) {
    const auto colon = field.find(':');
    if (colon == std::string_view::npos) {
        return std::nullopt;
    }
    unsigned major = 0;
    unsigned minor = 0;
    const auto first = std::from_chars(field.data(), field.data() + colon, major);
    const auto second = std::from_chars(field.data() + colon + 1, field.data() + field.size(), minor);
    if (first.ec != std::errc{} || second.ec != std::errc{}) {
        return std::nullopt;
    }
    return makedev(major, minor);
}

/// ID PARENT MAJOR:MINOR ROOT MOUNTPOINT OPTIONS [TAG...] - TYPE SOURCE SUPEROPTIONS
std::optional<MountEntry> parseLine(std::string_view line) {
    const auto id = number(takeField(line));
    const auto parent = number(takeField(line));
    const auto device = deviceNumber(takeField(line));
    const auto root = takeField(line);
    const auto mountPoint = takeField(line);
    const auto separator = line.find(" - ");
    if (!device || mountPoint.empty() || separator == std::string_view::npos) {
        return std::nullopt;
    }
    line.remove_prefix(separator + 3);
    const auto fileSystem = takeField(line);
    const auto source = takeField(line);
    return MountEntry{id,
                      parent,
                      *device,
                      unescaped(root),
                      unescaped(mountPoint),
                      std::string(fileSystem),
                      unescaped(source),
                      std::string(takeField(line))};
}

} // namespace

MountTable MountTable::parse(std::string_view text) {
    MountTable table;
    while (!text.empty()) {
        const auto end = std::min(text.find('\n'), text.size());
        if (auto entry = parseLine(text.substr(0, end))) {
            table.entries_.push_back(std::move(*entry));
        }
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return table;
}

MountTable MountTable::read(const std::filesystem::path& proc) {
    return parse(readSmallFile(proc / "self/mountinfo"));
}

const MountEntry* MountTable::topmostAt(const std::filesystem::path& mountPoint) const {
    std::vector<const MountEntry*> stack;
    for (const auto& entry : entries_) {
        if (entry.mountPoint.native() == mountPoint.native()) {
            stack.push_back(&entry);
        }
    }
    const auto top = std::find_if(stack.rbegin(), stack.rend(), [&stack](const MountEntry* candidate) {
        return std::none_of(stack.begin(), stack.end(), [candidate](const MountEntry* other) {
            return other->parent == candidate->id && other != candidate;
        });
    });
    return top == stack.rend() ? nullptr : *top;
}

const MountEntry* MountTable::below(const std::filesystem::path& folder) const {
    const auto prefix = folder.native() + "/";
    const auto found = std::find_if(entries_.begin(), entries_.end(), [&prefix](const MountEntry& entry) {
        return entry.mountPoint.native().starts_with(prefix);
    });
    return found == entries_.end() ? nullptr : &*found;
}

const MountEntry* MountTable::on(const MountEntry& mount) const {
    const auto found = std::find_if(entries_.begin(), entries_.end(), [&mount](const MountEntry& entry) {
        return entry.parent == mount.id && entry.id != mount.id;
    });
    return found == entries_.end() ? nullptr : &*found;
}

bool MountTable::shows(dev_t device) const {
    return std::any_of(entries_.begin(), entries_.end(),
                       [device](const MountEntry& entry) { return entry.device == device; });
}

std::string mountedOnText(const MountEntry& inner) {
    return "another volume is mounted on it, at “" + inner.mountPoint.string() + "”. Unmount that one first.";
}

} // namespace ramdisk
