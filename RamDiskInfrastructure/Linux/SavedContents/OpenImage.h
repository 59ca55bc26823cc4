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

/// Of which disk an image was made.
struct ImageOrigin {
    std::string name;
    ByteCount capacity;

    friend bool operator==(const ImageOrigin&, const ImageOrigin&) = default;
};

/// A saved image whose file system is mounted where only this process sees it, and gone when the process is.
///
/// In its folder "saved", which is encrypted when the disk is, lie the tree of files, "contents", what is
/// known of it, "manifest", and "about": the disk's name and size, and the seal of the file system. Somebody
/// who mounts the image himself and writes to it breaks that seal, and the manifest counts no more.
class OpenImage {
public:
    /// Opens an image that holds something.
    /// @throws RamDiskError `imageUnreadable`, `incorrectPassphrase`, `imageOpenAlready`,
    /// `imageStateUnknown`,
    ///         `contentsTransferFailed` without the right to mount.
    [[nodiscard]] static OpenImage open(ImageFile file, LoopAccess access, const VolumeProtection& protection,
                                        const LinuxHost& host);

    /// The same for writing, after a check where it was not closed well.
    [[nodiscard]] static OpenImage checkAndOpen(ImageFile file, const VolumeProtection& protection,
                                                const LinuxHost& host, CommandRunning& runner);

    /// Makes an empty image in an empty file and opens it.
    /// @throws std::exception
    [[nodiscard]] static OpenImage make(ImageFile file, const ImageGeometry& geometry,
                                        const std::string& diskName, const VolumeProtection& protection,
                                        const LinuxHost& host, CommandRunning& runner);

    /// From here on what is read past the page cache of the image's volume goes past that of the image's file
    /// as well, where its file system can do that. What is read ahead of the file then helps nobody.
    void readDirectly() const noexcept;
    [[nodiscard]] const ImageFile& file() const noexcept { return file_; }
    /// The tree of files, open for reading.
    [[nodiscard]] const FileDescriptor& contents() const noexcept { return contents_; }
    [[nodiscard]] const ExtSuperblock& superblock() const noexcept { return superblock_; }
    /// How much of the file system is in use.
    /// @throws SystemCallError
    [[nodiscard]] ByteCount used() const;

    /// What the tree holds; absent when that is not known for sure, and it must be read to be told.
    [[nodiscard]] std::optional<TreeManifest> manifest() const;
    /// The manifest as it was written, whether or not the tree may have been changed since.
    [[nodiscard]] std::optional<TreeManifest> writtenManifest() const;
    /// Whether the tree is known not to have been changed since then.
    [[nodiscard]] bool isAsWritten() const;
    [[nodiscard]] std::optional<ImageOrigin> origin() const;

    /// Says what the tree holds from now on.
    /// @throws SystemCallError
    void describe(const TreeManifest& manifest, const ImageOrigin& origin);
    /// Says that the tree is being changed. An image that stays so holds nothing that counts.
    /// @throws SystemCallError
    void undescribe();

    /// Waits until everything is in the image's file, and gives back the room of deleted files when there is
    /// a lot of it.
    /// @throws SystemCallError
    void flush();

    /// Unmounts it. @returns whether nothing has the image open any more.
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
    /// As it was before this mount.
    ExtSuperblock superblock_;
    std::filesystem::path sys_;
};

} // namespace ramdisk
