#pragma once

#include "RamDiskCore/Values/VolumeProtection.h"
#include "RamDiskInfrastructure/Commands/FileDescriptor.h"
#include "RamDiskInfrastructure/Linux/Host/LinuxHost.h"

namespace ramdisk {

/// Makes the folder of an image that holds everything, encrypted when there is a passphrase.
/// @throws SystemCallError
[[nodiscard]] FileDescriptor makeSavedFolder(const FileDescriptor& root, const char* name,
                                             const VolumeProtection& protection, const LinuxHost& host);

/// Makes the folder of an image that was opened anew readable.
/// @throws RamDiskError `incorrectPassphrase` without the one that it was encrypted with; `imageUnreadable`
///         when a passphrase is at hand and it is not encrypted: that is not the image which was saved.
void unlockSavedFolder(const FileDescriptor& root, const FileDescriptor& folder,
                       const VolumeProtection& protection);

} // namespace ramdisk
