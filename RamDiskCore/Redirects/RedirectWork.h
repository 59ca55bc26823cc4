#pragma once

#include "RamDiskCore/Ports/FolderRedirecting.h"
#include "RamDiskCore/Redirects/FolderRedirectsUseCase.h"
#include "RamDiskCore/Redirects/RedirectSession.h"
#include "RamDiskCore/Values/RamDisk.h"

#include <filesystem>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

/// What a session does with single redirects. What goes wrong is noted in the session.
namespace ramdisk {

/// Chooses the redirects of the disk with this name.
[[nodiscard]] std::function<bool(const FolderRedirect&)> isOf(const std::string& diskName);

/// Chooses the redirects that one of the targets means. Refers to both arguments.
[[nodiscard]] std::function<bool(const FolderRedirect&)> isOneOf(const FolderRedirecting& redirecting,
                                                                 const std::vector<RedirectTarget>& targets);

/// As `FolderRedirectsUseCase::add`, for one target.
void addOne(RedirectSession& session, const RamDisk& disk, const RedirectTarget& target,
            const std::set<std::string>& startupDisks, RedirectStart start);

/// Puts a stored redirect in place, unless it already is. If its tool keeps its files elsewhere by now, the
/// redirect follows it there.
RedirectSession::Outcome applyStored(RedirectSession& session, FolderRedirect& redirect,
                                     const std::filesystem::path& mountPoint, const RedirectTarget& target);

/// Undoes the chosen redirects for good, and removes their folders from a disk that is mounted.
void forgetAll(RedirectSession& session, const std::optional<std::filesystem::path>& mountPoint,
               FolderRedirectsUseCase::FilesOnDisk files,
               const std::function<bool(const FolderRedirect&)>& which);

/// The same for targets, and tells of those that the disk does not have.
void removeTargets(RedirectSession& session, const std::string& diskName,
                   const std::optional<std::filesystem::path>& mountPoint,
                   const std::vector<RedirectTarget>& targets, FolderRedirectsUseCase::FilesOnDisk files);

} // namespace ramdisk
