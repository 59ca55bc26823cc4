#include "RamDiskInfrastructure/Trees/ContentHash.h"

#include "tests/support/Testing.h"

#define XXH_INLINE_ALL
#include <xxhash.h>

namespace ramdisk::test {
namespace {

TEST(ContentHashTest, IsTheLibrarysWhateverTheProcessorsVectors) {
    // Saved copies hold such hashes: the value must never change.
    EXPECT_EQ(contentHash("", 0), (ContentHash{0x6001c324468d497fU, 0x99aa06d3014798d8U}));
    std::mt19937 random(42); // NOLINT: the same every time
    std::string bytes((1U << 20U) + 2, '\0');
    for (auto& byte : bytes) {
        byte = static_cast<char>(random());
    }
    std::vector<std::size_t> lengths(301);
    std::iota(lengths.begin(), lengths.end(), 0);
    // A stripe has 64 bytes, a block of the algorithm 1 KiB; ours have 64 KiB.
    for (std::size_t around : {512U, 1024U, 2048U, 4096U, 64U * 1024U, 256U * 1024U, 1U << 20U}) {
        lengths.insert(lengths.end(), {around - 65, around - 64, around - 1, around, around + 1});
    }
    for (const auto length : lengths) {
        // Also where the bytes do not lie at an even place.
        for (const auto* const start : {bytes.data(), bytes.data() + 1}) {
            const auto hash = XXH3_128bits(start, length);
            EXPECT_EQ(contentHash(start, length), (ContentHash{hash.low64, hash.high64})) << length;
        }
    }
}

} // namespace
} // namespace ramdisk::test
