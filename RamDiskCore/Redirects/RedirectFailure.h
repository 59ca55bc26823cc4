#pragma once

#include "RamDiskCore/Values/FolderRedirect.h"
#include "RamDiskCore/Values/RamDiskError.h"

#include <exception>
#include <string>
#include <variant>

namespace ramdisk {

/// What went wrong with one redirect, or what the user should know about it. A redirect that was undone can
/// also have a message, such as where files are kept that were in its way. A failure never stops the other
/// redirects.
struct RedirectFailure {
    FolderRedirect redirect;
    /// One of this system's errors, or a text to show as it is.
    std::variant<RamDiskError, std::string> message;
    enum class Kind {
        failure,
        /// A failure: the folder on the disk is in use, so that the disk cannot go.
        inUse,
        /// What belongs to a success.
        note,
    };
    Kind kind = Kind::failure;

    /// A failure with what was caught, of one redirect or, where none is given, of all.
    [[nodiscard]] static RedirectFailure of(const std::exception& error,
                                            FolderRedirect redirect = {.id = UUID::random(), .diskName = ""});

    friend bool operator==(const RedirectFailure&, const RedirectFailure&) = default;
};

} // namespace ramdisk
