/*
 * Body coding.
 *
 * The coding XORs each byte with a keystream byte chosen by the byte's
 * position in the run: position p takes byte (p % 8) of the 64-bit word
 * K(p / 8), little-endian, where K(i) is the splitmix64 finaliser applied to
 * i * 0x9E3779B97F4A7C15 + KZ_CODING_SEED. The keystream can be computed at
 * any position, so runs are processed eight bytes at a time, and applying
 * the coding twice gives the input back: decoding is the same operation.
 */
#include "kzapin_kernels.h"

#include <string.h>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

/* The keystream word as it must lie in memory: little-endian. */
static inline uint64_t key_word_in_memory(uint64_t index)
{
    uint64_t k = kz_key_word(index);
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    k = __builtin_bswap64(k);
#endif
    return k;
}

/* The first 256 keystream bytes (words 0 to 31 in memory order): most
 * bodies are shorter, and a table costs less than computing their words. */
#define KZ_KEY_HEAD 256u
static const unsigned char kz_key_head[KZ_KEY_HEAD] = {
    0x69, 0xCE, 0x92, 0xA9, 0x3C, 0x62, 0xD0, 0xD2, 0x64, 0x69, 0x5B, 0x14, 0x28, 0x65, 0xC2, 0xE8,
    0x0D, 0x91, 0x55, 0x07, 0x45, 0x21, 0x64, 0x90, 0x32, 0x33, 0xBD, 0x12, 0xF7, 0x91, 0xE3, 0xA8,
    0x5B, 0x3D, 0xF5, 0x83, 0x24, 0xAE, 0x72, 0xA4, 0xE0, 0x4A, 0x48, 0xDF, 0x46, 0x73, 0x17, 0x91,
    0x7B, 0xDF, 0xB3, 0xC3, 0xC8, 0x72, 0x1B, 0xC1, 0xD1, 0x36, 0xB8, 0x82, 0x14, 0xFF, 0xDE, 0x63,
    0x81, 0x91, 0x11, 0x77, 0x8E, 0x1D, 0x5D, 0x58, 0xF0, 0xC6, 0xBB, 0x8C, 0x42, 0x53, 0x85, 0x1E,
    0x49, 0x1D, 0x84, 0x24, 0x5B, 0xDE, 0x57, 0x2F, 0xA8, 0x4B, 0x24, 0xED, 0x1B, 0x79, 0x10, 0x63,
    0x24, 0x09, 0x2A, 0xBC, 0xD6, 0xB8, 0x30, 0x6C, 0x48, 0x7F, 0xD0, 0xC4, 0x26, 0x7F, 0x9E, 0xE7,
    0x25, 0x7F, 0xB1, 0x1D, 0xEC, 0xD2, 0x18, 0x8C, 0xDA, 0xB4, 0xA5, 0x46, 0x45, 0x2B, 0xDE, 0xD1,
    0x81, 0x9F, 0xBD, 0xB7, 0x50, 0x77, 0x34, 0xC3, 0x6A, 0x65, 0x29, 0xFA, 0x45, 0x1C, 0x4F, 0x3E,
    0x6C, 0x9C, 0xA0, 0xEC, 0x57, 0x37, 0x9D, 0xAE, 0xF6, 0xD3, 0xE0, 0x1C, 0xEC, 0x8F, 0x62, 0xE9,
    0xF0, 0xF1, 0x65, 0x98, 0xF4, 0x44, 0x3A, 0xD5, 0x2D, 0x8C, 0x48, 0x57, 0x84, 0xD9, 0x46, 0xE2,
    0xC4, 0x2D, 0x12, 0x90, 0xA9, 0x4A, 0x41, 0x87, 0x63, 0xEA, 0x1F, 0x96, 0x35, 0x1D, 0x32, 0x6B,
    0x49, 0xE7, 0x4F, 0x72, 0xF4, 0xCF, 0x97, 0xB4, 0x19, 0xF0, 0xA5, 0x41, 0x79, 0xC5, 0x84, 0xD2,
    0x11, 0xE8, 0x48, 0xA2, 0x7A, 0x81, 0x7B, 0x04, 0xAB, 0xAC, 0xC7, 0x96, 0x9A, 0x03, 0x3A, 0x51,
    0xCD, 0x0A, 0x98, 0x93, 0xE8, 0x66, 0x23, 0xE9, 0x39, 0x0F, 0x24, 0x92, 0x6F, 0xC2, 0x50, 0x5D,
    0x9B, 0xE6, 0xD2, 0x28, 0xCE, 0xDB, 0x20, 0xAD, 0x7F, 0xA3, 0x2C, 0xD7, 0xBF, 0x6E, 0x87, 0xAA,
};

/* Codes a run that lies within the first KZ_KEY_HEAD keystream bytes, `k`
 * pointing at the keystream byte of its first byte. */
