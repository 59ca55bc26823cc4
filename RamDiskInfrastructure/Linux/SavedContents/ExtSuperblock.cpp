#include "RamDiskInfrastructure/Linux/SavedContents/ExtSuperblock.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <array>
#include <span>

#include <unistd.h>

namespace ramdisk {

namespace {

constexpr off_t superblockOffset = 1024;
constexpr std::uint16_t extMagic = 0xEF53;

/// The fields in use here: their offsets are part of the format on disk, all in little-endian.
constexpr std::size_t blockCountLow = 0x04;
constexpr std::size_t blockSizeShift = 0x18;
constexpr std::size_t mountTime = 0x2C;
constexpr std::size_t mountCount = 0x34;
constexpr std::size_t magic = 0x38;
constexpr std::size_t state = 0x3A;
constexpr std::size_t checkTime = 0x40;
constexpr std::size_t incompatibleFeatures = 0x60;
constexpr std::size_t identifier = 0x68;
constexpr std::size_t volumeName = 0x78;
constexpr std::size_t blockCountHigh = 0x150;

constexpr std::uint32_t needsRecovery = 0x4;
constexpr std::uint32_t casefoldFeature = 0x20000;
constexpr std::uint32_t wasUnmounted = 0x1;
constexpr std::uint32_t hasErrors = 0x2;

using Bytes = std::array<unsigned char, 1024>;

std::uint32_t number(const Bytes& bytes, std::size_t offset, std::size_t length) {
    std::uint32_t value = 0;
    for (std::size_t index = length; index > 0; --index) {
        value = (value << 8U) | bytes.at(offset + index - 1);
    }
    return value;
}

} // namespace

std::optional<ExtSuperblock> ExtSuperblock::read(const FileDescriptor& file) {
    Bytes bytes{};
    if (pread(file.get(), bytes.data(), bytes.size(), superblockOffset) != static_cast<ssize_t>(bytes.size())
        || number(bytes, magic, 2) != extMagic || number(bytes, blockSizeShift, 4) > 6) {
        return std::nullopt;
    }
    ExtSuperblock result;
    const auto blocks = std::uint64_t{number(bytes, blockCountLow, 4)}
                        | (std::uint64_t{number(bytes, blockCountHigh, 4)} << 32U);
    result.size = ByteCount{blocks << (10U + number(bytes, blockSizeShift, 4))};
    for (std::size_t index = volumeName; index < volumeName + 16 && bytes.at(index) != 0; ++index) {
        result.label.push_back(static_cast<char>(bytes.at(index)));
    }
    const auto features = number(bytes, incompatibleFeatures, 4);
    result.canFoldCase = (features & casefoldFeature) != 0;
    result.isClean = (number(bytes, state, 2) & (wasUnmounted | hasErrors)) == wasUnmounted
                     && (features & needsRecovery) == 0;
    result.seal =
        fmt::format("{:02x}-{:x}-{:x}-{:x}", fmt::join(std::span(bytes).subspan(identifier, 16), ""),
                    number(bytes, mountTime, 4), number(bytes, mountCount, 2), number(bytes, checkTime, 4));
    return result;
}

} // namespace ramdisk
