/*
 * CRC-32 by carry-less multiplication (PCLMULQDQ), 128 bits per lane.
 * Built with -mavx -mpclmul; called only when the processor has both.
 */
#include "kzapin_crc32_fold.h"
#include "kzapin_kernels.h"

#include <immintrin.h>
#include <string.h>

/* Byte shuffles for blocks of n < 16 bytes. Loaded at kz_shift + n, the
 * mask moves lane j + n to lane j and clears the top n lanes; with bit 7
 * flipped (kz_shift_up + n) it moves lane j to lane j + 16 - n and clears
 * the lanes below. kz_keep + n keeps the top n lanes. */
static const unsigned char kz_shift[32] = {
    0x00, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08, 0x09, 0x0A, 0x0B, 0x0C, 0x0D, 0x0E, 0x0F,
    0x80, 0x81, 0x82, 0x83, 0x84, 0x85, 0x86, 0x87, 0x88, 0x89, 0x8A, 0x8B, 0x8C, 0x8D, 0x8E, 0x8F};
static const unsigned char kz_shift_up[32] = {
    0x80, 0x81, 0x82, 0x83, 0x84, 0x85, 0x86, 0x87, 0x88, 0x89, 0x8A, 0x8B, 0x8C, 0x8D, 0x8E, 0x8F,
    0x00, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08, 0x09, 0x0A, 0x0B, 0x0C, 0x0D, 0x0E, 0x0F};
static const unsigned char kz_keep[32] = {
    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,
    0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};

/* The constants for folding one 128-bit lane forward (and, in crc_reduce,
 * 128 bits to 64): x^k mod P for those distances, bit-reflected. */
#define KZ_FOLD1_K3K4 _mm_set_epi64x(0x00ccaa009ell, 0x01751997d0ll)

/* The CRC of the 128-bit block x1 (a 16-byte run, register XORed in):
 * 128 bits to 64, then Barrett reduction to 32. The constants are x^k mod P
 * and P and floor(x^64 / P), all bit-reflected. */
static inline uint32_t crc_reduce(__m128i x1)
{
    const __m128i k3k4 = KZ_FOLD1_K3K4;
    const __m128i k5 = _mm_set_epi64x(0, 0x0163cd6124ll);
    const __m128i poly = _mm_set_epi64x(0x01f7011641ll, 0x01db710641ll);
    const __m128i mask32 = _mm_setr_epi32(-1, 0, -1, 0);
    __m128i x2 = _mm_clmulepi64_si128(x1, k3k4, 0x10);
    x1 = _mm_xor_si128(_mm_srli_si128(x1, 8), x2);
    x2 = _mm_srli_si128(x1, 4);
    x1 = _mm_and_si128(x1, mask32);
    x1 = _mm_xor_si128(_mm_clmulepi64_si128(x1, k5, 0x00), x2);
    x2 = _mm_and_si128(x1, mask32);
    x2 = _mm_clmulepi64_si128(x2, poly, 0x10);
    x2 = _mm_and_si128(x2, mask32);
    x2 = _mm_clmulepi64_si128(x2, poly, 0x00);
    x1 = _mm_xor_si128(x1, x2);
    return (uint32_t)_mm_extract_epi32(x1, 1);
}

/* Folds the whole blocks of p[0, n) into the lane x1, then the last n % 16
 * bytes (which may follow only a lane already folded, so that the last 16
 * bytes of the run can be loaded), and reduces. */
uint32_t kz_crc32_finish_pclmul(__m128i x1, const unsigned char* p, size_t n)
{
    const __m128i k3k4 = KZ_FOLD1_K3K4;
    for (; n >= 16; p += 16, n -= 16) {
        const __m128i x5 = _mm_clmulepi64_si128(x1, k3k4, 0x00);
        x1 = _mm_clmulepi64_si128(x1, k3k4, 0x11);
        x1 = _mm_xor_si128(_mm_xor_si128(x1, x5), _mm_loadu_si128((const __m128i*)p));
    }
    if (n) {
        /* The last n < 16 bytes T: the remainder X and T are X[0, n) behind
         * 16 - n zero bytes (one block Z, folded) and X[n, 16) followed by T
         * (the block Y, whose T part is the last 16 bytes of the run). */
        const __m128i toY = _mm_loadu_si128((const __m128i*)(kz_shift + n));
        const __m128i toZ = _mm_loadu_si128((const __m128i*)(kz_shift_up + n));
        const __m128i last = _mm_loadu_si128((const __m128i*)(p + n - 16));
        const __m128i y = _mm_blendv_epi8(_mm_shuffle_epi8(x1, toY), last, toY);
        const __m128i z = _mm_shuffle_epi8(x1, toZ);
        x1 =
            _mm_xor_si128(_mm_clmulepi64_si128(z, k3k4, 0x00), _mm_clmulepi64_si128(z, k3k4, 0x11));
        x1 = _mm_xor_si128(x1, y);
    }
    return crc_reduce(x1);
}