static void code_head(unsigned char* d, const unsigned char* s, size_t len, const unsigned char* k)
{
#ifdef __SSE2__
    for (; len >= 16; len -= 16, d += 16, s += 16, k += 16) {
        const __m128i w = _mm_loadu_si128((const __m128i*)s);
        _mm_storeu_si128((__m128i*)d, _mm_xor_si128(w, _mm_loadu_si128((const __m128i*)k)));
    }
#endif
    for (; len >= 8; len -= 8, d += 8, s += 8, k += 8) {
        uint64_t w, kw;
        memcpy(&w, s, 8);
        memcpy(&kw, k, 8);
        w ^= kw;
        memcpy(d, &w, 8);
    }
    if (len & 4) {
        uint32_t w, kw;
        memcpy(&w, s, 4);
        memcpy(&kw, k, 4);
        w ^= kw;
        memcpy(d, &w, 4);
        d += 4, s += 4, k += 4;
    }
    if (len & 2) {
        uint16_t w, kw;
        memcpy(&w, s, 2);
        memcpy(&kw, k, 2);
        w ^= kw;
        memcpy(d, &w, 2);
        d += 2, s += 2, k += 2;
    }
    if (len & 1) *d = (unsigned char)(*s ^ *k);
}

/* Runs within the table take the short way. */
static int code_in_head(void* dst, const void* src, int n, uint64_t position)
{
    if (n <= 0 || position >= KZ_KEY_HEAD || (size_t)n > KZ_KEY_HEAD - position) return 0;
    if (dst && src) code_head(dst, src, (size_t)n, kz_key_head + position);
    return 1;
}

/* Codes `n` bytes that start `position` bytes into the run. */
static void code_run_at(void* dst, const void* src, int n, uint64_t position)
{
    if (n <= 0 || !dst || !src) return;
    unsigned char* d = dst;
    const unsigned char* s = src;
    size_t len = (size_t)n;

    uint64_t index = position / 8;
    unsigned skip = (unsigned)(position % 8);
    if (skip) {
        /* The rest of a keystream word the run started before. */
        uint64_t k = kz_key_word(index++);
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
        if (len >= 8) {
            /* One word: its last `skip` bytes are XORed with zero, copied
             * as they are and coded by the loop below. */
            const size_t m = 8 - skip;
            uint64_t w;
            memcpy(&w, s, 8);
            w ^= k >> (8 * skip);
            memcpy(d, &w, 8);
            d += m, s += m, len -= m;
            skip = 8;
        }
#endif
        for (; skip < 8 && len; ++skip, --len)
            *d++ = (unsigned char)(*s++ ^ (unsigned char)(k >> (8 * skip)));
    }
#ifdef KZAPIN_X86_KERNELS
    if (len >= 64 && kz_cpu_avx512) {
        kz_code_run_avx512(d, s, len, index);
        return;
    }
    if (len >= 64 && kz_cpu_avx2) {
        const size_t words = kz_code_words_avx2(d, s, len / 8, index);
        d += 8 * words, s += 8 * words, len -= 8 * words, index += words;
    }
#endif
    for (; len >= 8; len -= 8, d += 8, s += 8, ++index) {
        uint64_t w;
        memcpy(&w, s, 8);
        w ^= key_word_in_memory(index);
        memcpy(d, &w, 8);
    }
    if (len) {
        uint64_t k = kz_key_word(index);
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
        if ((size_t)n >= 8) {
            /* The last word of the run: the bytes before the tail are
             * taken from the destination, already coded. */
            const unsigned shift = 8 * (unsigned)(8 - len);
            const uint64_t tail = ~(uint64_t)0 << shift;
            uint64_t sw, dw;
            memcpy(&sw, s + len - 8, 8);
            memcpy(&dw, d + len - 8, 8);
            dw = (dw & ~tail) | ((sw ^ (k << shift)) & tail);
            memcpy(d + len - 8, &dw, 8);
            return;
        }
#endif
        for (size_t i = 0; i < len; ++i)
            d[i] = (unsigned char)(s[i] ^ (unsigned char)(k >> (8 * i)));
    }
}

void kz_coding_encrypt_fast(void* dst, const void* src, int n)
{
    if (!code_in_head(dst, src, n, 0)) code_run_at(dst, src, n, 0);
}

void kz_coding_decrypt_fast(void* dst, const void* src, int n)
{
    if (!code_in_head(dst, src, n, 0)) code_run_at(dst, src, n, 0);
}

void kz_coding_code_at(void* dst, const void* src, int n, int64_t position)
{
    if (position < 0) return;
    if (!code_in_head(dst, src, n, (uint64_t)position))
        code_run_at(dst, src, n, (uint64_t)position);
}
