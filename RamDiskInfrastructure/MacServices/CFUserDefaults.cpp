#include "RamDiskInfrastructure/MacServices/CFUserDefaults.h"

#include "RamDiskInfrastructure/MacServices/CoreFoundationValue.h"

#include <stdexcept>
#include <utility>
#include <vector>

#include <CoreFoundation/CoreFoundation.h>

namespace ramdisk {

namespace {

using Object = CoreFoundationValue<CFTypeRef>;

CoreFoundationValue<CFStringRef> storable(const std::string& text) {
    auto string = stringFrom(text);
    if (!string) {
        throw std::invalid_argument(
            "The settings hold a text that is not valid UTF-8, so they cannot be stored.");
    }
    return string;
}

std::optional<DefaultsValue> valueFrom(CFTypeRef object);

DefaultsValue numberFrom(CFNumberRef number) {
    if (CFNumberIsFloatType(number) != 0) {
        double value = 0;
        CFNumberGetValue(number, kCFNumberDoubleType, &value);
        return {value};
    }
    std::int64_t value = 0;
    CFNumberGetValue(number, kCFNumberSInt64Type, &value);
    return {value};
}

std::optional<DefaultsValue> arrayFrom(CFArrayRef array) {
    DefaultsValue::Array values;
    for (CFIndex index = 0; index < CFArrayGetCount(array); ++index) {
        auto value = valueFrom(CFArrayGetValueAtIndex(array, index));
        if (!value) {
            return std::nullopt;
        }
        values.push_back(std::move(*value));
    }
    return DefaultsValue{std::move(values)};
}

std::optional<DefaultsValue> dictionaryFrom(CFDictionaryRef dictionary) {
    const auto count = static_cast<std::size_t>(CFDictionaryGetCount(dictionary));
    std::vector<const void*> keys(count);
    std::vector<const void*> objects(count);
    CFDictionaryGetKeysAndValues(dictionary, keys.data(), objects.data());
    DefaultsValue::Dictionary entries;
    for (std::size_t index = 0; index < count; ++index) {
        auto value = valueFrom(objects[index]);
        if (!value || CFGetTypeID(keys[index]) != CFStringGetTypeID()) {
            return std::nullopt;
        }
        entries.push_back({textFrom(static_cast<CFStringRef>(keys[index])), std::move(*value)});
    }
    return DefaultsValue{std::move(entries)};
}

/// Absent for types that nothing here stores, such as dates.
std::optional<DefaultsValue> valueFrom(CFTypeRef object) {
    const auto type = CFGetTypeID(object);
    if (type == CFBooleanGetTypeID()) {
        return DefaultsValue{CFBooleanGetValue(static_cast<CFBooleanRef>(object)) != 0};
    }
    if (type == CFNumberGetTypeID()) {
        return numberFrom(static_cast<CFNumberRef>(object));
    }
    if (type == CFStringGetTypeID()) {
        return DefaultsValue{textFrom(static_cast<CFStringRef>(object))};
    }
    if (type == CFDataGetTypeID()) {
        const auto data = static_cast<CFDataRef>(object);
        return DefaultsValue{
            DefaultsValue::Data{std::string(reinterpret_cast<const char*>(CFDataGetBytePtr(data)),
                                            static_cast<std::size_t>(CFDataGetLength(data)))}};
    }
    if (type == CFArrayGetTypeID()) {
        return arrayFrom(static_cast<CFArrayRef>(object));
    }
    if (type == CFDictionaryGetTypeID()) {
        return dictionaryFrom(static_cast<CFDictionaryRef>(object));
    }
    return std::nullopt;
}

Object objectFrom(const DefaultsValue& value);

struct ObjectMaker {
    Object operator()(bool value) const { return Object(CFRetain(value ? kCFBooleanTrue : kCFBooleanFalse)); }
    Object operator()(std::int64_t value) const {
        return Object(CFNumberCreate(nullptr, kCFNumberSInt64Type, &value));
    }
    Object operator()(double value) const {
        return Object(CFNumberCreate(nullptr, kCFNumberDoubleType, &value));
    }
    Object operator()(const std::string& text) const { return Object(CFRetain(storable(text).get())); }
    Object operator()(const DefaultsValue::Data& data) const {
        return Object(CFDataCreate(nullptr, reinterpret_cast<const UInt8*>(data.bytes.data()),
                                   static_cast<CFIndex>(data.bytes.size())));
    }
    Object operator()(const DefaultsValue::Array& values) const {
        Object array(CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks));
        for (const auto& value : values) {
            CFArrayAppendValue(static_cast<CFMutableArrayRef>(const_cast<void*>(array.get())),
                               objectFrom(value).get());
        }
        return array;
    }
    Object operator()(const DefaultsValue::Dictionary& entries) const {
        Object dictionary(CFDictionaryCreateMutable(nullptr, 0, &kCFTypeDictionaryKeyCallBacks,
                                                    &kCFTypeDictionaryValueCallBacks));
        for (const auto& [key, value] : entries) {
            CFDictionarySetValue(static_cast<CFMutableDictionaryRef>(const_cast<void*>(dictionary.get())),
                                 storable(key).get(), objectFrom(value).get());
        }
        return dictionary;
    }
};

Object objectFrom(const DefaultsValue& value) {
    return std::visit(ObjectMaker{}, value.value);
}

} // namespace

CFUserDefaults::CFUserDefaults(std::string domain) : domain_(std::move(domain)) {}

std::map<std::string, DefaultsValue> CFUserDefaults::values() const {
    const auto domain = storable(domain_);
    CFPreferencesAppSynchronize(domain.get());
    std::map<std::string, DefaultsValue> values;
    const CoreFoundationValue<CFArrayRef> keys(
        CFPreferencesCopyKeyList(domain.get(), kCFPreferencesCurrentUser, kCFPreferencesAnyHost));
    for (CFIndex index = 0; keys && index < CFArrayGetCount(keys.get()); ++index) {
        const auto key = textFrom(static_cast<CFStringRef>(CFArrayGetValueAtIndex(keys.get(), index)));
        if (auto found = value(key)) {
            values.emplace(key, std::move(*found));
        }
    }
    return values;
}

std::optional<DefaultsValue> CFUserDefaults::value(const std::string& key) const {
    const auto domain = storable(domain_);
    CFPreferencesAppSynchronize(domain.get());
    const Object object(CFPreferencesCopyAppValue(storable(key).get(), domain.get()));
    return object ? valueFrom(object.get()) : std::nullopt;
}

void CFUserDefaults::apply(const DefaultsChanges& changes) {
    const auto domain = storable(domain_);
    std::vector<std::pair<CoreFoundationValue<CFStringRef>, Object>> objects;
    for (const auto& [key, value] : changes) {
        // All of them first, so that one that cannot be stored leaves the others unstored.
        objects.emplace_back(storable(key), value ? objectFrom(*value) : Object());
    }
    for (const auto& [key, object] : objects) {
        CFPreferencesSetAppValue(key.get(), object.get(), domain.get());
    }
    if (!CFPreferencesAppSynchronize(domain.get())) {
        throw std::runtime_error("The settings could not be stored.");
    }
}

} // namespace ramdisk
