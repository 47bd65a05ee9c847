// The coding and CRC kernels a fuzz target runs, for the targets that
// exercise each level (frame, stream, coding).
#ifndef KZ_FUZZ_KERNELS_H
#define KZ_FUZZ_KERNELS_H

#include <cstdlib>
#include <cstring>

extern "C" {
#include "kzapin_internal.h" // kz_kernels_limit
}

namespace kzfuzz {

/// Runs the level named by the environment variable KZ_FUZZ_KERNELS
/// (portable, avx2 or avx512; capped at what the processor runs), the
/// widest when it is not set. Returns the level in effect.
inline int pinKernels()
{
    const char* want = std::getenv("KZ_FUZZ_KERNELS");
    int level = KZ_KERNELS_BEST;
    if (want && std::strcmp(want, "portable") == 0) level = KZ_KERNELS_PORTABLE;
    if (want && std::strcmp(want, "avx2") == 0) level = KZ_KERNELS_AVX2;
    return kz_kernels_limit(level);
}

} // namespace kzfuzz

#endif // KZ_FUZZ_KERNELS_H
