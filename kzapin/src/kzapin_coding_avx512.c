/*
 * The body coding with AVX-512: eight keystream words per vector with the
 * 64-bit multiply AVX-512 DQ has, two vectors per step, and the last bytes
 * of a run (any number below 64) coded with one masked load and store.
 * Built with the AVX-512 flags; called only where the processor has them.
 */
#include "kzapin_kernels.h"

#include <immintrin.h>

/* The keystream words of the counters z, but for their last xorshift,
 * which the caller folds into the XOR with the data. */
static inline __m512i key8(__m512i z, __m512i m1, __m512i m2)
{
    __m512i k = _mm512_xor_si512(z, _mm512_srli_epi64(z, 30));
    k = _mm512_mullo_epi64(k, m1);
    k = _mm512_xor_si512(k, _mm512_srli_epi64(k, 27));
    return _mm512_mullo_epi64(k, m2);
}

/* w ^ k ^ (k >> 31): the data XORed with the finished keystream. */
static inline __m512i apply(__m512i w, __m512i k)
{
    return _mm512_ternarylogic_epi64(w, k, _mm512_srli_epi64(k, 31), 0x96);
}

void kz_code_run_avx512(unsigned char* d, const unsigned char* s, size_t len, uint64_t index)
{
    const __m512i m1 = _mm512_set1_epi64((long long)KZ_CODING_MUL1);
    const __m512i m2 = _mm512_set1_epi64((long long)KZ_CODING_MUL2);
    const __m512i step = _mm512_set1_epi64((long long)(8 * KZ_CODING_GAMMA));
    const uint64_t g = KZ_CODING_GAMMA, z0 = index * g + KZ_CODING_SEED;
    __m512i z =
        _mm512_set_epi64((long long)(z0 + 7 * g), (long long)(z0 + 6 * g), (long long)(z0 + 5 * g),
                         (long long)(z0 + 4 * g), (long long)(z0 + 3 * g), (long long)(z0 + 2 * g),
                         (long long)(z0 + g), (long long)z0);
    for (; len >= 128; len -= 128, d += 128, s += 128) {
        const __m512i z2 = _mm512_add_epi64(z, step);
        const __m512i k = key8(z, m1, m2), k2 = key8(z2, m1, m2);
        _mm512_storeu_si512(d, apply(_mm512_loadu_si512(s), k));
        _mm512_storeu_si512(d + 64, apply(_mm512_loadu_si512(s + 64), k2));
        z = _mm512_add_epi64(z2, step);
    }
    if (len >= 64) {
        _mm512_storeu_si512(d, apply(_mm512_loadu_si512(s), key8(z, m1, m2)));
        z = _mm512_add_epi64(z, step);
        len -= 64, d += 64, s += 64;
    }
    if (len) {
        const __mmask64 m = ((__mmask64)1 << len) - 1;
        _mm512_mask_storeu_epi8(d, m, apply(_mm512_maskz_loadu_epi8(m, s), key8(z, m1, m2)));
    }
}
