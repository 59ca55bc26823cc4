#pragma once

#include "RamDiskCore/Ports/CommandRunning.h"
#include "RamDiskCore/Values/VolumeProtection.h"
#include "RamDiskInfrastructure/Linux/Mounting/DetachedMount.h"
#include "RamDiskInfrastructure/Linux/SavedContents/ExtSuperblock.h"
#include "RamDiskInfrastructure/Linux/SavedContents/ImageFile.h"
#include "RamDiskInfrastructure/Linux/SavedContents/ImageMaking.h"
#include "RamDiskInfrastructure/Trees/TreeManifest.h"

#include <optional>
#include <string>

namespace ramdisk {

/// The disk that an image was made of.
struct ImageOrigin {
    std::string name;
    ByteCount capacity;

    friend bool operator==(const ImageOrigin&, const ImageOrigin&) = default;
};

/// A saved image whose file system is mounted where only this process sees it. The mount vanishes with the
/// process.
///
/// Its folder "saved" is encrypted if the disk is. It holds the tree of files, "contents"; what is known
/// about the tree, "manifest"; and "about": the disk's name and size, and the seal of the file system.
/// Somebody who mounts the image himself and writes to it breaks the seal. Then the manifest is not believed
/// any more.
class OpenImage {
public:
    /// Opens an image that is not empty.
    /// @throws RamDiskError `imageUnreadable`, `incorrectPassphrase`, `imageOpenAlready`,
    ///         `imageStateUnknown`, `contentsTransferFailed` without the right to mount.
    [[nodiscard]] static OpenImage open(ImageFile file, LoopAccess access, const VolumeProtection& protection,
                                        const LinuxHost& host);

    /// The same for writing. An image that was not closed properly is checked first.
    [[nodiscard]] static OpenImage checkAndOpen(ImageFile file, const VolumeProtection& protection,
                                                const LinuxHost& host, CommandRunning& runner);

    /// Makes an empty image in an empty file and opens it.
    /// @throws std::exception
    [[nodiscard]] static OpenImage make(ImageFile file, const ImageGeometry& geometry,
                                        const std::string& diskName, const VolumeProtection& protection,
                                        const LinuxHost& host, CommandRunning& runner);

    /// From now on the loop device reads the image's file past the page cache, if the file system of the file
    /// can do that. So a read from the image's volume that goes past its page cache goes past that of the
    /// file as well. Reading the file ahead is useless then.
    void readDirectly() const noexcept;
    [[nodiscard]] const ImageFile& file() const noexcept { return file_; }
    /// The tree of files, open for reading.
    [[nodiscard]] const FileDescriptor& contents() const noexcept { return contents_; }
    [[nodiscard]] const ExtSuperblock& superblock() const noexcept { return superblock_; }
    /// How much of the file system is used.
    /// @throws SystemCallError
    [[nodiscard]] ByteCount used() const;

    /// What the tree holds. Absent when that is not certain, so that the tree itself must be read.
    [[nodiscard]] std::optional<TreeManifest> manifest() const;
    /// The manifest as it was written, even if the tree may have changed since.
    [[nodiscard]] std::optional<TreeManifest> writtenManifest() const;
    /// Whether it is certain that the tree has not changed since then.
    [[nodiscard]] bool isAsWritten() const;
    [[nodiscard]] std::optional<ImageOrigin> origin() const;

    /// Writes down what the tree holds from now on.
    /// @throws SystemCallError
    void describe(const TreeManifest& manifest, const ImageOrigin& origin);
    /// Writes down that the tree is being changed. An image that stays in this state does not count as a
    /// copy.
    /// @throws SystemCallError
    void undescribe();

    /// Waits until everything is in the image's file. Gives back the space of deleted files if it is much.
    /// @throws SystemCallError
    void flush();

    /// Unmounts the image. @returns whether nothing has it open any more.
    [[nodiscard]] bool close();

private:
    OpenImage(ImageFile file, unsigned loop, DetachedMount mount, FileDescriptor saved,
              ExtSuperblock superblock, std::filesystem::path sys);
    [[nodiscard]] static OpenImage mountOn(ImageFile file, LoopDevice loop, LoopAccess access,
                                           const VolumeProtection& protection, const LinuxHost& host);
    void openContents();
    [[nodiscard]] std::string about() const;

    ImageFile file_;
    unsigned loop_;
    std::optional<DetachedMount> mount_;
    FileDescriptor saved_;
    FileDescriptor contents_;
    /// As it was before this object mounted the image.
    ExtSuperblock superblock_;
    std::filesystem::path sys_;
};

} // namespace ramdisk
