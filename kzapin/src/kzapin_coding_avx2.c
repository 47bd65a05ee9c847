/*
 * The body coding with AVX2: the keystream of four words per vector, two
 * vectors per step. Built with -mavx2; called only when the processor has it.
 */
#include "kzapin_kernels.h"

#include <immintrin.h>

/* Low 64 bits of each lane times a constant, from 32-bit products: AVX2
 * has no 64-bit multiply. */
static inline __m256i mul64(__m256i x, __m256i lo, __m256i swapped)
{
    /* `swapped` holds the constant's halves exchanged: one 32-bit multiply
     * gives both cross products, whose sum lands in the high half. */
    const __m256i ll = _mm256_mul_epu32(x, lo);
    const __m256i t = _mm256_mullo_epi32(x, swapped);
    const __m256i cross = _mm256_slli_epi64(_mm256_add_epi64(t, _mm256_srli_epi64(t, 32)), 32);
    return _mm256_add_epi64(ll, cross);
}

/* Codes `words` whole keystream words starting at word `index`, four per
 * lane set; returns the number of words done (a multiple of four). */
size_t kz_code_words_avx2(unsigned char* d, const unsigned char* s, size_t words, uint64_t index)
{
    const uint64_t g = KZ_CODING_GAMMA;
    const uint64_t c1 = KZ_CODING_MUL1, c2 = KZ_CODING_MUL2;
    const __m256i c1lo = _mm256_set1_epi64x((long long)(c1 & 0xFFFFFFFFu));
    const __m256i c1sw = _mm256_set1_epi64x((long long)(c1 >> 32 | c1 << 32));
    const __m256i c2lo = _mm256_set1_epi64x((long long)(c2 & 0xFFFFFFFFu));
    const __m256i c2sw = _mm256_set1_epi64x((long long)(c2 >> 32 | c2 << 32));
    const __m256i step = _mm256_set1_epi64x((long long)(4 * g));
    const uint64_t z0 = index * g + KZ_CODING_SEED;
    __m256i z = _mm256_set_epi64x((long long)(z0 + 3 * g), (long long)(z0 + 2 * g),
                                  (long long)(z0 + g), (long long)z0);
#define KZ_KEY4(k, z)                                                                              \
    do {                                                                                           \
        k = _mm256_xor_si256(z, _mm256_srli_epi64(z, 30));                                         \
        k = mul64(k, c1lo, c1sw);                                                                  \
        k = _mm256_xor_si256(k, _mm256_srli_epi64(k, 27));                                         \
        k = mul64(k, c2lo, c2sw);                                                                  \
        k = _mm256_xor_si256(k, _mm256_srli_epi64(k, 31));                                         \
    } while (0)
    size_t done = 0;
    /* Eight words per step, then four. */
    __m256i z2 = _mm256_add_epi64(z, step);
    const __m256i step2 = _mm256_add_epi64(step, step);
    for (; words - done >= 8; done += 8, d += 64, s += 64) {
        __m256i k, k2;
        KZ_KEY4(k, z);
        KZ_KEY4(k2, z2);
        const __m256i w = _mm256_loadu_si256((const __m256i*)s);
        const __m256i w2 = _mm256_loadu_si256((const __m256i*)(s + 32));
        _mm256_storeu_si256((__m256i*)d, _mm256_xor_si256(w, k));
        _mm256_storeu_si256((__m256i*)(d + 32), _mm256_xor_si256(w2, k2));
        z = _mm256_add_epi64(z, step2);
        z2 = _mm256_add_epi64(z2, step2);
    }
    if (words - done >= 4) {
        __m256i k;
        KZ_KEY4(k, z);
        const __m256i w = _mm256_loadu_si256((const __m256i*)s);
        _mm256_storeu_si256((__m256i*)d, _mm256_xor_si256(w, k));
        done += 4;
    }
#undef KZ_KEY4
    return done;
}
