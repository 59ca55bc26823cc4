#pragma once

#include "RamDiskCore/Values/FolderRedirect.h"
#include "RamDiskCore/Values/RamDiskError.h"

#include <string>
#include <variant>

namespace ramdisk {

/// What went wrong with one redirect, or what a user should know of it: a redirect can be undone and still
/// have something to tell, such as where files are kept that were in its way. It never stops the others.
struct RedirectFailure {
    FolderRedirect redirect;
    /// One of this system's errors, or a text to show as it is.
    std::variant<RamDiskError, std::string> message;

    friend bool operator==(const RedirectFailure&, const RedirectFailure&) = default;
};

} // namespace ramdisk
