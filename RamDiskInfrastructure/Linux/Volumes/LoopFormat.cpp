#include "RamDiskInfrastructure/Linux/Volumes/LoopFormat.h"

#include "RamDiskCore/Values/Text.h"

#include <fmt/format.h>

#include <unistd.h>

namespace ramdisk {

namespace {

constexpr std::size_t longestExtLabel = 16;
constexpr auto smallDisk = ByteCount::of(64, ByteCount::Unit::mebibyte);

std::vector<std::string> extArguments(const DiskRecord& record, EncryptionMeans encryption,
                                      const LinuxHost& host) {
    // The journal is taken from the user's space: as small as the file system allows on a small disk, where
    // only small blocks let it be small.
    const bool isSmall = record.size < smallDisk;
    std::vector<std::string> arguments{
        "-q", "-F", "-m", "0", "-b", isSmall ? "1024" : "4096", "-J", isSmall ? "size=1" : "size=4",
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
        arguments.insert(arguments.end(), {"-L", LoopFormat::extLabel(record.name)});
    }
    return arguments;
}

} // namespace

LoopFormat LoopFormat::of(FileSystem fileSystem) {
    switch (fileSystem) {
    case FileSystem::exFAT:
        return {"exfat", "mkfs.exfat", "exfatprogs", Metadata::none};
    case FileSystem::fat32:
        return {"vfat", "mkfs.vfat", "dosfstools", Metadata::none};
    default:
        return {"ext4", "mkfs.ext4", "e2fsprogs", Metadata::posix};
    }
}

std::string LoopFormat::extLabel(const std::string& name) {
    return std::string(prefixOfWholeCharacters(name, longestExtLabel));
}

std::vector<std::string> LoopFormat::arguments(const DiskRecord& record, EncryptionMeans encryption,
                                               const std::string& device, const LinuxHost& host) const {
    std::vector<std::string> arguments;
    if (kernelType == "ext4") {
        arguments = extArguments(record, encryption, host);
    } else if (kernelType == "vfat") {
        arguments = {"-F", "32", "-n", record.name};
    } else {
        arguments = {"-q", "-L", record.name};
    }
    arguments.push_back(device);
    return arguments;
}

std::vector<std::pair<std::string, std::string>> LoopFormat::mountOptions(const DiskRecord& record,
                                                                          const LinuxHost& host) const {
    if (metadata == Metadata::posix) {
        return {};
    }
    std::vector<std::pair<std::string, std::string>> options{
        {"uid", fmt::format("{}", host.owner)},
        {"gid", fmt::format("{}", host.ownerGroup)},
        {"umask", record.access == VolumeAccess::onlyMe ? "0077" : "0022"}};
    if (kernelType == "vfat") {
        options.emplace_back("utf8", "");
    }
    return options;
}

bool foldsCase(const DiskRecord& record, EncryptionMeans encryption, const LinuxHost& host) {
    const auto feature = host.sys / "fs/ext4/features/casefold";
    return record.fileSystem == FileSystem::apfs && encryption != EncryptionMeans::fscrypt
           && access(feature.c_str(), F_OK) == 0;
}

} // namespace ramdisk
