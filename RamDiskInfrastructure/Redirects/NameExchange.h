#pragma once

#include "RamDiskInfrastructure/Commands/FileDescriptor.h"

#include <string>

/// Renaming that the standard library lacks, inside one open folder. What the kernel does of it in
/// one step, each platform calls from a file of its own.
namespace ramdisk {

/// Whether a folder and its link may trade names in one step. `never` is for file systems that cannot, and
/// for tests of what is done there.
enum class NameExchange { whereSupported, never };

/// Has two names trade what they stand for, at once: nobody ever finds one of them missing.
/// @returns 0, or the errno of the failure; `isExchangeMissing` tells whether this file system cannot.
[[nodiscard]] int exchangeNames(const FileDescriptor& folder, const std::string& one,
                                const std::string& other) noexcept;

/// Renames only if nothing has the new name, in one step.
/// @returns 0, or the errno of the failure; `isExchangeMissing` tells whether this file system cannot.
[[nodiscard]] int renameExclusively(const FileDescriptor& folder, const std::string& from,
                                    const std::string& to) noexcept;

/// The same wherever the folder lies; where the file system cannot do it in one step, with a look before.
/// @returns 0, or the errno of the failure: EEXIST when something has the name.
[[nodiscard]] int renameToFreeName(const FileDescriptor& folder, const std::string& from,
                                   const std::string& to) noexcept;

[[nodiscard]] bool isExchangeMissing(int error) noexcept;

} // namespace ramdisk
