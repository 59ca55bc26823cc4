#include "RamDiskInfrastructure/Archive/SavedCopyNames.h"

#include "RamDiskCore/Values/UUID.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <string_view>

namespace ramdisk {

namespace {

constexpr std::string_view extension = ".sparseimage";
constexpr std::string_view partialInfix = ".partial-";
constexpr std::string_view damagedInfix = ".damaged-";
constexpr std::string_view earlierInfix = ".earlier-";
/// In the year 2255: within the range of every system clock.
constexpr std::int64_t lastSecond = 9'000'000'000;
/// More copies than anybody keeps of one second.
constexpr std::uint32_t lastSerial = 1'000'000;

/// What stands between the two, when the text begins and ends with them.
std::optional<std::string_view> between(std::string_view text, std::string_view prefix,
                                        std::string_view suffix) {
    if (text.size() < prefix.size() + suffix.size() || !text.starts_with(prefix) || !text.ends_with(suffix)) {
        return std::nullopt;
    }
    return text.substr(prefix.size(), text.size() - prefix.size() - suffix.size());
}

/// A number in the one way in which it is written here.
template <typename Number>
std::optional<Number> number(std::string_view text) {
    Number value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || fmt::format("{}", value) != text) {
        return std::nullopt;
    }
    return value;
}

} // namespace

SavedCopyNames::Earlier SavedCopyNames::Earlier::savedAt(std::chrono::system_clock::time_point time) {
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time.time_since_epoch()).count();
    return {std::clamp<std::int64_t>(seconds, 0, lastSecond)};
}

std::chrono::system_clock::time_point SavedCopyNames::Earlier::time() const {
    return std::chrono::system_clock::time_point(std::chrono::seconds(secondsSince1970));
}

SavedCopyNames::Earlier SavedCopyNames::Earlier::next() const {
    if (serial >= lastSerial && secondsSince1970 < lastSecond) {
        return {secondsSince1970 + 1};
    }
    return {secondsSince1970, serial + 1};
}

std::string SavedCopyNames::stem() const {
    return files.latest.stem().string();
}

std::filesystem::path SavedCopyNames::partial() const {
    return files.latest.parent_path()
           / fmt::format(".{}{}{}{}", stem(), partialInfix, UUID::random().text(), extension);
}

std::filesystem::path SavedCopyNames::earlier(const Earlier& name) const {
    const auto suffix = name.serial > 1 ? fmt::format("-{}", name.serial) : std::string();
    return files.latest.parent_path()
           / fmt::format("{}{}{}{}{}", stem(), earlierInfix, name.secondsSince1970, suffix, extension);
}

std::filesystem::path SavedCopyNames::damaged(const Earlier& foundAt) const {
    return files.latest.parent_path()
           / fmt::format("{}{}{}{}", stem(), damagedInfix, foundAt.secondsSince1970, extension);
}

bool SavedCopyNames::isDamaged(const std::filesystem::path& file) const {
    const auto name = file.filename().string();
    const auto seconds = between(name, fmt::format("{}{}", stem(), damagedInfix), extension);
    return seconds && number<std::int64_t>(*seconds);
}

std::filesystem::path SavedCopyNames::spare() const {
    return files.latest.parent_path() / fmt::format(".{}.spare{}", stem(), extension);
}

std::filesystem::path SavedCopyNames::incoming() const {
    return files.latest.parent_path() / fmt::format("{}.incoming{}", stem(), extension);
}

std::filesystem::path SavedCopyNames::bound() const {
    return files.latest.parent_path() / (stem() + ".bound");
}

bool SavedCopyNames::isPartial(const std::filesystem::path& file) const {
    const auto name = file.filename().string();
    const auto identifier = between(name, fmt::format(".{}{}", stem(), partialInfix), extension);
    return identifier && UUID::parse(*identifier);
}

bool SavedCopyNames::isEarlier(const std::filesystem::path& file) const {
    return earlierNamed(file).has_value();
}

std::optional<SavedCopyNames::Earlier> SavedCopyNames::earlierNamed(const std::filesystem::path& file) const {
    const auto name = file.filename().string();
    const auto text = between(name, fmt::format("{}{}", stem(), earlierInfix), extension);
    if (!text) {
        return std::nullopt;
    }
    const auto hyphen = text->find('-');
    const auto seconds = number<std::int64_t>(text->substr(0, hyphen));
    const auto serial = hyphen == std::string_view::npos ? std::optional<std::uint32_t>(1)
                                                         : number<std::uint32_t>(text->substr(hyphen + 1));
    if (!seconds || *seconds < 0 || *seconds > lastSecond || !serial || *serial > lastSerial
        || (hyphen != std::string_view::npos && *serial < 2)) {
        return std::nullopt;
    }
    return Earlier{*seconds, *serial};
}

} // namespace ramdisk
