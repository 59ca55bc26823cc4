#pragma once

#include "RamDiskInfrastructure/Commands/FileDescriptor.h"

#include <string>

/// Renaming inside one open folder, in ways that the standard library lacks. Each platform calls its kernel
/// from a file of its own.
namespace ramdisk {

/// Whether a folder and its link may exchange names in one step. `never` is for tests of what is done on file
/// systems that cannot.
enum class NameExchange { whereSupported, never };

/// Exchanges two names in one step, so that neither is ever missing.
/// @returns 0, or the errno of the failure; `isExchangeMissing` tells whether this file system cannot.
[[nodiscard]] int exchangeNames(const FileDescriptor& folder, const std::string& one,
                                const std::string& other) noexcept;

/// Renames in one step, unless the new name exists already.
/// @returns 0, or the errno of the failure; `isExchangeMissing` tells whether this file system cannot.
[[nodiscard]] int renameExclusively(const FileDescriptor& folder, const std::string& from,
                                    const std::string& to) noexcept;

/// The same on every file system. Where it cannot be done in one step, the new name is looked up first.
/// @returns 0, or the errno of the failure: EEXIST when something has the name.
[[nodiscard]] int renameToFreeName(const FileDescriptor& folder, const std::string& from,
                                   const std::string& to) noexcept;

[[nodiscard]] bool isExchangeMissing(int error) noexcept;

} // namespace ramdisk
