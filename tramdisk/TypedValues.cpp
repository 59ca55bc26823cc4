#include "tramdisk/TypedValues.h"

#include "RamDiskCore/Values/KnownCache.h"
#include "RamDiskUI/ErrorText.h"
#include "tramdisk/RedirectTargetText.h"
#include "tramdisk/UsageError.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <array>
#include <string_view>
#include <vector>

namespace ramdisk::cli {

namespace {

constexpr std::array allAccesses{VolumeAccess::everyone, VolumeAccess::onlyMe};
constexpr std::string_view targetForms = "xcode, npm, tmp, cache:NAME or folder:PATH";

/// "a, b or c", of the texts that users type for these values.
template <typename Values>
std::string alternatives(const Values& values, std::string_view conjunction = "or") {
    std::vector<std::string_view> names;
    for (const auto value : values) {
        names.push_back(rawValue(value));
    }
    const auto last = names.back();
    names.pop_back();
    return names.empty() ? std::string(last)
                         : fmt::format("{} {} {}", fmt::join(names, ", "), conjunction, last);
}

} // namespace

template <>
ByteCount valueFrom(const std::string& text) {
    try {
        return ByteCount::parse(text, ByteCount::Unit::mebibyte);
    } catch (const ByteCountParsingError& error) {
        throw UsageError(errorText(error));
    }
}

template <>
FileSystem valueFrom(const std::string& text) {
    if (const auto fileSystem = fileSystemFromRawValue(text)) {
        return *fileSystem;
    }
    throw UsageError(fmt::format("“{}” is not a format. Use {}.", text, alternatives(allFileSystems)));
}

template <>
VolumeAccess valueFrom(const std::string& text) {
    if (const auto access = volumeAccessFromRawValue(text)) {
        return *access;
    }
    throw UsageError(fmt::format("“{}” is not an access. Use {}.", text, alternatives(allAccesses)));
}

template <>
RamDiskReference valueFrom(const std::string& text) {
    auto reference = RamDiskReference::parse(text);
    if (auto* mountPoint = std::get_if<RamDiskReference::MountPoint>(&reference.value)) {
        mountPoint->path = valueFrom<std::filesystem::path>(text).lexically_normal();
    }
    return reference;
}

template <>
RedirectTarget valueFrom(const std::string& text) {
    if (auto target = targetFromText(text)) {
        return std::move(*target);
    }
    throw UsageError(fmt::format("“{}” is not a redirect target. Use {}.", text, targetForms));
}

template <>
UUID valueFrom(const std::string& text) {
    if (const auto identifier = UUID::parse(text)) {
        return *identifier;
    }
    throw UsageError(fmt::format("“{}” is not an identifier of saved files.", text));
}

template <>
std::filesystem::path valueFrom(const std::string& text) {
    if (text.empty()) {
        throw UsageError("A folder has no name. Give its path.");
    }
    std::error_code error;
    const auto path = std::filesystem::absolute(text, error);
    if (error) {
        throw UsageError(fmt::format("“{}” cannot be found from here: {}.", text, error.message()));
    }
    return path;
}

std::string formatHelp() {
    return alternatives(allFileSystems);
}

std::string encryptionHelp() {
    std::vector<FileSystem> encrypting;
    for (const auto fileSystem : allFileSystems) {
        if (supportsEncryption(fileSystem)) {
            encrypting.push_back(fileSystem);
        }
    }
    return alternatives(encrypting, "and");
}

std::string accessHelp() {
    return alternatives(allAccesses);
}

std::string targetHelp() {
    return fmt::format("{}, where NAME is {}", targetForms, alternatives(allKnownCaches));
}

} // namespace ramdisk::cli
