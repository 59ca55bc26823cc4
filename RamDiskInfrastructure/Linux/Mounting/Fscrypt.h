#pragma once

#include "RamDiskCore/Values/VolumePassphrase.h"

namespace ramdisk {

/// The file system's own encryption of one folder tree (fscrypt, policy version 2): AES-256-XTS for contents,
/// AES-256-CTS for names and link targets. Sizes, times and extended attributes stay readable in the memory.
///
/// The key is derived from the passphrase by HKDF with SHA-512; our passphrases are 32 random bytes, so
/// nothing slower would add to them. It lives in the kernel until the file system is unmounted; this process
/// forgets it at once, and cannot leave it in a core dump meanwhile.
struct Fscrypt {
    /// Encrypts what will be put below the empty folder, on a mounted file system whose root is
    /// `rootDescriptor`.
    /// @throws SystemCallError
    static void encrypt(int rootDescriptor, int folderDescriptor, const VolumePassphrase& passphrase);

    /// Makes an encrypted folder readable again after its file system was mounted anew.
    /// @throws RamDiskError `incorrectPassphrase` when it was encrypted with another one: the kernel itself
    /// would
    ///         take the wrong key without a word. SystemCallError
    static void unlock(int rootDescriptor, int folderDescriptor, const VolumePassphrase& passphrase);

    /// Whether the kernel's ext4 can do it.
    [[nodiscard]] static bool isSupported(const char* feature = "/sys/fs/ext4/features/encryption");
};

} // namespace ramdisk
