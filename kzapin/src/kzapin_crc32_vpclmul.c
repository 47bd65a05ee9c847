/*
 * CRC-32 by carry-less multiplication of 512-bit vectors (VPCLMULQDQ with
 * AVX-512): four lanes of 128 bits in each of four vectors, 256 bytes folded
 * per step. Built with the AVX-512 and VPCLMULQDQ flags; called only where
 * the processor has them.
 */
#include "kzapin_crc32_fold.h"
#include "kzapin_wide.h"

uint32_t kz_crc32_fold_vpclmul(uint32_t c, const unsigned char* p, size_t n)
{
    __m512i x0 = _mm512_xor_si512(_mm512_loadu_si512(p), kz_fold_register(c));
    __m512i x1 = _mm512_loadu_si512(p + 64);
    __m512i x2 = _mm512_loadu_si512(p + 128);
    __m512i x3 = _mm512_loadu_si512(p + 192);
    p += 256, n -= 256;
    for (; n >= 256; p += 256, n -= 256) {
        x0 = kz_fold(x0, KZ_FOLD_BY2048, _mm512_loadu_si512(p));
        x1 = kz_fold(x1, KZ_FOLD_BY2048, _mm512_loadu_si512(p + 64));
        x2 = kz_fold(x2, KZ_FOLD_BY2048, _mm512_loadu_si512(p + 128));
        x3 = kz_fold(x3, KZ_FOLD_BY2048, _mm512_loadu_si512(p + 192));
    }
    x0 = kz_fold_vectors(x0, x1, x2, x3);
    for (; n >= 64; p += 64, n -= 64) x0 = kz_fold(x0, KZ_FOLD_BY512, _mm512_loadu_si512(p));
    return kz_crc32_finish_pclmul(kz_fold_to_lane(x0), p, n);
}
