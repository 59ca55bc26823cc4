// Nothing else may be included here: an inline function of another header, made with AVX2, might become the
// one that the whole program uses, also where the processor has no AVX2.
#define XXH_INLINE_ALL
#include <xxhash.h>

namespace ramdisk {

void contentHashAVX2(const char* bytes, size_t length, XXH64_hash_t (&lowAndHigh)[2]);

void contentHashAVX2(const char* bytes, size_t length, XXH64_hash_t (&lowAndHigh)[2]) {
    const XXH128_hash_t hash = XXH3_128bits(bytes, length);
    lowAndHigh[0] = hash.low64;
    lowAndHigh[1] = hash.high64;
}

} // namespace ramdisk
