#include "RamDiskInfrastructure/Linux/SavedContents/ImageMaking.h"

#include "RamDiskCore/Values/RamDiskError.h"
#include "RamDiskInfrastructure/Linux/Host/SystemTools.h"
#include "RamDiskInfrastructure/Linux/Mounting/Fscrypt.h"
#include "RamDiskInfrastructure/Linux/Volumes/LinuxFormat.h"

#include <fmt/format.h>

#include <algorithm>

namespace ramdisk {

namespace {

constexpr std::uint64_t blockBytes = 4096;
constexpr std::uint64_t inodeBytes = 256;
constexpr auto spareRoom = ByteCount::of(64, ByteCount::Unit::mebibyte);
constexpr double makingLimitInSeconds = 300;
/// A check replays a journal; only after damage does it read everything.
constexpr double checkLimitInSeconds = 1800;
/// Up to here the check repaired what there was to repair.
constexpr int checkRepaired = 1;

[[noreturn]] void throwNeed(const std::string& tool) {
    throw RamDiskError(RamDiskError::ContentsTransferFailed{
        fmt::format("keeping files needs the tool {}, of the package e2fsprogs.", tool)});
}

} // namespace

ImageGeometry ImageGeometry::of(ByteCount capacity, std::uint64_t items, std::uint64_t bytes) {
    // As many empty files as a disk in memory takes: two a page, and then some.
    const auto mostItems = capacity.bytes / (blockBytes / 2) + 1024;
    const auto inodes = std::max(2 * items, mostItems) + 1024;
    // A file's last block is rarely full.
    const auto contents = std::max(capacity.bytes, bytes + items * blockBytes);
    auto size = contents + contents / 4 + spareRoom.bytes + inodes * inodeBytes;
    size -= size % blockBytes;
    const bool isSmall = capacity < ByteCount::of(256, ByteCount::Unit::mebibyte);
    return {{size}, inodes, isSmall ? 4U : 32U};
}

ImageGeometry ImageGeometry::doubled() const {
    return {{size.bytes * 2}, inodes * 2, journalInMebibytes};
}

std::vector<std::string> ImageGeometry::arguments(const std::string& diskName,
                                                  const VolumeProtection& protection,
                                                  const std::string& device) const {
    const bool isEncrypted = protection.passphrase() != nullptr;
    std::vector<std::string> list{
        "-q", "-F", "-m", "0", "-b", std::to_string(blockBytes), "-I", std::to_string(inodeBytes), "-N",
        std::to_string(inodes), "-J", fmt::format("size={}", journalInMebibytes),
        // Attributes larger than a block get room of their own, and folders as many names as they had.
        "-O", isEncrypted ? "ea_inode,large_dir,encrypt" : "ea_inode,large_dir",
        // The holes of a fresh file are zero.
        "-E", "nodiscard,lazy_itable_init=1,lazy_journal_init=1,assume_storage_prezeroed=1,root_owner=0:0"};
    if (!isEncrypted) {
        list.insert(list.end(), {"-L", LinuxFormat::extLabel(diskName)});
    }
    list.push_back(device);
    return list;
}

void layImage(const LoopDevice& device, const ImageGeometry& geometry, const std::string& diskName,
              const VolumeProtection& protection, CommandRunning& runner) {
    if (protection.passphrase() != nullptr && !Fscrypt::isSupported()) {
        throw RamDiskError(RamDiskError::ContentsTransferFailed{
            "this kernel's ext4 cannot encrypt, which keeping an encrypted disk's files needs."});
    }
    const auto tool = findSystemTool("mkfs.ext4");
    if (!tool) {
        throwNeed("mkfs.ext4");
    }
    runner.runChecked(
        {*tool, geometry.arguments(diskName, protection, device.path().string()), {}, makingLimitInSeconds});
}

bool checkImage(const LoopDevice& device, CommandRunning& runner) {
    const auto tool = findSystemTool("e2fsck");
    if (!tool) {
        return false;
    }
    const auto output = runner.run({*tool, {"-p", device.path().string()}, {}, checkLimitInSeconds});
    return !output.signal && output.exitCode <= checkRepaired;
}

} // namespace ramdisk
