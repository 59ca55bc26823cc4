#pragma once

#include "RamDiskCore/Values/VolumePassphrase.h"

namespace ramdisk {

/// The file system's own encryption of one folder tree (fscrypt, policy version 2): AES-256-XTS for contents,
/// AES-256-CTS for names and link targets. Sizes, times and extended attributes stay readable in the memory.
///
/// The key is derived from the passphrase by HKDF with SHA-512. Our passphrases are 32 random bytes, so a
/// slower function would not make them safer. The key lives in the kernel until the file system is unmounted.
/// This process forgets it at once, and cannot leave it in a core dump meanwhile.
struct Fscrypt {
    /// Encrypts what will be put into the empty folder. `rootDescriptor` is the root of its mounted file
    /// system.
    /// @throws SystemCallError
    static void encrypt(int rootDescriptor, int folderDescriptor, const VolumePassphrase& passphrase);

    /// Makes an encrypted folder readable again after its file system was mounted again.
    /// @throws RamDiskError `incorrectPassphrase` when it was encrypted with another passphrase, since the
    ///         kernel itself would accept the wrong key without an error. SystemCallError
    static void unlock(int rootDescriptor, int folderDescriptor, const VolumePassphrase& passphrase);

    /// Whether the kernel's ext4 can do it.
    [[nodiscard]] static bool isSupported(const char* feature = "/sys/fs/ext4/features/encryption");
};

} // namespace ramdisk
