#include "RamDiskInfrastructure/Stores/JSONFields.h"

#include "RamDiskCore/Values/ASCII.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <charconv>
#include <cmath>
#include <string_view>

namespace ramdisk {

namespace {

using Seconds = std::chrono::duration<double>;
using TimePoint = std::chrono::system_clock::time_point;

constexpr std::chrono::seconds from1970To2001{978307200};
/// What the clock's own resolution still holds.
constexpr double farthestDate = 7.0e9;

constexpr std::string_view scheme = "file://";
constexpr std::string_view localHost = "localhost/";
constexpr std::string_view hexDigits = "0123456789ABCDEF";

[[noreturn]] void fail(const Json& json, const char* expected) {
    throw DecodingError(fmt::format("{} where {} must be", json.type_name(), expected));
}

bool standsForItself(unsigned char byte) {
    const auto character = static_cast<char>(byte);
    return isLetter(character) || isDigit(character)
           || std::string_view("/-._~!$&'()*+,:=@").find(character) != std::string_view::npos;
}

char percentDecoded(std::string_view digits) {
    unsigned value = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value, 16);
    if (digits.size() != 2 || error != std::errc{} || end != digits.data() + 2 || value == 0) {
        throw DecodingError("a URL with a damaged escape");
    }
    return static_cast<char>(value);
}

} // namespace

const Json& member(const Json& object, const char* key) {
    if (!object.is_object()) {
        fail(object, "an object");
    }
    const auto found = object.find(key);
    if (found == object.end()) {
        throw DecodingError(fmt::format("“{}” is missing", key));
    }
    return *found;
}

const Json* optionalMember(const Json& object, const char* key) {
    if (!object.is_object()) {
        fail(object, "an object");
    }
    const auto found = object.find(key);
    return found == object.end() || found->is_null() ? nullptr : &*found;
}

bool booleanFrom(const Json& json) {
    if (!json.is_boolean()) {
        fail(json, "a truth value");
    }
    return json.get<bool>();
}

std::string textFrom(const Json& json) {
    if (!json.is_string()) {
        fail(json, "a text");
    }
    return json.get<std::string>();
}

std::uint64_t unsignedFrom(const Json& json, std::uint64_t largest) {
    if (!json.is_number_unsigned() || json.get<std::uint64_t>() > largest) {
        fail(json, "a whole number in its range");
    }
    return json.get<std::uint64_t>();
}

std::int64_t integerFrom(const Json& json) {
    if (json.is_number_unsigned()) {
        return static_cast<std::int64_t>(
            unsignedFrom(json, static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())));
    }
    if (!json.is_number_integer()) {
        fail(json, "a whole number");
    }
    return json.get<std::int64_t>();
}

UUID uuidFrom(const Json& json) {
    const auto identifier = UUID::parse(textFrom(json));
    if (!identifier) {
        fail(json, "a UUID");
    }
    return *identifier;
}

Json dateToJson(TimePoint date) {
    return std::chrono::duration_cast<Seconds>(date.time_since_epoch() - from1970To2001).count();
}

TimePoint dateFrom(const Json& json) {
    if (!json.is_number() || !(std::abs(json.get<double>()) <= farthestDate)) {
        fail(json, "a date");
    }
    return TimePoint(std::chrono::round<TimePoint::duration>(Seconds(json.get<double>())) + from1970To2001);
}

Json fileURLToJson(const std::filesystem::path& path) {
    if (!path.is_absolute()) {
        throw std::invalid_argument(fmt::format("“{}” is not an absolute path", path.string()));
    }
    std::string url(scheme);
    for (const char character : path.native()) {
        const auto byte = static_cast<unsigned char>(character);
        if (standsForItself(byte)) {
            url += character;
        } else {
            url += {'%', hexDigits[byte >> 4U], hexDigits[byte & 15U]};
        }
    }
    return url;
}

std::filesystem::path fileURLFrom(const Json& json) {
    const auto text = textFrom(json);
    std::string_view rest(text);
    if (!rest.starts_with(scheme)) {
        fail(json, "a file URL");
    }
    rest.remove_prefix(scheme.size());
    if (rest.starts_with(localHost)) {
        rest.remove_prefix(localHost.size() - 1);
    }
    if (!rest.starts_with('/') || rest.find_first_of(std::string_view("?#\0", 3)) != std::string_view::npos) {
        fail(json, "a file URL with a path alone");
    }
    std::string path;
    while (!rest.empty()) {
        const bool isEscape = rest.front() == '%';
        path += isEscape ? percentDecoded(rest.substr(1, 2)) : rest.front();
        rest.remove_prefix(isEscape ? 3 : 1);
    }
    // A folder's URL may end with a slash, which is no part of its name.
    while (path.size() > 1 && path.back() == '/') {
        path.pop_back();
    }
    return path;
}

} // namespace ramdisk
