#include "RamDiskInfrastructure/Linux/Mounting/Fscrypt.h"

#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskCore/Values/RamDiskError.h"
#include "RamDiskInfrastructure/Commands/SystemCallError.h"

#include <sodium.h>

#include <array>
#include <cstring>
#include <string_view>
#include <utility>

#include <linux/fscrypt.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <unistd.h>

namespace ramdisk {

namespace {

constexpr std::size_t keyBytes = 64;
static_assert(keyBytes == crypto_auth_hmacsha512_BYTES && keyBytes <= FSCRYPT_MAX_KEY_SIZE);

/// Keeps this process out of core dumps and debuggers while it holds a key.
class NotDumpable {
public:
    NotDumpable() : former_(prctl(PR_GET_DUMPABLE)) { prctl(PR_SET_DUMPABLE, 0); }
    NotDumpable(const NotDumpable&) = delete;
    NotDumpable& operator=(const NotDumpable&) = delete;
    ~NotDumpable() {
        if (former_ == 1) {
            prctl(PR_SET_DUMPABLE, 1);
        }
    }

private:
    int former_;
};

/// The bytes of a key, overwritten at the end.
struct Key {
    std::array<unsigned char, keyBytes> bytes{};

    Key() = default;
    Key(const Key&) = delete;
    Key& operator=(const Key&) = delete;
    ~Key() { sodium_memzero(bytes.data(), bytes.size()); }
};

/// HMAC with SHA-512 over the parts in turn.
template <typename... Parts>
void authenticate(std::string_view secret, std::array<unsigned char, keyBytes>& result,
                  const Parts&... parts) {
    crypto_auth_hmacsha512_state state;
    crypto_auth_hmacsha512_init(&state, reinterpret_cast<const unsigned char*>(secret.data()), secret.size());
    (crypto_auth_hmacsha512_update(&state, reinterpret_cast<const unsigned char*>(parts.data()),
                                   parts.size()),
     ...);
    crypto_auth_hmacsha512_final(&state, result.data());
    sodium_memzero(&state, sizeof state);
}

/// HKDF (extract, then expand): the key is exactly one block of SHA-512, so the expansion has one round.
void deriveKey(const VolumePassphrase& passphrase, Key& key) {
    using namespace std::string_view_literals;
    static constexpr std::string_view salt = "com.tavrin.ramdisk.volume";
    static constexpr std::string_view purpose = "fscrypt master key";
    Key pseudoRandom;
    authenticate(salt, pseudoRandom.bytes, passphrase.value());
    authenticate({reinterpret_cast<const char*>(pseudoRandom.bytes.data()), keyBytes}, key.bytes, purpose,
                 "\x01"sv);
}

/// The argument of FS_IOC_ADD_ENCRYPTION_KEY, whose key follows the fixed part.
struct AddKeyArgument {
    alignas(fscrypt_add_key_arg) std::array<unsigned char, sizeof(fscrypt_add_key_arg) + keyBytes> bytes{};

    AddKeyArgument() = default;
    AddKeyArgument(const AddKeyArgument&) = delete;
    AddKeyArgument& operator=(const AddKeyArgument&) = delete;
    ~AddKeyArgument() { sodium_memzero(bytes.data(), bytes.size()); }
};

using KeyIdentifier = std::array<unsigned char, FSCRYPT_KEY_IDENTIFIER_SIZE>;

/// Hands the key to the kernel and returns the name under which it keeps it.
KeyIdentifier addKey(int rootDescriptor, const VolumePassphrase& passphrase) {
    const NotDumpable guard;
    Key key;
    deriveKey(passphrase, key);
    AddKeyArgument storage;
    auto* argument = reinterpret_cast<fscrypt_add_key_arg*>(storage.bytes.data());
    argument->key_spec.type = FSCRYPT_KEY_SPEC_TYPE_IDENTIFIER;
    argument->raw_size = keyBytes;
    std::memcpy(storage.bytes.data() + sizeof(fscrypt_add_key_arg), key.bytes.data(), keyBytes);
    if (ioctl(rootDescriptor, FS_IOC_ADD_ENCRYPTION_KEY, argument) != 0) {
        throw SystemCallError("give the volume its key");
    }
    KeyIdentifier identifier{};
    std::memcpy(identifier.data(), argument->key_spec.u.identifier, identifier.size());
    return identifier;
}

} // namespace

void Fscrypt::encrypt(int rootDescriptor, int folderDescriptor, const VolumePassphrase& passphrase) {
    const auto identifier = addKey(rootDescriptor, passphrase);
    fscrypt_policy_v2 policy{};
    policy.version = FSCRYPT_POLICY_V2;
    policy.contents_encryption_mode = FSCRYPT_MODE_AES_256_XTS;
    policy.filenames_encryption_mode = FSCRYPT_MODE_AES_256_CTS;
    policy.flags = FSCRYPT_POLICY_FLAGS_PAD_32;
    std::memcpy(policy.master_key_identifier, identifier.data(), identifier.size());
    if (ioctl(folderDescriptor, FS_IOC_SET_ENCRYPTION_POLICY, &policy) != 0) {
        throw SystemCallError("encrypt the volume");
    }
}

void Fscrypt::unlock(int rootDescriptor, int folderDescriptor, const VolumePassphrase& passphrase) {
    fscrypt_get_policy_ex_arg existing{};
    existing.policy_size = sizeof existing.policy;
    if (ioctl(folderDescriptor, FS_IOC_GET_ENCRYPTION_POLICY_EX, &existing) != 0) {
        throw SystemCallError("read how the volume is encrypted");
    }
    const auto identifier = addKey(rootDescriptor, passphrase);
    if (existing.policy.version != FSCRYPT_POLICY_V2
        || std::memcmp(existing.policy.v2.master_key_identifier, identifier.data(), identifier.size()) != 0) {
        fscrypt_remove_key_arg stray{};
        stray.key_spec.type = FSCRYPT_KEY_SPEC_TYPE_IDENTIFIER;
        std::memcpy(stray.key_spec.u.identifier, identifier.data(), identifier.size());
        if (ioctl(rootDescriptor, FS_IOC_REMOVE_ENCRYPTION_KEY, &stray) != 0) {
            traceRefused("encryption", "FS_IOC_REMOVE_ENCRYPTION_KEY", "a wrong key stays until the unmount");
        }
        throw RamDiskError(RamDiskError::IncorrectPassphrase{});
    }
}

bool Fscrypt::isSupported(const char* feature) {
    if (access(feature, F_OK) != 0) {
        traceRefused("encryption", feature, "this kernel's ext4 does not encrypt");
        return false;
    }
    return true;
}

} // namespace ramdisk
