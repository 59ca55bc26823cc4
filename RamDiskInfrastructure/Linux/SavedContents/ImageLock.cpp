#include "RamDiskInfrastructure/Linux/SavedContents/ImageLock.h"

#include "RamDiskCore/Values/RamDiskError.h"
#include "RamDiskInfrastructure/Commands/SystemCallError.h"
#include "RamDiskInfrastructure/Linux/Mounting/Fscrypt.h"
#include "RamDiskInfrastructure/Linux/Volumes/LoopVolumeRoot.h"

#include <fcntl.h>
#include <linux/fscrypt.h>
#include <sys/ioctl.h>
#include <sys/stat.h>

namespace ramdisk {

namespace {

bool isEncrypted(const FileDescriptor& folder) {
    fscrypt_get_policy_ex_arg policy{};
    policy.policy_size = sizeof policy.policy;
    return ioctl(folder.get(), FS_IOC_GET_ENCRYPTION_POLICY_EX, &policy) == 0;
}

} // namespace

FileDescriptor makeSavedFolder(const FileDescriptor& root, const char* name,
                               const VolumeProtection& protection, const LinuxHost& host) {
    if (const auto* passphrase = protection.passphrase()) {
        return LoopVolumeRoot(root).makeEncryptedFolder(*passphrase, host, name);
    }
    if (mkdirat(root.get(), name, 0700) != 0) {
        throw SystemCallError("make the folder of saved files");
    }
    auto folder = openFolder(root.get(), name);
    if (!folder) {
        throw SystemCallError("open the folder of saved files");
    }
    return folder;
}

void unlockSavedFolder(const FileDescriptor& root, const FileDescriptor& folder,
                       const VolumeProtection& protection) {
    const auto* passphrase = protection.passphrase();
    const bool isLocked = isEncrypted(folder);
    if (isLocked && passphrase == nullptr) {
        throw RamDiskError(RamDiskError::IncorrectPassphrase{});
    }
    if (!isLocked && passphrase != nullptr) {
        throw RamDiskError(RamDiskError::ImageUnreadable{});
    }
    if (isLocked) {
        Fscrypt::unlock(root.get(), folder.get(), *passphrase);
    }
}

} // namespace ramdisk
