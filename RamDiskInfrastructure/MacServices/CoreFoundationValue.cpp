#include "RamDiskInfrastructure/MacServices/CoreFoundationValue.h"

#include <array>

#include <limits.h>

namespace ramdisk {

namespace {

CoreFoundationValue<CFTypeRef> resource(CFURLRef url, CFStringRef key, CFTypeID type) {
    CFTypeRef value = nullptr;
    if (!CFURLCopyResourcePropertyForKey(url, key, &value, nullptr) || value == nullptr) {
        return CoreFoundationValue<CFTypeRef>();
    }
    CoreFoundationValue<CFTypeRef> owned(value);
    return CFGetTypeID(value) == type ? std::move(owned) : CoreFoundationValue<CFTypeRef>();
}

std::optional<std::string> text(CFStringRef string) {
    const auto capacity =
        CFStringGetMaximumSizeForEncoding(CFStringGetLength(string), kCFStringEncodingUTF8) + 1;
    std::string buffer(static_cast<std::size_t>(capacity), '\0');
    if (!CFStringGetCString(string, buffer.data(), capacity, kCFStringEncodingUTF8)) {
        return std::nullopt;
    }
    buffer.resize(buffer.find('\0'));
    return buffer;
}

} // namespace

CoreFoundationValue<CFStringRef> stringFrom(std::string_view text) {
    return CoreFoundationValue<CFStringRef>(
        CFStringCreateWithBytes(nullptr, reinterpret_cast<const UInt8*>(text.data()),
                                static_cast<CFIndex>(text.size()), kCFStringEncodingUTF8, 0));
}

std::string textFrom(CFStringRef string) {
    CFIndex size = 0;
    const CFRange all = CFRangeMake(0, CFStringGetLength(string));
    CFStringGetBytes(string, all, kCFStringEncodingUTF8, '?', 0, nullptr, 0, &size);
    std::string text(static_cast<std::size_t>(size), '\0');
    CFStringGetBytes(string, all, kCFStringEncodingUTF8, '?', 0, reinterpret_cast<UInt8*>(text.data()), size,
                     nullptr);
    return text;
}

std::optional<std::string> stringResource(CFURLRef url, CFStringRef key) {
    const auto value = resource(url, key, CFStringGetTypeID());
    return value ? text(static_cast<CFStringRef>(value.get())) : std::nullopt;
}

std::optional<std::uint64_t> numberResource(CFURLRef url, CFStringRef key) {
    const auto value = resource(url, key, CFNumberGetTypeID());
    std::int64_t number = 0;
    if (!value || !CFNumberGetValue(static_cast<CFNumberRef>(value.get()), kCFNumberSInt64Type, &number)
        || number < 0) {
        return std::nullopt;
    }
    return static_cast<std::uint64_t>(number);
}

std::optional<bool> booleanResource(CFURLRef url, CFStringRef key) {
    const auto value = resource(url, key, CFBooleanGetTypeID());
    if (!value) {
        return std::nullopt;
    }
    return CFBooleanGetValue(static_cast<CFBooleanRef>(value.get())) != 0;
}

std::optional<std::string> pathOfURL(CFURLRef url) {
    std::array<UInt8, PATH_MAX> buffer{};
    if (!CFURLGetFileSystemRepresentation(url, 1, buffer.data(), static_cast<CFIndex>(buffer.size()))) {
        return std::nullopt;
    }
    return std::string(reinterpret_cast<const char*>(buffer.data()));
}

} // namespace ramdisk
