#pragma once

#include "RamDiskCore/Disks/CreateRamDiskResult.h"
#include "RamDiskCore/Redirects/RedirectFailure.h"
#include "RamDiskCore/Values/ByteCount.h"
#include "RamDiskCore/Values/RamDiskError.h"
#include "RamDiskCore/Values/ValidationIssue.h"

#include <exception>
#include <optional>
#include <string>
#include <vector>

namespace ramdisk {

/// The one place where the cases of our errors become words. Every text is a fixed sentence; the `reason` of
/// an error, worded where it arose, is inserted as it is.
[[nodiscard]] std::string errorText(const RamDiskError& error);
[[nodiscard]] std::string errorText(const ByteCountParsingError& error);

/// The text of any error: one of the above where it is ours, else what the error says of itself.
[[nodiscard]] std::string errorText(const std::exception& error);

/// What the user can do about the error, if there is anything to advise.
[[nodiscard]] std::optional<std::string> recoverySuggestion(const RamDiskError& error);

/// The sentences of `errorText`, of which an invalid specification has one for each issue.
[[nodiscard]] std::vector<std::string> errorSentences(const RamDiskError& error);

[[nodiscard]] std::string issueText(const ValidationIssue& issue);
[[nodiscard]] std::string warningText(const CreationWarning& warning);

/// What went wrong with a redirect, or what the user should know about it.
[[nodiscard]] std::string failureText(const RedirectFailure& failure);

} // namespace ramdisk
