/*
 * CRC-32 by carry-less multiplication of 512-bit vectors (VPCLMULQDQ with
 * AVX-512): four lanes of 128 bits in each of four vectors, 256 bytes folded
 * per step. Built with the AVX-512 and VPCLMULQDQ flags; called only where
 * the processor has them. The constants are x^k mod P, bit-reflected and
 * shifted up by one, for the fold distance D: k(D + 32) multiplies the low
 * half of a lane, k(D - 32) the high half.
 */
#include "kzapin_crc32_fold.h"
#include "kzapin_kernels.h"

/* One fold of every lane of x by the distance whose constants are k,
 * onto the data d. */
static inline __m512i fold(__m512i x, __m512i k, __m512i d)
{
    return _mm512_ternarylogic_epi64(_mm512_clmulepi64_epi128(x, k, 0x00),
                                     _mm512_clmulepi64_epi128(x, k, 0x11), d, 0x96);
}

static inline __m512i lanes(long long lo, long long hi)
{
    return _mm512_set4_epi64(hi, lo, hi, lo);
}

uint32_t kz_crc32_fold_vpclmul(uint32_t c, const unsigned char* p, size_t n)
{
    const __m512i by2048 = lanes(0x011542778all, 0x01322d1430ll);
    const __m512i by512 = lanes(0x0154442bd4ll, 0x01c6e41596ll);
    __m512i x0 = _mm512_loadu_si512(p);
    __m512i x1 = _mm512_loadu_si512(p + 64);
    __m512i x2 = _mm512_loadu_si512(p + 128);
    __m512i x3 = _mm512_loadu_si512(p + 192);
    x0 = _mm512_xor_si512(x0, _mm512_castsi128_si512(_mm_cvtsi32_si128((int)c)));
    p += 256, n -= 256;
    for (; n >= 256; p += 256, n -= 256) {
        x0 = fold(x0, by2048, _mm512_loadu_si512(p));
        x1 = fold(x1, by2048, _mm512_loadu_si512(p + 64));
        x2 = fold(x2, by2048, _mm512_loadu_si512(p + 128));
        x3 = fold(x3, by2048, _mm512_loadu_si512(p + 192));
    }
    /* Four vectors into one, then the whole 64-byte blocks left. */
    x0 = fold(x0, by512, x1);
    x0 = fold(x0, by512, x2);
    x0 = fold(x0, by512, x3);
    for (; n >= 64; p += 64, n -= 64) x0 = fold(x0, by512, _mm512_loadu_si512(p));
    /* Four lanes into one: the first three folded by 384, 256 and 128 bits
     * onto the last. */
    const __m512i ks = _mm512_set_epi64(0, 0, 0x00ccaa009ell, 0x01751997d0ll, 0x015a546366ll,
                                        0x00f1da05aall, 0x0174359406ll, 0x003db1ecdcll);
    const __m512i t = fold(x0, ks, _mm512_setzero_si512());
    __m128i lane = _mm_xor_si128(_mm512_castsi512_si128(t), _mm512_extracti32x4_epi32(t, 1));
    lane = _mm_ternarylogic_epi64(lane, _mm512_extracti32x4_epi32(t, 2),
                                  _mm512_extracti32x4_epi32(x0, 3), 0x96);
    return kz_crc32_finish_pclmul(lane, p, n);
}
