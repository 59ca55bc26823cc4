#pragma once

#include "RamDiskCore/Ports/ContentArchiving.h"
#include "RamDiskInfrastructure/Commands/FileDescriptor.h"
#include "RamDiskInfrastructure/Linux/Host/LinuxHost.h"
#include "RamDiskInfrastructure/Trees/TreeManifest.h"

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace ramdisk {

/// Files that a restore found to be other than they were saved: something changed the image on the system
/// disk.
class DamagedFiles {
public:
    /// `files` are items of `saved`, the manifest of the image. All must outlive the object.
    DamagedFiles(const RestoreRequest& request, const TreeManifest& saved, std::vector<std::uint32_t> files,
                 const LinuxHost& host);

    /// Gives the image a further name, unless it has one, under which it is kept whatever becomes of the
    /// copies. It is never taken for a sound copy again.
    /// @throws SystemCallError
    void keepImage();
    /// The same for an image of which nothing can be read. @returns the name.
    static std::filesystem::path keepImage(const RestoreRequest& request);

    /// Puts the files onto the disk anew, from whichever other copy holds just what was saved. An image that
    /// cannot be read is passed over.
    void repairFromOtherCopies(const FileDescriptor& disk);

    /// @throws SomeFilesDamaged with the names of those that no copy holds, if there are any.
    void requireRepaired() const;

private:
    void repairFrom(const std::filesystem::path& image, const FileDescriptor& disk);

    const RestoreRequest& request_;
    const TreeManifest& saved_;
    std::vector<std::uint32_t> files_;
    const LinuxHost& host_;
    std::filesystem::path kept_;
};

} // namespace ramdisk
