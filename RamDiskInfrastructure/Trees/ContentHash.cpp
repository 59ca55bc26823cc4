#include "RamDiskInfrastructure/Trees/ContentHash.h"

#define XXH_INLINE_ALL
#include <xxhash.h>

namespace ramdisk {

/// In a source of its own, made for processors with AVX2 where such can be had.
void contentHashAVX2(const char* bytes, size_t length, XXH64_hash_t (&lowAndHigh)[2]);

namespace {

#if defined(__x86_64__)
bool hasAVX2() {
    return __builtin_cpu_supports("avx2") != 0;
}
#else
bool hasAVX2() {
    return false;
}
#endif

} // namespace

ContentHash contentHash(const char* bytes, std::size_t length) {
    static const bool isWide = hasAVX2();
    if (isWide) {
        XXH64_hash_t lowAndHigh[2];
        contentHashAVX2(bytes, length, lowAndHigh);
        return {lowAndHigh[0], lowAndHigh[1]};
    }
    const auto hash = XXH3_128bits(bytes, length);
    return {hash.low64, hash.high64};
}

} // namespace ramdisk
