#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include <CoreFoundation/CoreFoundation.h>

namespace ramdisk {

/// A Core Foundation object that this value must release; null for none.
template <typename Reference>
class CoreFoundationValue {
public:
    explicit CoreFoundationValue(Reference owned = nullptr) : reference_(owned) {}
    CoreFoundationValue(CoreFoundationValue&& other) noexcept
        : reference_(std::exchange(other.reference_, nullptr)) {}
    CoreFoundationValue(const CoreFoundationValue&) = delete;
    CoreFoundationValue& operator=(const CoreFoundationValue&) = delete;
    CoreFoundationValue& operator=(CoreFoundationValue&&) = delete;
    ~CoreFoundationValue() {
        if (reference_ != nullptr) {
            CFRelease(reference_);
        }
    }

    [[nodiscard]] Reference get() const noexcept { return reference_; }
    explicit operator bool() const noexcept { return reference_ != nullptr; }

private:
    Reference reference_;
};

/// Null for what is not valid UTF-8.
[[nodiscard]] CoreFoundationValue<CFStringRef> stringFrom(std::string_view text);
[[nodiscard]] std::string textFrom(CFStringRef string);

/// What the system says about a volume's URL. Absent when it says nothing, or a value of another type.
[[nodiscard]] std::optional<std::string> stringResource(CFURLRef url, CFStringRef key);
[[nodiscard]] std::optional<std::uint64_t> numberResource(CFURLRef url, CFStringRef key);
[[nodiscard]] std::optional<bool> booleanResource(CFURLRef url, CFStringRef key);

/// The file system's form of the URL's path.
[[nodiscard]] std::optional<std::string> pathOfURL(CFURLRef url);

} // namespace ramdisk
