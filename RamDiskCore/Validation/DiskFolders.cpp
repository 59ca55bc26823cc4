#include "RamDiskCore/Validation/DiskFolders.h"

#include "RamDiskCore/Values/Text.h"

#include <algorithm>
#include <optional>

namespace ramdisk {

namespace {

std::optional<std::string> normalized(std::string_view entry) {
    std::string path;
    while (!entry.empty()) {
        const auto part = entry.substr(0, entry.find('/'));
        entry.remove_prefix(std::min(entry.size(), part.size() + 1));
        if (part.empty() || part == ".") {
            continue;
        }
        if (part == ".." || part.size() > DiskFolders::longestName
            || part.find('\0') != std::string_view::npos) {
            return std::nullopt;
        }
        path.append(path.empty() ? "" : "/").append(part);
    }
    return path.empty() ? std::nullopt : std::optional(path);
}

} // namespace

DiskFolders DiskFolders::check(const std::vector<std::string>& entries) {
    DiskFolders result;
    bool isFaultTold = false;
    for (const auto& entry : entries) {
        const auto text = trimmed(entry);
        auto path = normalized(text);
        if (!path) {
            if (!isFaultTold) {
                result.issues.push_back({ValidationIssue::InvalidFolder{std::string(text)}});
                isFaultTold = true;
            }
        } else if (std::find(result.folders.begin(), result.folders.end(), *path) == result.folders.end()) {
            result.folders.push_back(std::move(*path));
        }
    }
    if (result.folders.size() > maximumCount) {
        result.issues.push_back({ValidationIssue::TooManyFolders{maximumCount}});
    }
    return result;
}

} // namespace ramdisk
