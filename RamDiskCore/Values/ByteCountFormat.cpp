#include "RamDiskCore/Values/ByteCountFormat.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>
#include <string_view>

namespace ramdisk {

namespace {

struct Style {
    std::string_view unit;
    unsigned fractionDigits;
};

constexpr std::array styles{Style{"bytes", 0}, Style{"KB", 0}, Style{"MB", 1}, Style{"GB", 2},
                            Style{"TB", 2}};

/// A size as it is printed: `whole` and a decimal fraction of `digits` digits, in the unit of `style`.
struct Rounded {
    std::size_t style;
    std::uint64_t whole;
    std::uint64_t fraction;
    unsigned digits;
};

Rounded roundedIn(std::size_t style, std::uint64_t bytes) {
    const auto factor = ByteCount::factor(static_cast<ByteCount::Unit>(style));
    const auto digits = styles.at(style).fractionDigits;
    std::uint64_t scale = 1;
    for (unsigned digit = 0; digit < digits; ++digit) {
        scale *= 10;
    }
    // The remainder is below 2^40, so this cannot overflow.
    const auto fraction = ((bytes % factor) * scale + factor / 2) / factor;
    return {style, bytes / factor + fraction / scale, fraction % scale, digits};
}

Rounded rounded(ByteCount size) {
    const auto bytes =
        std::min(size.bytes, static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()));
    auto result = roundedIn(0, bytes);
    // What rounds up to 1024 of one unit is shown as 1 of the next.
    while (result.whole >= 1024 && result.style + 1 < styles.size()) {
        result = roundedIn(result.style + 1, bytes);
    }
    return result;
}

std::string numberText(const Rounded& size) {
    auto text = std::to_string(size.whole);
    if (size.fraction == 0) {
        return text;
    }
    auto fraction = std::to_string(size.fraction);
    fraction.insert(0, size.digits - fraction.size(), '0');
    fraction.erase(fraction.find_last_not_of('0') + 1);
    return text + '.' + fraction;
}

std::string unitText(const Rounded& size) {
    return size.style == 0 && size.whole == 1 ? "byte" : std::string(styles.at(size.style).unit);
}

} // namespace

std::string format(ByteCount size) {
    const auto shown = rounded(size);
    return numberText(shown) + ' ' + unitText(shown);
}

std::string formatNumber(ByteCount size) {
    return numberText(rounded(size));
}

std::string formatUnit(ByteCount size) {
    return unitText(rounded(size));
}

} // namespace ramdisk
