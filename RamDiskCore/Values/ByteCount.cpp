#include "RamDiskCore/Values/ByteCount.h"

#include "RamDiskCore/Values/ASCII.h"
#include "RamDiskCore/Values/Text.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <locale>
#include <optional>
#include <sstream>
#include <utility>

namespace ramdisk {

namespace {

using Unit = ByteCount::Unit;

/// The longest start of `text` whose characters all fulfil `predicate`, taken off `text`.
template <typename Predicate>
std::string_view takeWhile(std::string_view& text, Predicate predicate) {
    const auto end = std::find_if_not(text.begin(), text.end(), predicate);
    const auto taken = text.substr(0, static_cast<std::size_t>(end - text.begin()));
    text.remove_prefix(taken.size());
    return taken;
}

/// A size taken apart, before its number is read.
struct WrittenSize {
    std::string number;
    std::string_view unit;
};

std::optional<WrittenSize> takeApart(std::string_view text) {
    WrittenSize size;
    size.number = takeWhile(text, isDigit);
    if (size.number.empty()) {
        return std::nullopt;
    }
    if (!text.empty() && (text.front() == '.' || text.front() == ',')) {
        text.remove_prefix(1);
        const auto fraction = takeWhile(text, isDigit);
        if (fraction.empty()) {
            return std::nullopt;
        }
        size.number.append(".").append(fraction);
    }
    text = trimmed(text);
    size.unit = takeWhile(text, isLetter);
    return text.empty() ? std::optional(std::move(size)) : std::nullopt;
}

std::optional<Unit> unitNamed(std::string_view written) {
    struct Spelling {
        std::string_view text;
        Unit unit;
    };
    static constexpr std::array spellings{
        Spelling{"b", Unit::byte},     Spelling{"byte", Unit::byte},   Spelling{"bytes", Unit::byte},
        Spelling{"k", Unit::kibibyte}, Spelling{"kb", Unit::kibibyte}, Spelling{"kib", Unit::kibibyte},
        Spelling{"m", Unit::mebibyte}, Spelling{"mb", Unit::mebibyte}, Spelling{"mib", Unit::mebibyte},
        Spelling{"g", Unit::gibibyte}, Spelling{"gb", Unit::gibibyte}, Spelling{"gib", Unit::gibibyte},
        Spelling{"t", Unit::tebibyte}, Spelling{"tb", Unit::tebibyte}, Spelling{"tib", Unit::tebibyte},
    };
    std::string name(written);
    std::transform(name.begin(), name.end(), name.begin(), lowered);
    const auto found = std::find_if(spellings.begin(), spellings.end(),
                                    [&name](const Spelling& spelling) { return spelling.text == name; });
    return found == spellings.end() ? std::nullopt : std::optional(found->unit);
}

/// The nearest double; a number beyond all doubles gives the largest one or infinity.
double numberIn(const std::string& digits) {
    // strtod would follow whatever locale the program has set.
    std::istringstream stream(digits);
    stream.imbue(std::locale::classic());
    double number = 0;
    stream >> number;
    return number;
}

} // namespace

ByteCount ByteCount::parse(std::string_view text, Unit defaultUnit) {
    // Also of the kinds that programs put between a number and its unit.
    text = trimmed(text);
    if (text.empty()) {
        throw ByteCountParsingError(ByteCountParsingError::Empty{});
    }
    const auto size = takeApart(text);
    if (!size) {
        throw ByteCountParsingError(ByteCountParsingError::Malformed{std::string(text)});
    }
    const auto unit = size->unit.empty() ? std::optional(defaultUnit) : unitNamed(size->unit);
    if (!unit) {
        throw ByteCountParsingError(ByteCountParsingError::UnknownUnit{std::string(size->unit)});
    }
    constexpr double limit = 18446744073709551616.0;
    const double product = numberIn(size->number) * static_cast<double>(factor(*unit));
    if (!(product < limit)) {
        throw ByteCountParsingError(ByteCountParsingError::TooLarge{std::string(text)});
    }
    return ByteCount{static_cast<std::uint64_t>(std::round(product))};
}

} // namespace ramdisk
