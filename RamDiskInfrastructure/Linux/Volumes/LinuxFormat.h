#pragma once

#include "RamDiskCore/Ports/SystemCommand.h"
#include "RamDiskCore/Values/FileSystem.h"
#include "RamDiskInfrastructure/Linux/Host/LinuxHost.h"
#include "RamDiskInfrastructure/Linux/Records/DiskRecord.h"

#include <string>
#include <utility>
#include <vector>

namespace ramdisk {

/// How a volume's contents are kept from those who read its memory.
enum class EncryptionMeans {
    none,
    /// A LUKS2 container below the file system: everything is encrypted.
    luks,
    /// The file system's own: contents, names and link targets.
    fscrypt,
};

/// What stands for a format on Linux.
struct LinuxFormat {
    FileSystem value;
    /// What a disk of it is made of by a process that may mount.
    VolumeKind kind;
    /// The type as the kernel calls it.
    const char* kernelType;
    /// The tool that lays it onto a loop device; empty for a type that needs no device.
    const char* tool = "";
    /// The package that brings the tool, for users who lack it.
    const char* package = "";
    /// Whether files have owners and attributes of their own.
    enum class Metadata { posix, none } metadata = Metadata::posix;
    /// Whether it takes names that differ only in case for one another, where the kernel can do so.
    bool mayFoldCase = false;
    /// The tool's options; null without a tool.
    std::vector<std::string> (*options)(const DiskRecord& record, EncryptionMeans encryption,
                                        const LinuxHost& host) = nullptr;
    /// A flag that its mount is given besides; empty for none.
    const char* mountFlag = "";

    [[nodiscard]] static const LinuxFormat& of(FileSystem fileSystem);

    /// The arguments that lay the file system onto `device`.
    [[nodiscard]] std::vector<std::string> arguments(const DiskRecord& record, EncryptionMeans encryption,
                                                     const std::string& device, const LinuxHost& host) const;

    /// The size of the device below a disk of this capacity with room for a restore. Below ext4 it is four
    /// times the capacity: the file system gives the rest to nobody but a restore.
    [[nodiscard]] ByteCount sizeWithRestoreRoom(ByteCount capacity, const LinuxHost& host) const;

    /// As much of a name as ext4 keeps in its label.
    [[nodiscard]] static std::string extLabel(const std::string& name);

    /// What the mount needs to be told.
    [[nodiscard]] std::vector<std::pair<std::string, std::string>> mountOptions(const DiskRecord& record,
                                                                                const LinuxHost& host) const;
};

/// Whether volumes of this record's format take names that differ only in case for one another here.
[[nodiscard]] bool foldsCase(const DiskRecord& record, EncryptionMeans encryption, const LinuxHost& host);

} // namespace ramdisk
