#include "RamDiskInfrastructure/MacServices/SecurityKeychainItems.h"

#include "RamDiskInfrastructure/MacServices/CoreFoundationValue.h"

#include <algorithm>
#include <new>
#include <stdexcept>
#include <string_view>

#include <Security/Security.h>

namespace ramdisk {

namespace {

using Dictionary = CoreFoundationValue<CFMutableDictionaryRef>;

void set(const Dictionary& dictionary, CFStringRef key, CFTypeRef value) {
    CFDictionarySetValue(dictionary.get(), key, value);
}

void setText(const Dictionary& dictionary, CFStringRef key, std::string_view text) {
    const auto string = stringFrom(text);
    if (!string) {
        throw std::invalid_argument("The name of a keychain item is not valid UTF-8.");
    }
    set(dictionary, key, string.get());
}

Dictionary makeDictionary() {
    Dictionary dictionary(CFDictionaryCreateMutable(nullptr, 0, &kCFTypeDictionaryKeyCallBacks,
                                                    &kCFTypeDictionaryValueCallBacks));
    if (!dictionary) {
        throw std::bad_alloc();
    }
    return dictionary;
}

Dictionary queryFor(const std::string& service) {
    auto query = makeDictionary();
    set(query, kSecClass, kSecClassGenericPassword);
    setText(query, kSecAttrService, service);
    return query;
}

Dictionary queryFor(const KeychainItems::Item& item) {
    auto query = queryFor(item.service);
    setText(query, kSecAttrAccount, item.account);
    return query;
}

/// A secret's bytes, overwritten when they go: Core Foundation only looks at them.
class SecretData {
public:
    explicit SecretData(const VolumePassphrase& secret)
        : copy_(secret),
          data_(CFDataCreateWithBytesNoCopy(nullptr, reinterpret_cast<const UInt8*>(copy_.value().data()),
                                            static_cast<CFIndex>(copy_.value().size()), kCFAllocatorNull)) {
        if (!data_) {
            throw std::bad_alloc();
        }
    }

    [[nodiscard]] CFDataRef get() const noexcept { return data_.get(); }

private:
    VolumePassphrase copy_;
    CoreFoundationValue<CFDataRef> data_;
};

/// Takes the secret out of the data that the keychain made for us alone, and overwrites it there.
VolumePassphrase takeSecret(CFDataRef data) {
    const auto size = static_cast<std::size_t>(CFDataGetLength(data));
    const UInt8* const bytes = CFDataGetBytePtr(data);
    VolumePassphrase secret(std::string_view(reinterpret_cast<const char*>(bytes), size));
    // Volatile, so that the compiler may not leave it out.
    std::fill_n(const_cast<volatile UInt8*>(bytes), size, UInt8{0});
    return secret;
}

} // namespace

KeychainItems::Data SecurityKeychainItems::copyData(const Item& item) {
    const auto query = queryFor(item);
    set(query, kSecReturnData, kCFBooleanTrue);
    set(query, kSecMatchLimit, kSecMatchLimitOne);
    CFTypeRef found = nullptr;
    const OSStatus status = SecItemCopyMatching(query.get(), &found);
    const CoreFoundationValue<CFTypeRef> owned(found);
    if (status != errSecSuccess) {
        return {status, std::nullopt};
    }
    if (!owned || CFGetTypeID(owned.get()) != CFDataGetTypeID()) {
        return {errSecInternalError, std::nullopt};
    }
    return {status, takeSecret(static_cast<CFDataRef>(owned.get()))};
}

std::int32_t SecurityKeychainItems::update(const Item& item, const VolumePassphrase& secret) {
    const SecretData data(secret);
    const auto changes = makeDictionary();
    set(changes, kSecValueData, data.get());
    return SecItemUpdate(queryFor(item).get(), changes.get());
}

std::int32_t SecurityKeychainItems::add(const Item& item, const VolumePassphrase& secret,
                                        const std::string& label) {
    const SecretData data(secret);
    const auto added = queryFor(item);
    set(added, kSecValueData, data.get());
    setText(added, kSecAttrLabel, label);
    set(added, kSecAttrAccessible, kSecAttrAccessibleAfterFirstUnlockThisDeviceOnly);
    return SecItemAdd(added.get(), nullptr);
}

std::int32_t SecurityKeychainItems::remove(const Item& item) {
    return SecItemDelete(queryFor(item).get());
}

KeychainItems::Accounts SecurityKeychainItems::accounts(const std::string& service) {
    const auto query = queryFor(service);
    set(query, kSecReturnAttributes, kCFBooleanTrue);
    set(query, kSecMatchLimit, kSecMatchLimitAll);
    CFTypeRef found = nullptr;
    Accounts accounts;
    accounts.status = SecItemCopyMatching(query.get(), &found);
    const CoreFoundationValue<CFTypeRef> owned(found);
    if (accounts.status != errSecSuccess || !owned || CFGetTypeID(owned.get()) != CFArrayGetTypeID()) {
        return accounts;
    }
    const auto items = static_cast<CFArrayRef>(owned.get());
    for (CFIndex index = 0; index < CFArrayGetCount(items); ++index) {
        const auto attributes = static_cast<CFDictionaryRef>(CFArrayGetValueAtIndex(items, index));
        const void* const account = CFDictionaryGetValue(attributes, kSecAttrAccount);
        if (account != nullptr && CFGetTypeID(account) == CFStringGetTypeID()) {
            accounts.names.push_back(textFrom(static_cast<CFStringRef>(account)));
        }
    }
    return accounts;
}

std::optional<std::string> SecurityKeychainItems::message(std::int32_t status) {
    const CoreFoundationValue<CFStringRef> text(SecCopyErrorMessageString(status, nullptr));
    return text ? std::optional(textFrom(text.get())) : std::nullopt;
}

} // namespace ramdisk
