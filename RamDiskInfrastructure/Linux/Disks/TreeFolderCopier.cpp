#include "RamDiskInfrastructure/Linux/Disks/TreeFolderCopier.h"

#include "RamDiskCore/Values/RamDiskError.h"
#include "RamDiskInfrastructure/Commands/SystemCallError.h"
#include "RamDiskInfrastructure/Trees/TreeUpdate.h"

#include <fcntl.h>

namespace ramdisk {

namespace {

/// The folder itself is what the user named and may be a link to it; below it no link is followed.
FileDescriptor openRoot(const std::filesystem::path& path) {
    FileDescriptor root(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!root) {
        throw SystemCallError("open", path);
    }
    return root;
}

} // namespace

void TreeFolderCopier::requireSource(const std::filesystem::path& folder) const {
    try {
        static_cast<void>(openRoot(folder));
    } catch (const std::exception& error) {
        throw RamDiskError(RamDiskError::ContentsTransferFailed{error.what()});
    }
}

void TreeFolderCopier::copy(const std::filesystem::path& folder, const std::filesystem::path& volume) {
    try {
        const auto source = openRoot(folder);
        const auto target = openRoot(volume);
        const auto sourceManifest = TreeManifest::scan(source, {});
        const auto targetManifest = TreeManifest::scan(target, {});
        TreeUpdate{source,
                   sourceManifest,
                   target,
                   targetManifest,
                   Extras::keep,
                   RootMetadata::leave,
                   Owners::whereAllowed}
            .perform({});
    } catch (const RamDiskError&) {
        throw RamDiskError(RamDiskError::ContentsTransferFailed{"the volume takes two names for one"});
    } catch (const std::exception& error) {
        throw RamDiskError(RamDiskError::ContentsTransferFailed{error.what()});
    }
}

} // namespace ramdisk
