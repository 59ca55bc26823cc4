#pragma once

#include "RamDiskCore/Values/VolumeProtection.h"
#include "RamDiskInfrastructure/Commands/FileDescriptor.h"
#include "RamDiskInfrastructure/Linux/Host/LinuxHost.h"

namespace ramdisk {

/// Makes the folder of an image that holds everything. It is encrypted if there is a passphrase.
/// @throws SystemCallError
[[nodiscard]] FileDescriptor makeSavedFolder(const FileDescriptor& root, const char* name,
                                             const VolumeProtection& protection, const LinuxHost& host);

/// Makes this folder readable after the image was opened again.
/// @throws RamDiskError `incorrectPassphrase` without the passphrase that it was encrypted with;
///         `imageUnreadable` when there is a passphrase but the folder is not encrypted, since it is not the
///         image that was saved then.
void unlockSavedFolder(const FileDescriptor& root, const FileDescriptor& folder,
                       const VolumeProtection& protection);

} // namespace ramdisk
