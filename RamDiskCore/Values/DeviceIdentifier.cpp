#include "RamDiskCore/Values/DeviceIdentifier.h"

#include "RamDiskCore/Values/ASCII.h"

#include <algorithm>
#include <cstddef>

namespace ramdisk {

namespace {

/// The digits at the start of `text`, taken off it.
std::string_view takeDigits(std::string_view& text) {
    const auto end = std::find_if_not(text.begin(), text.end(), isDigit);
    const auto digits = text.substr(0, static_cast<std::size_t>(end - text.begin()));
    text.remove_prefix(digits.size());
    return digits;
}

/// Compares runs of digits of any length by value.
std::strong_ordering compareNumbers(std::string_view left, std::string_view right) {
    left.remove_prefix(std::min(left.find_first_not_of('0'), left.size()));
    right.remove_prefix(std::min(right.find_first_not_of('0'), right.size()));
    const auto byLength = left.size() <=> right.size();
    return byLength != 0 ? byLength : left <=> right;
}

} // namespace

std::optional<DeviceIdentifier> DeviceIdentifier::make(std::string_view bsdName) {
    constexpr std::string_view prefix = "disk";
    if (!bsdName.starts_with(prefix)) {
        return std::nullopt;
    }
    auto rest = bsdName.substr(prefix.size());
    if (takeDigits(rest).empty()) {
        return std::nullopt;
    }
    while (!rest.empty()) {
        if (rest.front() != 's') {
            return std::nullopt;
        }
        rest.remove_prefix(1);
        if (takeDigits(rest).empty()) {
            return std::nullopt;
        }
    }
    return DeviceIdentifier(std::string(bsdName));
}

DeviceIdentifier DeviceIdentifier::wholeDisk(unsigned number) {
    return DeviceIdentifier("disk" + std::to_string(number));
}

std::strong_ordering operator<=>(const DeviceIdentifier& left, const DeviceIdentifier& right) {
    std::string_view leftRest = left.bsdName_;
    std::string_view rightRest = right.bsdName_;
    while (!leftRest.empty() && !rightRest.empty()) {
        const bool numbers = isDigit(leftRest.front()) && isDigit(rightRest.front());
        const auto order = numbers ? compareNumbers(takeDigits(leftRest), takeDigits(rightRest))
                                   : leftRest.front() <=> rightRest.front();
        if (order != 0) {
            return order;
        }
        if (!numbers) {
            leftRest.remove_prefix(1);
            rightRest.remove_prefix(1);
        }
    }
    const auto byLength = leftRest.size() <=> rightRest.size();
    // disk2 and disk02 are different names: only equal names may compare as equal.
    return byLength != 0 ? byLength : left.bsdName_ <=> right.bsdName_;
}

} // namespace ramdisk