/* Carry-less multiplication folding (the reflected form of the method Intel
 * describes for CRC-32 with PCLMULQDQ): four 128-bit lanes are folded
 * 512 bits forward per step, then into one lane, then reduced to 32 bits
 * (Barrett). Works on the inverted register; `n` >= 64. Built for AVX (three-operand forms, loads
 * folded into the XORs). k1..k4 are x^k mod P for the fold distances, bit-reflected. */
static uint32_t crc_fold(uint32_t c, const unsigned char* p, size_t n)
{
    if (n >= 256 && kz_cpu_avx512) return kz_crc32_fold_vpclmul(c, p, n);
    const __m128i k1k2 = _mm_set_epi64x(0x01c6e41596ll, 0x0154442bd4ll);
    const __m128i k3k4 = KZ_FOLD1_K3K4;

    __m128i x1 = _mm_loadu_si128((const __m128i*)(p + 0x00));
    __m128i x2 = _mm_loadu_si128((const __m128i*)(p + 0x10));
    __m128i x3 = _mm_loadu_si128((const __m128i*)(p + 0x20));
    __m128i x4 = _mm_loadu_si128((const __m128i*)(p + 0x30));
    x1 = _mm_xor_si128(x1, _mm_cvtsi32_si128((int)c));
    p += 64, n -= 64;
#define KZ_FOLD4(at)                                                                               \
    do {                                                                                           \
        const __m128i x5 = _mm_clmulepi64_si128(x1, k1k2, 0x00);                                   \
        const __m128i x6 = _mm_clmulepi64_si128(x2, k1k2, 0x00);                                   \
        const __m128i x7 = _mm_clmulepi64_si128(x3, k1k2, 0x00);                                   \
        const __m128i x8 = _mm_clmulepi64_si128(x4, k1k2, 0x00);                                   \
        x1 = _mm_clmulepi64_si128(x1, k1k2, 0x11);                                                 \
        x2 = _mm_clmulepi64_si128(x2, k1k2, 0x11);                                                 \
        x3 = _mm_clmulepi64_si128(x3, k1k2, 0x11);                                                 \
        x4 = _mm_clmulepi64_si128(x4, k1k2, 0x11);                                                 \
        x1 = _mm_xor_si128(_mm_xor_si128(x1, x5), _mm_loadu_si128((const __m128i*)((at) + 0x00))); \
        x2 = _mm_xor_si128(_mm_xor_si128(x2, x6), _mm_loadu_si128((const __m128i*)((at) + 0x10))); \
        x3 = _mm_xor_si128(_mm_xor_si128(x3, x7), _mm_loadu_si128((const __m128i*)((at) + 0x20))); \
        x4 = _mm_xor_si128(_mm_xor_si128(x4, x8), _mm_loadu_si128((const __m128i*)((at) + 0x30))); \
    } while (0)
    /* Two steps per pass, then one. */
    for (; n >= 128; p += 128, n -= 128) {
        KZ_FOLD4(p);
        KZ_FOLD4(p + 64);
    }
    if (n >= 64) {
        KZ_FOLD4(p);
        p += 64, n -= 64;
    }
#undef KZ_FOLD4
    /* Four lanes into one. */
    __m128i x5 = _mm_clmulepi64_si128(x1, k3k4, 0x00);
    x1 = _mm_xor_si128(_mm_xor_si128(_mm_clmulepi64_si128(x1, k3k4, 0x11), x2), x5);
    x5 = _mm_clmulepi64_si128(x1, k3k4, 0x00);
    x1 = _mm_xor_si128(_mm_xor_si128(_mm_clmulepi64_si128(x1, k3k4, 0x11), x3), x5);
    x5 = _mm_clmulepi64_si128(x1, k3k4, 0x00);
    x1 = _mm_xor_si128(_mm_xor_si128(_mm_clmulepi64_si128(x1, k3k4, 0x11), x4), x5);
    return kz_crc32_finish_pclmul(x1, p, n);
}

