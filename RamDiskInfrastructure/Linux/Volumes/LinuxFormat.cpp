#include "RamDiskInfrastructure/Linux/Volumes/LinuxFormat.h"

#include "RamDiskCore/Values/Text.h"

#include <fmt/format.h>

#include <sys/statvfs.h>
#include <unistd.h>

namespace ramdisk {

namespace {

constexpr std::size_t longestExtLabel = 16;
/// Two file systems never need just the same room for the same files: folders are hashed by a random seed, so
/// that their blocks are filled to another degree, by 2.7 times at the most. Equal sets of attributes are
/// stored once, if the kernel remembers that it has them, and take at most a block for each item. Files lie
/// in more pieces or in fewer. With three times the room of the disk whatever fitted once fits again.
constexpr std::uint64_t roomOfARestore = 3;
/// A disk of up to this size has an item for each 4096 bytes, and a larger one for each 16,384.
constexpr auto disksOfSmallFiles = ByteCount::of(512, ByteCount::Unit::mebibyte);
constexpr auto smallDisk = ByteCount::of(64, ByteCount::Unit::mebibyte);

std::vector<std::string> extOptions(const DiskRecord& record, EncryptionMeans encryption,
                                    const LinuxHost& host) {
    // The journal is taken from the user's space: as small as the file system allows on a small disk, where
    // only small blocks let it be small.
    const bool isSmall = record.size < smallDisk;
    std::vector<std::string> arguments{
        "-q", "-F", "-m", "0", "-b", isSmall ? "1024" : "4096", "-J", isSmall ? "size=1" : "size=4",
        // Without large_dir the index of a folder can be full, depending on the seed.
        // As many items as a file system of the disk's size has by itself; it never grows.
        "-N", std::to_string(record.size.bytes / (record.size < disksOfSmallFiles ? 4096 : 16384)), "-I",
        "256", "-O", "^resize_inode,large_dir",
        // Fresh memory is zero, so nothing needs to be written or discarded beforehand.
        "-E",
        fmt::format("nodiscard,assume_storage_prezeroed=1,root_owner={}:{}", host.owner, host.ownerGroup)};
    if (encryption == EncryptionMeans::fscrypt) {
        arguments.insert(arguments.end(), {"-O", "encrypt"});
    }
    if (foldsCase(record, encryption, host)) {
        arguments.insert(arguments.end(), {"-O", "casefold"});
    }
    // The label stands in the clear even where the files do not.
    if (!record.isEncrypted) {
        arguments.insert(arguments.end(), {"-L", LinuxFormat::extLabel(record.name)});
    }
    return arguments;
}

std::vector<std::string> fatOptions(const DiskRecord& record, EncryptionMeans /*encryption*/,
                                    const LinuxHost& /*host*/) {
    return {"-F", "32", "-n", record.name};
}

std::vector<std::string> exfatOptions(const DiskRecord& record, EncryptionMeans /*encryption*/,
                                      const LinuxHost& /*host*/) {
    return {"-q", "-L", record.name};
}

constexpr auto linuxFormats = enumerationTable<LinuxFormat>({
    {FileSystem::apfs, VolumeKind::loop, "ext4", "mkfs.ext4", "e2fsprogs", LinuxFormat::Metadata::posix, true,
     extOptions},
    {FileSystem::apfsCaseSensitive, VolumeKind::loop, "ext4", "mkfs.ext4", "e2fsprogs",
     LinuxFormat::Metadata::posix, false, extOptions},
    {FileSystem::hfsPlus, VolumeKind::tmpfs, "tmpfs"},
    {FileSystem::journaledHFSPlus, VolumeKind::loop, "ext4", "mkfs.ext4", "e2fsprogs",
     LinuxFormat::Metadata::posix, false, extOptions},
    {FileSystem::exFAT, VolumeKind::loop, "exfat", "mkfs.exfat", "exfatprogs", LinuxFormat::Metadata::none,
     false, exfatOptions},
    {FileSystem::fat32, VolumeKind::loop, "vfat", "mkfs.vfat", "dosfstools", LinuxFormat::Metadata::none,
     false, fatOptions, "utf8"},
});

} // namespace

const LinuxFormat& LinuxFormat::of(FileSystem fileSystem) {
    return rowOf(linuxFormats, fileSystem);
}

std::string LinuxFormat::extLabel(const std::string& name) {
    return std::string(prefixOfWholeCharacters(name, longestExtLabel));
}

std::vector<std::string> LinuxFormat::arguments(const DiskRecord& record, EncryptionMeans encryption,
                                                const std::string& device, const LinuxHost& host) const {
    auto arguments = options(record, encryption, host);
    arguments.push_back(device);
    return arguments;
}

std::vector<std::pair<std::string, std::string>> LinuxFormat::mountOptions(const DiskRecord& record,
                                                                           const LinuxHost& host) const {
    if (metadata == Metadata::posix) {
        return {};
    }
    std::vector<std::pair<std::string, std::string>> told{
        {"uid", fmt::format("{}", host.owner)},
        {"gid", fmt::format("{}", host.ownerGroup)},
        {"umask", record.access == VolumeAccess::onlyMe ? "0077" : "0022"}};
    if (*mountFlag != '\0') {
        told.emplace_back(mountFlag, "");
    }
    return told;
}

ByteCount LinuxFormat::sizeWithRestoreRoom(ByteCount capacity, const LinuxHost& host) const {
    struct statvfs settings {};
    // What nobody is to use is kept back by a setting in /sys.
    const bool keepsBack = kind == VolumeKind::loop && metadata == Metadata::posix
                           && statvfs(host.sys.c_str(), &settings) == 0 && (settings.f_flag & ST_RDONLY) == 0;
    return {capacity.bytes * (keepsBack ? 1 + roomOfARestore : 1)};
}

bool foldsCase(const DiskRecord& record, EncryptionMeans encryption, const LinuxHost& host) {
    const auto feature = host.sys / "fs/ext4/features/casefold";
    return LinuxFormat::of(record.fileSystem).mayFoldCase && encryption != EncryptionMeans::fscrypt
           && access(feature.c_str(), F_OK) == 0;
}

} // namespace ramdisk
