/*
 * The 512-bit steps shared by the AVX-512 kernels: the keystream of eight
 * words, and CRC folding of four 128-bit lanes at once. For the files
 * built with the AVX-512 and VPCLMULQDQ flags only.
 */
#ifndef KZAPIN_WIDE_H
#define KZAPIN_WIDE_H

#include "kzapin_kernels.h"

#include <immintrin.h>

/* The keystream counters of words index .. index + 7; add KZ_KEY_STEP for
 * the next eight. */
static inline __m512i kz_key_counters(uint64_t index)
{
    const uint64_t g = KZ_CODING_GAMMA, z = index * g + KZ_CODING_SEED;
    return _mm512_set_epi64((long long)(z + 7 * g), (long long)(z + 6 * g), (long long)(z + 5 * g),
                            (long long)(z + 4 * g), (long long)(z + 3 * g), (long long)(z + 2 * g),
                            (long long)(z + g), (long long)z);
}
#define KZ_KEY_STEP _mm512_set1_epi64((long long)(8 * KZ_CODING_GAMMA))

/* The keystream words of the counters z, but for their last xorshift,
 * which kz_key_apply folds into the XOR with the data. */
static inline __m512i kz_key8(__m512i z)
{
    __m512i k = _mm512_xor_si512(z, _mm512_srli_epi64(z, 30));
    k = _mm512_mullo_epi64(k, _mm512_set1_epi64((long long)KZ_CODING_MUL1));
    k = _mm512_xor_si512(k, _mm512_srli_epi64(k, 27));
    return _mm512_mullo_epi64(k, _mm512_set1_epi64((long long)KZ_CODING_MUL2));
}

/* w ^ k ^ (k >> 31): the data coded with the finished keystream. */
static inline __m512i kz_key_apply(__m512i w, __m512i k)
{
    return _mm512_ternarylogic_epi64(w, k, _mm512_srli_epi64(k, 31), 0x96);
}

/* Fold constants: x^k mod P, bit-reflected and shifted up by one, for the
 * fold distance D; k(D + 32) multiplies the low half of a lane, k(D - 32)
 * the high half. */
static inline __m512i kz_fold_lanes(long long lo, long long hi)
{
    return _mm512_set4_epi64(hi, lo, hi, lo);
}
#define KZ_FOLD_BY2048 kz_fold_lanes(0x011542778all, 0x01322d1430ll)
#define KZ_FOLD_BY512 kz_fold_lanes(0x0154442bd4ll, 0x01c6e41596ll)

/* Every lane of x folded forward by the distance of k, onto d. */
static inline __m512i kz_fold(__m512i x, __m512i k, __m512i d)
{
    return _mm512_ternarylogic_epi64(_mm512_clmulepi64_epi128(x, k, 0x00),
                                     _mm512_clmulepi64_epi128(x, k, 0x11), d, 0x96);
}

/* Four folding vectors of 256 bytes, x0 first, into one. */
static inline __m512i kz_fold_vectors(__m512i x0, __m512i x1, __m512i x2, __m512i x3)
{
    x0 = kz_fold(x0, KZ_FOLD_BY512, x1);
    x0 = kz_fold(x0, KZ_FOLD_BY512, x2);
    return kz_fold(x0, KZ_FOLD_BY512, x3);
}

/* The four lanes of x into one: the first three folded by 384, 256 and 128
 * bits onto the last. */
static inline __m128i kz_fold_to_lane(__m512i x)
{
    const __m512i ks = _mm512_set_epi64(0, 0, 0x00ccaa009ell, 0x01751997d0ll, 0x015a546366ll,
                                        0x00f1da05aall, 0x0174359406ll, 0x003db1ecdcll);
    const __m512i t = kz_fold(x, ks, _mm512_setzero_si512());
    const __m128i lane = _mm_xor_si128(_mm512_castsi512_si128(t), _mm512_extracti32x4_epi32(t, 1));
    return _mm_ternarylogic_epi64(lane, _mm512_extracti32x4_epi32(t, 2),
                                  _mm512_extracti32x4_epi32(x, 3), 0x96);
}

/* The inverted register placed over the first bytes of a vector. */
static inline __m512i kz_fold_register(uint32_t c)
{
    return _mm512_castsi128_si512(_mm_cvtsi32_si128((int)c));
}

#endif /* KZAPIN_WIDE_H */