/* A run of 16 to 63 bytes: its first block, then the rest. */
static inline uint32_t crc_blocks(uint32_t c, const unsigned char* p, size_t n)
{
    const __m128i x1 = _mm_xor_si128(_mm_loadu_si128((const __m128i*)p), _mm_cvtsi32_si128((int)c));
    return kz_crc32_finish_pclmul(x1, p + 16, n - 16);
}

/* The register c placed over the first four of n bytes that end a block. */
static inline __m128i register_block(uint32_t c, size_t n)
{
    return _mm_shuffle_epi8(_mm_cvtsi32_si128((int)c),
                            _mm_loadu_si128((const __m128i*)(kz_shift_up + n)));
}

/* A run of 4 to 15 bytes, read only inside the run: it goes at the end of
 * one block behind zero bytes (which leave a zero register as it is), and
 * that block is reduced. */
static uint32_t crc_short(uint32_t c, const unsigned char* p, size_t n)
{
    unsigned char b[16] = {0};
    if (n >= 8) {
        memcpy(b + 16 - n, p, 8);
        memcpy(b + 8, p + n - 8, 8);
    } else {
        memcpy(b + 16 - n, p, 4);
        memcpy(b + 12, p + n - 4, 4);
    }
    const __m128i x1 = _mm_loadu_si128((const __m128i*)b);
    return crc_reduce(_mm_xor_si128(x1, register_block(c, n)));
}

/* The same for a run inside a readable window [lo, hi) of 16 bytes or more
 * (a frame, say): one load of 16 bytes from the window, shifted and masked,
 * instead of a copy. */
static inline uint32_t crc_window(uint32_t c, const unsigned char* p, size_t n,
                                  const unsigned char* lo, const unsigned char* hi)
{
    (void)lo; /* hi - 16 >= lo */
    const unsigned char* q = p + 16 <= hi ? p : hi - 16;
    /* The run lies at lanes [p - q, p - q + n) of the load; it moves up by
     * s lanes to end the block, and what came before it is cleared. */
    const size_t s = 16 - n - (size_t)(p - q);
    __m128i x1 = _mm_shuffle_epi8(_mm_loadu_si128((const __m128i*)q),
                                  _mm_loadu_si128((const __m128i*)(kz_shift_up + 16 - s)));
    x1 = _mm_and_si128(x1, _mm_loadu_si128((const __m128i*)(kz_keep + n)));
    return crc_reduce(_mm_xor_si128(x1, register_block(c, n)));
}

/* A run of 4 bytes or more inside [lo, hi), hi - lo >= 16. */
__attribute__((always_inline)) static inline uint32_t crc_run_in(uint32_t c, const unsigned char* p,
                                                                 size_t n, const unsigned char* lo,
                                                                 const unsigned char* hi)
{
    if (n >= 64) return crc_fold(c, p, n);
    if (n >= 16) return crc_blocks(c, p, n);
    return crc_window(c, p, n, lo, hi);
}

/* Any run of 4 bytes or more inside [lo, hi), for callers built without
 * the vector instructions: a short one in a smaller window is copied. */
uint32_t kz_crc32_run_pclmul(uint32_t c, const unsigned char* p, size_t n, const unsigned char* lo,
                             const unsigned char* hi)
{
    return n < 16 && hi - lo < 16 ? crc_short(c, p, n) : crc_run_in(c, p, n, lo, hi);
}

/* Both CRCs of a frame whose bytes [0, end) may all be read, header of
 * `head` >= 4 bytes, end - head >= 4: one call with everything in line, as
 * small frames are dominated by the cost of getting here. */
uint32_t kz_frame_crcs_pclmul(unsigned char* store, const unsigned char* frame, size_t head,
                              size_t end, uint32_t* whole)
{
    const unsigned char* hi = frame + end;
    uint32_t h;
    if (head == KZ_HEAD_WHOLE) {
        /* The header of a whole frame: its 14 bytes moved up two lanes to end
         * the block, the register (all ones) over their first four. */
        const __m128i x1 = _mm_slli_si128(_mm_loadu_si128((const __m128i*)frame), 2);
        h = ~crc_reduce(_mm_xor_si128(x1, _mm_set_epi32(0, 0, 0xFFFF, (int)0xFFFF0000u)));
    } else {
        h = ~crc_run_in(~0u, frame, head, frame, hi);
    }
    if (store) kz_put32(store + head, h);
    *whole = ~crc_run_in(~h, frame + head, end - head, frame, hi);
    return h;
}
