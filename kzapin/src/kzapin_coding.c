/*
 * Body coding and CRC-32.
 *
 * The coding XORs each byte with a keystream byte chosen by the byte's
 * position in the run: position p takes byte (p % 8) of the 64-bit word
 * K(p / 8), little-endian, where K(i) is the splitmix64 finaliser applied to
 * i * 0x9E3779B97F4A7C15 + KZ_CODING_SEED. The keystream can be computed at
 * any position, so runs are processed eight bytes at a time, and applying
 * the coding twice gives the input back: decoding is the same operation.
 */
#include "kzapin_internal.h"

#include <string.h>

#define KZ_CODING_SEED 0x4B5A4150494E3031ull /* "KZAPIN01" */

static inline uint64_t key_word(uint64_t index)
{
    uint64_t z = index * 0x9E3779B97F4A7C15ull + KZ_CODING_SEED;
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
}

/* The keystream word as it must lie in memory: little-endian. */
static inline uint64_t key_word_in_memory(uint64_t index)
{
    uint64_t k = key_word(index);
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    k = __builtin_bswap64(k);
#endif
    return k;
}

/* x86 builds pick vector code at run time (AVX2 for the coding, PCLMUL for
 * the CRC) and keep the portable loops for other processors. */
#if (defined(__x86_64__) || defined(__i386__)) && defined(__GNUC__)
#define KZ_X86_SIMD 1
#include <immintrin.h>
#elif defined(__SSE2__)
#include <emmintrin.h>
#endif

#ifdef KZ_X86_SIMD
/* Low 64 bits of each lane times a constant, from 32-bit products: AVX2
 * has no 64-bit multiply. */
__attribute__((target("avx2"))) static inline __m256i mul64(__m256i x, __m256i lo, __m256i swapped)
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
__attribute__((target("avx2"))) static size_t
code_words_avx2(unsigned char* d, const unsigned char* s, size_t words, uint64_t index)
{
    const uint64_t g = 0x9E3779B97F4A7C15ull;
    const uint64_t c1 = 0xBF58476D1CE4E5B9ull, c2 = 0x94D049BB133111EBull;
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

/* What the processor offers, looked up once when the library is loaded. */
static int kz_avx2, kz_pclmul;

/* Called once when the library is loaded (kz_pick_code, below). */
static void kz_detect_simd(void)
{
    __builtin_cpu_init();
    kz_avx2 = __builtin_cpu_supports("avx2");
    kz_pclmul = __builtin_cpu_supports("pclmul") && __builtin_cpu_supports("avx");
}

static int have_avx2(void) { return kz_avx2; }
#endif

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
        uint64_t k = key_word(index++);
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
#ifdef KZ_X86_SIMD
    if (len >= 64 && have_avx2()) {
        const size_t words = code_words_avx2(d, s, len / 8, index);
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
        uint64_t k = key_word(index);
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

/* CRC-32 as zlib computes it (reflected polynomial 0xEDB88320, initial and
 * final XOR 0xFFFFFFFF), eight bytes per step. kz_crc_table[0] is the plain
 * byte table; kz_crc_table[k][i] = (kz_crc_table[k-1][i] >> 8) ^
 * kz_crc_table[0][kz_crc_table[k-1][i] & 0xFF]. */
static const uint32_t kz_crc_table[8][256] = {
    {
        0x00000000u, 0x77073096u, 0xEE0E612Cu, 0x990951BAu, 0x076DC419u, 0x706AF48Fu, 0xE963A535u,
        0x9E6495A3u, 0x0EDB8832u, 0x79DCB8A4u, 0xE0D5E91Eu, 0x97D2D988u, 0x09B64C2Bu, 0x7EB17CBDu,
        0xE7B82D07u, 0x90BF1D91u, 0x1DB71064u, 0x6AB020F2u, 0xF3B97148u, 0x84BE41DEu, 0x1ADAD47Du,
        0x6DDDE4EBu, 0xF4D4B551u, 0x83D385C7u, 0x136C9856u, 0x646BA8C0u, 0xFD62F97Au, 0x8A65C9ECu,
        0x14015C4Fu, 0x63066CD9u, 0xFA0F3D63u, 0x8D080DF5u, 0x3B6E20C8u, 0x4C69105Eu, 0xD56041E4u,
        0xA2677172u, 0x3C03E4D1u, 0x4B04D447u, 0xD20D85FDu, 0xA50AB56Bu, 0x35B5A8FAu, 0x42B2986Cu,
        0xDBBBC9D6u, 0xACBCF940u, 0x32D86CE3u, 0x45DF5C75u, 0xDCD60DCFu, 0xABD13D59u, 0x26D930ACu,
        0x51DE003Au, 0xC8D75180u, 0xBFD06116u, 0x21B4F4B5u, 0x56B3C423u, 0xCFBA9599u, 0xB8BDA50Fu,
        0x2802B89Eu, 0x5F058808u, 0xC60CD9B2u, 0xB10BE924u, 0x2F6F7C87u, 0x58684C11u, 0xC1611DABu,
        0xB6662D3Du, 0x76DC4190u, 0x01DB7106u, 0x98D220BCu, 0xEFD5102Au, 0x71B18589u, 0x06B6B51Fu,
        0x9FBFE4A5u, 0xE8B8D433u, 0x7807C9A2u, 0x0F00F934u, 0x9609A88Eu, 0xE10E9818u, 0x7F6A0DBBu,
        0x086D3D2Du, 0x91646C97u, 0xE6635C01u, 0x6B6B51F4u, 0x1C6C6162u, 0x856530D8u, 0xF262004Eu,
        0x6C0695EDu, 0x1B01A57Bu, 0x8208F4C1u, 0xF50FC457u, 0x65B0D9C6u, 0x12B7E950u, 0x8BBEB8EAu,
        0xFCB9887Cu, 0x62DD1DDFu, 0x15DA2D49u, 0x8CD37CF3u, 0xFBD44C65u, 0x4DB26158u, 0x3AB551CEu,
        0xA3BC0074u, 0xD4BB30E2u, 0x4ADFA541u, 0x3DD895D7u, 0xA4D1C46Du, 0xD3D6F4FBu, 0x4369E96Au,
        0x346ED9FCu, 0xAD678846u, 0xDA60B8D0u, 0x44042D73u, 0x33031DE5u, 0xAA0A4C5Fu, 0xDD0D7CC9u,
        0x5005713Cu, 0x270241AAu, 0xBE0B1010u, 0xC90C2086u, 0x5768B525u, 0x206F85B3u, 0xB966D409u,
        0xCE61E49Fu, 0x5EDEF90Eu, 0x29D9C998u, 0xB0D09822u, 0xC7D7A8B4u, 0x59B33D17u, 0x2EB40D81u,
        0xB7BD5C3Bu, 0xC0BA6CADu, 0xEDB88320u, 0x9ABFB3B6u, 0x03B6E20Cu, 0x74B1D29Au, 0xEAD54739u,
        0x9DD277AFu, 0x04DB2615u, 0x73DC1683u, 0xE3630B12u, 0x94643B84u, 0x0D6D6A3Eu, 0x7A6A5AA8u,
        0xE40ECF0Bu, 0x9309FF9Du, 0x0A00AE27u, 0x7D079EB1u, 0xF00F9344u, 0x8708A3D2u, 0x1E01F268u,
        0x6906C2FEu, 0xF762575Du, 0x806567CBu, 0x196C3671u, 0x6E6B06E7u, 0xFED41B76u, 0x89D32BE0u,
        0x10DA7A5Au, 0x67DD4ACCu, 0xF9B9DF6Fu, 0x8EBEEFF9u, 0x17B7BE43u, 0x60B08ED5u, 0xD6D6A3E8u,
        0xA1D1937Eu, 0x38D8C2C4u, 0x4FDFF252u, 0xD1BB67F1u, 0xA6BC5767u, 0x3FB506DDu, 0x48B2364Bu,
        0xD80D2BDAu, 0xAF0A1B4Cu, 0x36034AF6u, 0x41047A60u, 0xDF60EFC3u, 0xA867DF55u, 0x316E8EEFu,
        0x4669BE79u, 0xCB61B38Cu, 0xBC66831Au, 0x256FD2A0u, 0x5268E236u, 0xCC0C7795u, 0xBB0B4703u,
        0x220216B9u, 0x5505262Fu, 0xC5BA3BBEu, 0xB2BD0B28u, 0x2BB45A92u, 0x5CB36A04u, 0xC2D7FFA7u,
        0xB5D0CF31u, 0x2CD99E8Bu, 0x5BDEAE1Du, 0x9B64C2B0u, 0xEC63F226u, 0x756AA39Cu, 0x026D930Au,
        0x9C0906A9u, 0xEB0E363Fu, 0x72076785u, 0x05005713u, 0x95BF4A82u, 0xE2B87A14u, 0x7BB12BAEu,
        0x0CB61B38u, 0x92D28E9Bu, 0xE5D5BE0Du, 0x7CDCEFB7u, 0x0BDBDF21u, 0x86D3D2D4u, 0xF1D4E242u,
        0x68DDB3F8u, 0x1FDA836Eu, 0x81BE16CDu, 0xF6B9265Bu, 0x6FB077E1u, 0x18B74777u, 0x88085AE6u,
        0xFF0F6A70u, 0x66063BCAu, 0x11010B5Cu, 0x8F659EFFu, 0xF862AE69u, 0x616BFFD3u, 0x166CCF45u,
        0xA00AE278u, 0xD70DD2EEu, 0x4E048354u, 0x3903B3C2u, 0xA7672661u, 0xD06016F7u, 0x4969474Du,
        0x3E6E77DBu, 0xAED16A4Au, 0xD9D65ADCu, 0x40DF0B66u, 0x37D83BF0u, 0xA9BCAE53u, 0xDEBB9EC5u,
        0x47B2CF7Fu, 0x30B5FFE9u, 0xBDBDF21Cu, 0xCABAC28Au, 0x53B39330u, 0x24B4A3A6u, 0xBAD03605u,
        0xCDD70693u, 0x54DE5729u, 0x23D967BFu, 0xB3667A2Eu, 0xC4614AB8u, 0x5D681B02u, 0x2A6F2B94u,
        0xB40BBE37u, 0xC30C8EA1u, 0x5A05DF1Bu, 0x2D02EF8Du,
    },
    {
        0x00000000u, 0x191B3141u, 0x32366282u, 0x2B2D53C3u, 0x646CC504u, 0x7D77F445u, 0x565AA786u,
        0x4F4196C7u, 0xC8D98A08u, 0xD1C2BB49u, 0xFAEFE88Au, 0xE3F4D9CBu, 0xACB54F0Cu, 0xB5AE7E4Du,
        0x9E832D8Eu, 0x87981CCFu, 0x4AC21251u, 0x53D92310u, 0x78F470D3u, 0x61EF4192u, 0x2EAED755u,
        0x37B5E614u, 0x1C98B5D7u, 0x05838496u, 0x821B9859u, 0x9B00A918u, 0xB02DFADBu, 0xA936CB9Au,
        0xE6775D5Du, 0xFF6C6C1Cu, 0xD4413FDFu, 0xCD5A0E9Eu, 0x958424A2u, 0x8C9F15E3u, 0xA7B24620u,
        0xBEA97761u, 0xF1E8E1A6u, 0xE8F3D0E7u, 0xC3DE8324u, 0xDAC5B265u, 0x5D5DAEAAu, 0x44469FEBu,
        0x6F6BCC28u, 0x7670FD69u, 0x39316BAEu, 0x202A5AEFu, 0x0B07092Cu, 0x121C386Du, 0xDF4636F3u,
        0xC65D07B2u, 0xED705471u, 0xF46B6530u, 0xBB2AF3F7u, 0xA231C2B6u, 0x891C9175u, 0x9007A034u,
        0x179FBCFBu, 0x0E848DBAu, 0x25A9DE79u, 0x3CB2EF38u, 0x73F379FFu, 0x6AE848BEu, 0x41C51B7Du,
        0x58DE2A3Cu, 0xF0794F05u, 0xE9627E44u, 0xC24F2D87u, 0xDB541CC6u, 0x94158A01u, 0x8D0EBB40u,
        0xA623E883u, 0xBF38D9C2u, 0x38A0C50Du, 0x21BBF44Cu, 0x0A96A78Fu, 0x138D96CEu, 0x5CCC0009u,
        0x45D73148u, 0x6EFA628Bu, 0x77E153CAu, 0xBABB5D54u, 0xA3A06C15u, 0x888D3FD6u, 0x91960E97u,
        0xDED79850u, 0xC7CCA911u, 0xECE1FAD2u, 0xF5FACB93u, 0x7262D75Cu, 0x6B79E61Du, 0x4054B5DEu,
        0x594F849Fu, 0x160E1258u, 0x0F152319u, 0x243870DAu, 0x3D23419Bu, 0x65FD6BA7u, 0x7CE65AE6u,
        0x57CB0925u, 0x4ED03864u, 0x0191AEA3u, 0x188A9FE2u, 0x33A7CC21u, 0x2ABCFD60u, 0xAD24E1AFu,
        0xB43FD0EEu, 0x9F12832Du, 0x8609B26Cu, 0xC94824ABu, 0xD05315EAu, 0xFB7E4629u, 0xE2657768u,
        0x2F3F79F6u, 0x362448B7u, 0x1D091B74u, 0x04122A35u, 0x4B53BCF2u, 0x52488DB3u, 0x7965DE70u,
        0x607EEF31u, 0xE7E6F3FEu, 0xFEFDC2BFu, 0xD5D0917Cu, 0xCCCBA03Du, 0x838A36FAu, 0x9A9107BBu,
        0xB1BC5478u, 0xA8A76539u, 0x3B83984Bu, 0x2298A90Au, 0x09B5FAC9u, 0x10AECB88u, 0x5FEF5D4Fu,
        0x46F46C0Eu, 0x6DD93FCDu, 0x74C20E8Cu, 0xF35A1243u, 0xEA412302u, 0xC16C70C1u, 0xD8774180u,
        0x9736D747u, 0x8E2DE606u, 0xA500B5C5u, 0xBC1B8484u, 0x71418A1Au, 0x685ABB5Bu, 0x4377E898u,
        0x5A6CD9D9u, 0x152D4F1Eu, 0x0C367E5Fu, 0x271B2D9Cu, 0x3E001CDDu, 0xB9980012u, 0xA0833153u,
        0x8BAE6290u, 0x92B553D1u, 0xDDF4C516u, 0xC4EFF457u, 0xEFC2A794u, 0xF6D996D5u, 0xAE07BCE9u,
        0xB71C8DA8u, 0x9C31DE6Bu, 0x852AEF2Au, 0xCA6B79EDu, 0xD37048ACu, 0xF85D1B6Fu, 0xE1462A2Eu,
        0x66DE36E1u, 0x7FC507A0u, 0x54E85463u, 0x4DF36522u, 0x02B2F3E5u, 0x1BA9C2A4u, 0x30849167u,
        0x299FA026u, 0xE4C5AEB8u, 0xFDDE9FF9u, 0xD6F3CC3Au, 0xCFE8FD7Bu, 0x80A96BBCu, 0x99B25AFDu,
        0xB29F093Eu, 0xAB84387Fu, 0x2C1C24B0u, 0x350715F1u, 0x1E2A4632u, 0x07317773u, 0x4870E1B4u,
        0x516BD0F5u, 0x7A468336u, 0x635DB277u, 0xCBFAD74Eu, 0xD2E1E60Fu, 0xF9CCB5CCu, 0xE0D7848Du,
        0xAF96124Au, 0xB68D230Bu, 0x9DA070C8u, 0x84BB4189u, 0x03235D46u, 0x1A386C07u, 0x31153FC4u,
        0x280E0E85u, 0x674F9842u, 0x7E54A903u, 0x5579FAC0u, 0x4C62CB81u, 0x8138C51Fu, 0x9823F45Eu,
        0xB30EA79Du, 0xAA1596DCu, 0xE554001Bu, 0xFC4F315Au, 0xD7626299u, 0xCE7953D8u, 0x49E14F17u,
        0x50FA7E56u, 0x7BD72D95u, 0x62CC1CD4u, 0x2D8D8A13u, 0x3496BB52u, 0x1FBBE891u, 0x06A0D9D0u,
        0x5E7EF3ECu, 0x4765C2ADu, 0x6C48916Eu, 0x7553A02Fu, 0x3A1236E8u, 0x230907A9u, 0x0824546Au,
        0x113F652Bu, 0x96A779E4u, 0x8FBC48A5u, 0xA4911B66u, 0xBD8A2A27u, 0xF2CBBCE0u, 0xEBD08DA1u,
        0xC0FDDE62u, 0xD9E6EF23u, 0x14BCE1BDu, 0x0DA7D0FCu, 0x268A833Fu, 0x3F91B27Eu, 0x70D024B9u,
        0x69CB15F8u, 0x42E6463Bu, 0x5BFD777Au, 0xDC656BB5u, 0xC57E5AF4u, 0xEE530937u, 0xF7483876u,
        0xB809AEB1u, 0xA1129FF0u, 0x8A3FCC33u, 0x9324FD72u,
    },
    {
        0x00000000u, 0x01C26A37u, 0x0384D46Eu, 0x0246BE59u, 0x0709A8DCu, 0x06CBC2EBu, 0x048D7CB2u,
        0x054F1685u, 0x0E1351B8u, 0x0FD13B8Fu, 0x0D9785D6u, 0x0C55EFE1u, 0x091AF964u, 0x08D89353u,
        0x0A9E2D0Au, 0x0B5C473Du, 0x1C26A370u, 0x1DE4C947u, 0x1FA2771Eu, 0x1E601D29u, 0x1B2F0BACu,
        0x1AED619Bu, 0x18ABDFC2u, 0x1969B5F5u, 0x1235F2C8u, 0x13F798FFu, 0x11B126A6u, 0x10734C91u,
        0x153C5A14u, 0x14FE3023u, 0x16B88E7Au, 0x177AE44Du, 0x384D46E0u, 0x398F2CD7u, 0x3BC9928Eu,
        0x3A0BF8B9u, 0x3F44EE3Cu, 0x3E86840Bu, 0x3CC03A52u, 0x3D025065u, 0x365E1758u, 0x379C7D6Fu,
        0x35DAC336u, 0x3418A901u, 0x3157BF84u, 0x3095D5B3u, 0x32D36BEAu, 0x331101DDu, 0x246BE590u,
        0x25A98FA7u, 0x27EF31FEu, 0x262D5BC9u, 0x23624D4Cu, 0x22A0277Bu, 0x20E69922u, 0x2124F315u,
        0x2A78B428u, 0x2BBADE1Fu, 0x29FC6046u, 0x283E0A71u, 0x2D711CF4u, 0x2CB376C3u, 0x2EF5C89Au,
        0x2F37A2ADu, 0x709A8DC0u, 0x7158E7F7u, 0x731E59AEu, 0x72DC3399u, 0x7793251Cu, 0x76514F2Bu,
        0x7417F172u, 0x75D59B45u, 0x7E89DC78u, 0x7F4BB64Fu, 0x7D0D0816u, 0x7CCF6221u, 0x798074A4u,
        0x78421E93u, 0x7A04A0CAu, 0x7BC6CAFDu, 0x6CBC2EB0u, 0x6D7E4487u, 0x6F38FADEu, 0x6EFA90E9u,
        0x6BB5866Cu, 0x6A77EC5Bu, 0x68315202u, 0x69F33835u, 0x62AF7F08u, 0x636D153Fu, 0x612BAB66u,
        0x60E9C151u, 0x65A6D7D4u, 0x6464BDE3u, 0x662203BAu, 0x67E0698Du, 0x48D7CB20u, 0x4915A117u,
        0x4B531F4Eu, 0x4A917579u, 0x4FDE63FCu, 0x4E1C09CBu, 0x4C5AB792u, 0x4D98DDA5u, 0x46C49A98u,
        0x4706F0AFu, 0x45404EF6u, 0x448224C1u, 0x41CD3244u, 0x400F5873u, 0x4249E62Au, 0x438B8C1Du,
        0x54F16850u, 0x55330267u, 0x5775BC3Eu, 0x56B7D609u, 0x53F8C08Cu, 0x523AAABBu, 0x507C14E2u,
        0x51BE7ED5u, 0x5AE239E8u, 0x5B2053DFu, 0x5966ED86u, 0x58A487B1u, 0x5DEB9134u, 0x5C29FB03u,
        0x5E6F455Au, 0x5FAD2F6Du, 0xE1351B80u, 0xE0F771B7u, 0xE2B1CFEEu, 0xE373A5D9u, 0xE63CB35Cu,
        0xE7FED96Bu, 0xE5B86732u, 0xE47A0D05u, 0xEF264A38u, 0xEEE4200Fu, 0xECA29E56u, 0xED60F461u,
        0xE82FE2E4u, 0xE9ED88D3u, 0xEBAB368Au, 0xEA695CBDu, 0xFD13B8F0u, 0xFCD1D2C7u, 0xFE976C9Eu,
        0xFF5506A9u, 0xFA1A102Cu, 0xFBD87A1Bu, 0xF99EC442u, 0xF85CAE75u, 0xF300E948u, 0xF2C2837Fu,
        0xF0843D26u, 0xF1465711u, 0xF4094194u, 0xF5CB2BA3u, 0xF78D95FAu, 0xF64FFFCDu, 0xD9785D60u,
        0xD8BA3757u, 0xDAFC890Eu, 0xDB3EE339u, 0xDE71F5BCu, 0xDFB39F8Bu, 0xDDF521D2u, 0xDC374BE5u,
        0xD76B0CD8u, 0xD6A966EFu, 0xD4EFD8B6u, 0xD52DB281u, 0xD062A404u, 0xD1A0CE33u, 0xD3E6706Au,
        0xD2241A5Du, 0xC55EFE10u, 0xC49C9427u, 0xC6DA2A7Eu, 0xC7184049u, 0xC25756CCu, 0xC3953CFBu,
        0xC1D382A2u, 0xC011E895u, 0xCB4DAFA8u, 0xCA8FC59Fu, 0xC8C97BC6u, 0xC90B11F1u, 0xCC440774u,
        0xCD866D43u, 0xCFC0D31Au, 0xCE02B92Du, 0x91AF9640u, 0x906DFC77u, 0x922B422Eu, 0x93E92819u,
        0x96A63E9Cu, 0x976454ABu, 0x9522EAF2u, 0x94E080C5u, 0x9FBCC7F8u, 0x9E7EADCFu, 0x9C381396u,
        0x9DFA79A1u, 0x98B56F24u, 0x99770513u, 0x9B31BB4Au, 0x9AF3D17Du, 0x8D893530u, 0x8C4B5F07u,
        0x8E0DE15Eu, 0x8FCF8B69u, 0x8A809DECu, 0x8B42F7DBu, 0x89044982u, 0x88C623B5u, 0x839A6488u,
        0x82580EBFu, 0x801EB0E6u, 0x81DCDAD1u, 0x8493CC54u, 0x8551A663u, 0x8717183Au, 0x86D5720Du,
        0xA9E2D0A0u, 0xA820BA97u, 0xAA6604CEu, 0xABA46EF9u, 0xAEEB787Cu, 0xAF29124Bu, 0xAD6FAC12u,
        0xACADC625u, 0xA7F18118u, 0xA633EB2Fu, 0xA4755576u, 0xA5B73F41u, 0xA0F829C4u, 0xA13A43F3u,
        0xA37CFDAAu, 0xA2BE979Du, 0xB5C473D0u, 0xB40619E7u, 0xB640A7BEu, 0xB782CD89u, 0xB2CDDB0Cu,
        0xB30FB13Bu, 0xB1490F62u, 0xB08B6555u, 0xBBD72268u, 0xBA15485Fu, 0xB853F606u, 0xB9919C31u,
        0xBCDE8AB4u, 0xBD1CE083u, 0xBF5A5EDAu, 0xBE9834EDu,
    },
    {
        0x00000000u, 0xB8BC6765u, 0xAA09C88Bu, 0x12B5AFEEu, 0x8F629757u, 0x37DEF032u, 0x256B5FDCu,
        0x9DD738B9u, 0xC5B428EFu, 0x7D084F8Au, 0x6FBDE064u, 0xD7018701u, 0x4AD6BFB8u, 0xF26AD8DDu,
        0xE0DF7733u, 0x58631056u, 0x5019579Fu, 0xE8A530FAu, 0xFA109F14u, 0x42ACF871u, 0xDF7BC0C8u,
        0x67C7A7ADu, 0x75720843u, 0xCDCE6F26u, 0x95AD7F70u, 0x2D111815u, 0x3FA4B7FBu, 0x8718D09Eu,
        0x1ACFE827u, 0xA2738F42u, 0xB0C620ACu, 0x087A47C9u, 0xA032AF3Eu, 0x188EC85Bu, 0x0A3B67B5u,
        0xB28700D0u, 0x2F503869u, 0x97EC5F0Cu, 0x8559F0E2u, 0x3DE59787u, 0x658687D1u, 0xDD3AE0B4u,
        0xCF8F4F5Au, 0x7733283Fu, 0xEAE41086u, 0x525877E3u, 0x40EDD80Du, 0xF851BF68u, 0xF02BF8A1u,
        0x48979FC4u, 0x5A22302Au, 0xE29E574Fu, 0x7F496FF6u, 0xC7F50893u, 0xD540A77Du, 0x6DFCC018u,
        0x359FD04Eu, 0x8D23B72Bu, 0x9F9618C5u, 0x272A7FA0u, 0xBAFD4719u, 0x0241207Cu, 0x10F48F92u,
        0xA848E8F7u, 0x9B14583Du, 0x23A83F58u, 0x311D90B6u, 0x89A1F7D3u, 0x1476CF6Au, 0xACCAA80Fu,
        0xBE7F07E1u, 0x06C36084u, 0x5EA070D2u, 0xE61C17B7u, 0xF4A9B859u, 0x4C15DF3Cu, 0xD1C2E785u,
        0x697E80E0u, 0x7BCB2F0Eu, 0xC377486Bu, 0xCB0D0FA2u, 0x73B168C7u, 0x6104C729u, 0xD9B8A04Cu,
        0x446F98F5u, 0xFCD3FF90u, 0xEE66507Eu, 0x56DA371Bu, 0x0EB9274Du, 0xB6054028u, 0xA4B0EFC6u,
        0x1C0C88A3u, 0x81DBB01Au, 0x3967D77Fu, 0x2BD27891u, 0x936E1FF4u, 0x3B26F703u, 0x839A9066u,
        0x912F3F88u, 0x299358EDu, 0xB4446054u, 0x0CF80731u, 0x1E4DA8DFu, 0xA6F1CFBAu, 0xFE92DFECu,
        0x462EB889u, 0x549B1767u, 0xEC277002u, 0x71F048BBu, 0xC94C2FDEu, 0xDBF98030u, 0x6345E755u,
        0x6B3FA09Cu, 0xD383C7F9u, 0xC1366817u, 0x798A0F72u, 0xE45D37CBu, 0x5CE150AEu, 0x4E54FF40u,
        0xF6E89825u, 0xAE8B8873u, 0x1637EF16u, 0x048240F8u, 0xBC3E279Du, 0x21E91F24u, 0x99557841u,
        0x8BE0D7AFu, 0x335CB0CAu, 0xED59B63Bu, 0x55E5D15Eu, 0x47507EB0u, 0xFFEC19D5u, 0x623B216Cu,
        0xDA874609u, 0xC832E9E7u, 0x708E8E82u, 0x28ED9ED4u, 0x9051F9B1u, 0x82E4565Fu, 0x3A58313Au,
        0xA78F0983u, 0x1F336EE6u, 0x0D86C108u, 0xB53AA66Du, 0xBD40E1A4u, 0x05FC86C1u, 0x1749292Fu,
        0xAFF54E4Au, 0x322276F3u, 0x8A9E1196u, 0x982BBE78u, 0x2097D91Du, 0x78F4C94Bu, 0xC048AE2Eu,
        0xD2FD01C0u, 0x6A4166A5u, 0xF7965E1Cu, 0x4F2A3979u, 0x5D9F9697u, 0xE523F1F2u, 0x4D6B1905u,
        0xF5D77E60u, 0xE762D18Eu, 0x5FDEB6EBu, 0xC2098E52u, 0x7AB5E937u, 0x680046D9u, 0xD0BC21BCu,
        0x88DF31EAu, 0x3063568Fu, 0x22D6F961u, 0x9A6A9E04u, 0x07BDA6BDu, 0xBF01C1D8u, 0xADB46E36u,
        0x15080953u, 0x1D724E9Au, 0xA5CE29FFu, 0xB77B8611u, 0x0FC7E174u, 0x9210D9CDu, 0x2AACBEA8u,
        0x38191146u, 0x80A57623u, 0xD8C66675u, 0x607A0110u, 0x72CFAEFEu, 0xCA73C99Bu, 0x57A4F122u,
        0xEF189647u, 0xFDAD39A9u, 0x45115ECCu, 0x764DEE06u, 0xCEF18963u, 0xDC44268Du, 0x64F841E8u,
        0xF92F7951u, 0x41931E34u, 0x5326B1DAu, 0xEB9AD6BFu, 0xB3F9C6E9u, 0x0B45A18Cu, 0x19F00E62u,
        0xA14C6907u, 0x3C9B51BEu, 0x842736DBu, 0x96929935u, 0x2E2EFE50u, 0x2654B999u, 0x9EE8DEFCu,
        0x8C5D7112u, 0x34E11677u, 0xA9362ECEu, 0x118A49ABu, 0x033FE645u, 0xBB838120u, 0xE3E09176u,
        0x5B5CF613u, 0x49E959FDu, 0xF1553E98u, 0x6C820621u, 0xD43E6144u, 0xC68BCEAAu, 0x7E37A9CFu,
        0xD67F4138u, 0x6EC3265Du, 0x7C7689B3u, 0xC4CAEED6u, 0x591DD66Fu, 0xE1A1B10Au, 0xF3141EE4u,
        0x4BA87981u, 0x13CB69D7u, 0xAB770EB2u, 0xB9C2A15Cu, 0x017EC639u, 0x9CA9FE80u, 0x241599E5u,
        0x36A0360Bu, 0x8E1C516Eu, 0x866616A7u, 0x3EDA71C2u, 0x2C6FDE2Cu, 0x94D3B949u, 0x090481F0u,
        0xB1B8E695u, 0xA30D497Bu, 0x1BB12E1Eu, 0x43D23E48u, 0xFB6E592Du, 0xE9DBF6C3u, 0x516791A6u,
        0xCCB0A91Fu, 0x740CCE7Au, 0x66B96194u, 0xDE0506F1u,
    },
    {
        0x00000000u, 0x3D6029B0u, 0x7AC05360u, 0x47A07AD0u, 0xF580A6C0u, 0xC8E08F70u, 0x8F40F5A0u,
        0xB220DC10u, 0x30704BC1u, 0x0D106271u, 0x4AB018A1u, 0x77D03111u, 0xC5F0ED01u, 0xF890C4B1u,
        0xBF30BE61u, 0x825097D1u, 0x60E09782u, 0x5D80BE32u, 0x1A20C4E2u, 0x2740ED52u, 0x95603142u,
        0xA80018F2u, 0xEFA06222u, 0xD2C04B92u, 0x5090DC43u, 0x6DF0F5F3u, 0x2A508F23u, 0x1730A693u,
        0xA5107A83u, 0x98705333u, 0xDFD029E3u, 0xE2B00053u, 0xC1C12F04u, 0xFCA106B4u, 0xBB017C64u,
        0x866155D4u, 0x344189C4u, 0x0921A074u, 0x4E81DAA4u, 0x73E1F314u, 0xF1B164C5u, 0xCCD14D75u,
        0x8B7137A5u, 0xB6111E15u, 0x0431C205u, 0x3951EBB5u, 0x7EF19165u, 0x4391B8D5u, 0xA121B886u,
        0x9C419136u, 0xDBE1EBE6u, 0xE681C256u, 0x54A11E46u, 0x69C137F6u, 0x2E614D26u, 0x13016496u,
        0x9151F347u, 0xAC31DAF7u, 0xEB91A027u, 0xD6F18997u, 0x64D15587u, 0x59B17C37u, 0x1E1106E7u,
        0x23712F57u, 0x58F35849u, 0x659371F9u, 0x22330B29u, 0x1F532299u, 0xAD73FE89u, 0x9013D739u,
        0xD7B3ADE9u, 0xEAD38459u, 0x68831388u, 0x55E33A38u, 0x124340E8u, 0x2F236958u, 0x9D03B548u,
        0xA0639CF8u, 0xE7C3E628u, 0xDAA3CF98u, 0x3813CFCBu, 0x0573E67Bu, 0x42D39CABu, 0x7FB3B51Bu,
        0xCD93690Bu, 0xF0F340BBu, 0xB7533A6Bu, 0x8A3313DBu, 0x0863840Au, 0x3503ADBAu, 0x72A3D76Au,
        0x4FC3FEDAu, 0xFDE322CAu, 0xC0830B7Au, 0x872371AAu, 0xBA43581Au, 0x9932774Du, 0xA4525EFDu,
        0xE3F2242Du, 0xDE920D9Du, 0x6CB2D18Du, 0x51D2F83Du, 0x167282EDu, 0x2B12AB5Du, 0xA9423C8Cu,
        0x9422153Cu, 0xD3826FECu, 0xEEE2465Cu, 0x5CC29A4Cu, 0x61A2B3FCu, 0x2602C92Cu, 0x1B62E09Cu,
        0xF9D2E0CFu, 0xC4B2C97Fu, 0x8312B3AFu, 0xBE729A1Fu, 0x0C52460Fu, 0x31326FBFu, 0x7692156Fu,
        0x4BF23CDFu, 0xC9A2AB0Eu, 0xF4C282BEu, 0xB362F86Eu, 0x8E02D1DEu, 0x3C220DCEu, 0x0142247Eu,
        0x46E25EAEu, 0x7B82771Eu, 0xB1E6B092u, 0x8C869922u, 0xCB26E3F2u, 0xF646CA42u, 0x44661652u,
        0x79063FE2u, 0x3EA64532u, 0x03C66C82u, 0x8196FB53u, 0xBCF6D2E3u, 0xFB56A833u, 0xC6368183u,
        0x74165D93u, 0x49767423u, 0x0ED60EF3u, 0x33B62743u, 0xD1062710u, 0xEC660EA0u, 0xABC67470u,
        0x96A65DC0u, 0x248681D0u, 0x19E6A860u, 0x5E46D2B0u, 0x6326FB00u, 0xE1766CD1u, 0xDC164561u,
        0x9BB63FB1u, 0xA6D61601u, 0x14F6CA11u, 0x2996E3A1u, 0x6E369971u, 0x5356B0C1u, 0x70279F96u,
        0x4D47B626u, 0x0AE7CCF6u, 0x3787E546u, 0x85A73956u, 0xB8C710E6u, 0xFF676A36u, 0xC2074386u,
        0x4057D457u, 0x7D37FDE7u, 0x3A978737u, 0x07F7AE87u, 0xB5D77297u, 0x88B75B27u, 0xCF1721F7u,
        0xF2770847u, 0x10C70814u, 0x2DA721A4u, 0x6A075B74u, 0x576772C4u, 0xE547AED4u, 0xD8278764u,
        0x9F87FDB4u, 0xA2E7D404u, 0x20B743D5u, 0x1DD76A65u, 0x5A7710B5u, 0x67173905u, 0xD537E515u,
        0xE857CCA5u, 0xAFF7B675u, 0x92979FC5u, 0xE915E8DBu, 0xD475C16Bu, 0x93D5BBBBu, 0xAEB5920Bu,
        0x1C954E1Bu, 0x21F567ABu, 0x66551D7Bu, 0x5B3534CBu, 0xD965A31Au, 0xE4058AAAu, 0xA3A5F07Au,
        0x9EC5D9CAu, 0x2CE505DAu, 0x11852C6Au, 0x562556BAu, 0x6B457F0Au, 0x89F57F59u, 0xB49556E9u,
        0xF3352C39u, 0xCE550589u, 0x7C75D999u, 0x4115F029u, 0x06B58AF9u, 0x3BD5A349u, 0xB9853498u,
        0x84E51D28u, 0xC34567F8u, 0xFE254E48u, 0x4C059258u, 0x7165BBE8u, 0x36C5C138u, 0x0BA5E888u,
        0x28D4C7DFu, 0x15B4EE6Fu, 0x521494BFu, 0x6F74BD0Fu, 0xDD54611Fu, 0xE03448AFu, 0xA794327Fu,
        0x9AF41BCFu, 0x18A48C1Eu, 0x25C4A5AEu, 0x6264DF7Eu, 0x5F04F6CEu, 0xED242ADEu, 0xD044036Eu,
        0x97E479BEu, 0xAA84500Eu, 0x4834505Du, 0x755479EDu, 0x32F4033Du, 0x0F942A8Du, 0xBDB4F69Du,
        0x80D4DF2Du, 0xC774A5FDu, 0xFA148C4Du, 0x78441B9Cu, 0x4524322Cu, 0x028448FCu, 0x3FE4614Cu,
        0x8DC4BD5Cu, 0xB0A494ECu, 0xF704EE3Cu, 0xCA64C78Cu,
    },
    {
        0x00000000u, 0xCB5CD3A5u, 0x4DC8A10Bu, 0x869472AEu, 0x9B914216u, 0x50CD91B3u, 0xD659E31Du,
        0x1D0530B8u, 0xEC53826Du, 0x270F51C8u, 0xA19B2366u, 0x6AC7F0C3u, 0x77C2C07Bu, 0xBC9E13DEu,
        0x3A0A6170u, 0xF156B2D5u, 0x03D6029Bu, 0xC88AD13Eu, 0x4E1EA390u, 0x85427035u, 0x9847408Du,
        0x531B9328u, 0xD58FE186u, 0x1ED33223u, 0xEF8580F6u, 0x24D95353u, 0xA24D21FDu, 0x6911F258u,
        0x7414C2E0u, 0xBF481145u, 0x39DC63EBu, 0xF280B04Eu, 0x07AC0536u, 0xCCF0D693u, 0x4A64A43Du,
        0x81387798u, 0x9C3D4720u, 0x57619485u, 0xD1F5E62Bu, 0x1AA9358Eu, 0xEBFF875Bu, 0x20A354FEu,
        0xA6372650u, 0x6D6BF5F5u, 0x706EC54Du, 0xBB3216E8u, 0x3DA66446u, 0xF6FAB7E3u, 0x047A07ADu,
        0xCF26D408u, 0x49B2A6A6u, 0x82EE7503u, 0x9FEB45BBu, 0x54B7961Eu, 0xD223E4B0u, 0x197F3715u,
        0xE82985C0u, 0x23755665u, 0xA5E124CBu, 0x6EBDF76Eu, 0x73B8C7D6u, 0xB8E41473u, 0x3E7066DDu,
        0xF52CB578u, 0x0F580A6Cu, 0xC404D9C9u, 0x4290AB67u, 0x89CC78C2u, 0x94C9487Au, 0x5F959BDFu,
        0xD901E971u, 0x125D3AD4u, 0xE30B8801u, 0x28575BA4u, 0xAEC3290Au, 0x659FFAAFu, 0x789ACA17u,
        0xB3C619B2u, 0x35526B1Cu, 0xFE0EB8B9u, 0x0C8E08F7u, 0xC7D2DB52u, 0x4146A9FCu, 0x8A1A7A59u,
        0x971F4AE1u, 0x5C439944u, 0xDAD7EBEAu, 0x118B384Fu, 0xE0DD8A9Au, 0x2B81593Fu, 0xAD152B91u,
        0x6649F834u, 0x7B4CC88Cu, 0xB0101B29u, 0x36846987u, 0xFDD8BA22u, 0x08F40F5Au, 0xC3A8DCFFu,
        0x453CAE51u, 0x8E607DF4u, 0x93654D4Cu, 0x58399EE9u, 0xDEADEC47u, 0x15F13FE2u, 0xE4A78D37u,
        0x2FFB5E92u, 0xA96F2C3Cu, 0x6233FF99u, 0x7F36CF21u, 0xB46A1C84u, 0x32FE6E2Au, 0xF9A2BD8Fu,
        0x0B220DC1u, 0xC07EDE64u, 0x46EAACCAu, 0x8DB67F6Fu, 0x90B34FD7u, 0x5BEF9C72u, 0xDD7BEEDCu,
        0x16273D79u, 0xE7718FACu, 0x2C2D5C09u, 0xAAB92EA7u, 0x61E5FD02u, 0x7CE0CDBAu, 0xB7BC1E1Fu,
        0x31286CB1u, 0xFA74BF14u, 0x1EB014D8u, 0xD5ECC77Du, 0x5378B5D3u, 0x98246676u, 0x852156CEu,
        0x4E7D856Bu, 0xC8E9F7C5u, 0x03B52460u, 0xF2E396B5u, 0x39BF4510u, 0xBF2B37BEu, 0x7477E41Bu,
        0x6972D4A3u, 0xA22E0706u, 0x24BA75A8u, 0xEFE6A60Du, 0x1D661643u, 0xD63AC5E6u, 0x50AEB748u,
        0x9BF264EDu, 0x86F75455u, 0x4DAB87F0u, 0xCB3FF55Eu, 0x006326FBu, 0xF135942Eu, 0x3A69478Bu,
        0xBCFD3525u, 0x77A1E680u, 0x6AA4D638u, 0xA1F8059Du, 0x276C7733u, 0xEC30A496u, 0x191C11EEu,
        0xD240C24Bu, 0x54D4B0E5u, 0x9F886340u, 0x828D53F8u, 0x49D1805Du, 0xCF45F2F3u, 0x04192156u,
        0xF54F9383u, 0x3E134026u, 0xB8873288u, 0x73DBE12Du, 0x6EDED195u, 0xA5820230u, 0x2316709Eu,
        0xE84AA33Bu, 0x1ACA1375u, 0xD196C0D0u, 0x5702B27Eu, 0x9C5E61DBu, 0x815B5163u, 0x4A0782C6u,
        0xCC93F068u, 0x07CF23CDu, 0xF6999118u, 0x3DC542BDu, 0xBB513013u, 0x700DE3B6u, 0x6D08D30Eu,
        0xA65400ABu, 0x20C07205u, 0xEB9CA1A0u, 0x11E81EB4u, 0xDAB4CD11u, 0x5C20BFBFu, 0x977C6C1Au,
        0x8A795CA2u, 0x41258F07u, 0xC7B1FDA9u, 0x0CED2E0Cu, 0xFDBB9CD9u, 0x36E74F7Cu, 0xB0733DD2u,
        0x7B2FEE77u, 0x662ADECFu, 0xAD760D6Au, 0x2BE27FC4u, 0xE0BEAC61u, 0x123E1C2Fu, 0xD962CF8Au,
        0x5FF6BD24u, 0x94AA6E81u, 0x89AF5E39u, 0x42F38D9Cu, 0xC467FF32u, 0x0F3B2C97u, 0xFE6D9E42u,
        0x35314DE7u, 0xB3A53F49u, 0x78F9ECECu, 0x65FCDC54u, 0xAEA00FF1u, 0x28347D5Fu, 0xE368AEFAu,
        0x16441B82u, 0xDD18C827u, 0x5B8CBA89u, 0x90D0692Cu, 0x8DD55994u, 0x46898A31u, 0xC01DF89Fu,
        0x0B412B3Au, 0xFA1799EFu, 0x314B4A4Au, 0xB7DF38E4u, 0x7C83EB41u, 0x6186DBF9u, 0xAADA085Cu,
        0x2C4E7AF2u, 0xE712A957u, 0x15921919u, 0xDECECABCu, 0x585AB812u, 0x93066BB7u, 0x8E035B0Fu,
        0x455F88AAu, 0xC3CBFA04u, 0x089729A1u, 0xF9C19B74u, 0x329D48D1u, 0xB4093A7Fu, 0x7F55E9DAu,
        0x6250D962u, 0xA90C0AC7u, 0x2F987869u, 0xE4C4ABCCu,
    },
    {
        0x00000000u, 0xA6770BB4u, 0x979F1129u, 0x31E81A9Du, 0xF44F2413u, 0x52382FA7u, 0x63D0353Au,
        0xC5A73E8Eu, 0x33EF4E67u, 0x959845D3u, 0xA4705F4Eu, 0x020754FAu, 0xC7A06A74u, 0x61D761C0u,
        0x503F7B5Du, 0xF64870E9u, 0x67DE9CCEu, 0xC1A9977Au, 0xF0418DE7u, 0x56368653u, 0x9391B8DDu,
        0x35E6B369u, 0x040EA9F4u, 0xA279A240u, 0x5431D2A9u, 0xF246D91Du, 0xC3AEC380u, 0x65D9C834u,
        0xA07EF6BAu, 0x0609FD0Eu, 0x37E1E793u, 0x9196EC27u, 0xCFBD399Cu, 0x69CA3228u, 0x582228B5u,
        0xFE552301u, 0x3BF21D8Fu, 0x9D85163Bu, 0xAC6D0CA6u, 0x0A1A0712u, 0xFC5277FBu, 0x5A257C4Fu,
        0x6BCD66D2u, 0xCDBA6D66u, 0x081D53E8u, 0xAE6A585Cu, 0x9F8242C1u, 0x39F54975u, 0xA863A552u,
        0x0E14AEE6u, 0x3FFCB47Bu, 0x998BBFCFu, 0x5C2C8141u, 0xFA5B8AF5u, 0xCBB39068u, 0x6DC49BDCu,
        0x9B8CEB35u, 0x3DFBE081u, 0x0C13FA1Cu, 0xAA64F1A8u, 0x6FC3CF26u, 0xC9B4C492u, 0xF85CDE0Fu,
        0x5E2BD5BBu, 0x440B7579u, 0xE27C7ECDu, 0xD3946450u, 0x75E36FE4u, 0xB044516Au, 0x16335ADEu,
        0x27DB4043u, 0x81AC4BF7u, 0x77E43B1Eu, 0xD19330AAu, 0xE07B2A37u, 0x460C2183u, 0x83AB1F0Du,
        0x25DC14B9u, 0x14340E24u, 0xB2430590u, 0x23D5E9B7u, 0x85A2E203u, 0xB44AF89Eu, 0x123DF32Au,
        0xD79ACDA4u, 0x71EDC610u, 0x4005DC8Du, 0xE672D739u, 0x103AA7D0u, 0xB64DAC64u, 0x87A5B6F9u,
        0x21D2BD4Du, 0xE47583C3u, 0x42028877u, 0x73EA92EAu, 0xD59D995Eu, 0x8BB64CE5u, 0x2DC14751u,
        0x1C295DCCu, 0xBA5E5678u, 0x7FF968F6u, 0xD98E6342u, 0xE86679DFu, 0x4E11726Bu, 0xB8590282u,
        0x1E2E0936u, 0x2FC613ABu, 0x89B1181Fu, 0x4C162691u, 0xEA612D25u, 0xDB8937B8u, 0x7DFE3C0Cu,
        0xEC68D02Bu, 0x4A1FDB9Fu, 0x7BF7C102u, 0xDD80CAB6u, 0x1827F438u, 0xBE50FF8Cu, 0x8FB8E511u,
        0x29CFEEA5u, 0xDF879E4Cu, 0x79F095F8u, 0x48188F65u, 0xEE6F84D1u, 0x2BC8BA5Fu, 0x8DBFB1EBu,
        0xBC57AB76u, 0x1A20A0C2u, 0x8816EAF2u, 0x2E61E146u, 0x1F89FBDBu, 0xB9FEF06Fu, 0x7C59CEE1u,
        0xDA2EC555u, 0xEBC6DFC8u, 0x4DB1D47Cu, 0xBBF9A495u, 0x1D8EAF21u, 0x2C66B5BCu, 0x8A11BE08u,
        0x4FB68086u, 0xE9C18B32u, 0xD82991AFu, 0x7E5E9A1Bu, 0xEFC8763Cu, 0x49BF7D88u, 0x78576715u,
        0xDE206CA1u, 0x1B87522Fu, 0xBDF0599Bu, 0x8C184306u, 0x2A6F48B2u, 0xDC27385Bu, 0x7A5033EFu,
        0x4BB82972u, 0xEDCF22C6u, 0x28681C48u, 0x8E1F17FCu, 0xBFF70D61u, 0x198006D5u, 0x47ABD36Eu,
        0xE1DCD8DAu, 0xD034C247u, 0x7643C9F3u, 0xB3E4F77Du, 0x1593FCC9u, 0x247BE654u, 0x820CEDE0u,
        0x74449D09u, 0xD23396BDu, 0xE3DB8C20u, 0x45AC8794u, 0x800BB91Au, 0x267CB2AEu, 0x1794A833u,
        0xB1E3A387u, 0x20754FA0u, 0x86024414u, 0xB7EA5E89u, 0x119D553Du, 0xD43A6BB3u, 0x724D6007u,
        0x43A57A9Au, 0xE5D2712Eu, 0x139A01C7u, 0xB5ED0A73u, 0x840510EEu, 0x22721B5Au, 0xE7D525D4u,
        0x41A22E60u, 0x704A34FDu, 0xD63D3F49u, 0xCC1D9F8Bu, 0x6A6A943Fu, 0x5B828EA2u, 0xFDF58516u,
        0x3852BB98u, 0x9E25B02Cu, 0xAFCDAAB1u, 0x09BAA105u, 0xFFF2D1ECu, 0x5985DA58u, 0x686DC0C5u,
        0xCE1ACB71u, 0x0BBDF5FFu, 0xADCAFE4Bu, 0x9C22E4D6u, 0x3A55EF62u, 0xABC30345u, 0x0DB408F1u,
        0x3C5C126Cu, 0x9A2B19D8u, 0x5F8C2756u, 0xF9FB2CE2u, 0xC813367Fu, 0x6E643DCBu, 0x982C4D22u,
        0x3E5B4696u, 0x0FB35C0Bu, 0xA9C457BFu, 0x6C636931u, 0xCA146285u, 0xFBFC7818u, 0x5D8B73ACu,
        0x03A0A617u, 0xA5D7ADA3u, 0x943FB73Eu, 0x3248BC8Au, 0xF7EF8204u, 0x519889B0u, 0x6070932Du,
        0xC6079899u, 0x304FE870u, 0x9638E3C4u, 0xA7D0F959u, 0x01A7F2EDu, 0xC400CC63u, 0x6277C7D7u,
        0x539FDD4Au, 0xF5E8D6FEu, 0x647E3AD9u, 0xC209316Du, 0xF3E12BF0u, 0x55962044u, 0x90311ECAu,
        0x3646157Eu, 0x07AE0FE3u, 0xA1D90457u, 0x579174BEu, 0xF1E67F0Au, 0xC00E6597u, 0x66796E23u,
        0xA3DE50ADu, 0x05A95B19u, 0x34414184u, 0x92364A30u,
    },
    {
        0x00000000u, 0xCCAA009Eu, 0x4225077Du, 0x8E8F07E3u, 0x844A0EFAu, 0x48E00E64u, 0xC66F0987u,
        0x0AC50919u, 0xD3E51BB5u, 0x1F4F1B2Bu, 0x91C01CC8u, 0x5D6A1C56u, 0x57AF154Fu, 0x9B0515D1u,
        0x158A1232u, 0xD92012ACu, 0x7CBB312Bu, 0xB01131B5u, 0x3E9E3656u, 0xF23436C8u, 0xF8F13FD1u,
        0x345B3F4Fu, 0xBAD438ACu, 0x767E3832u, 0xAF5E2A9Eu, 0x63F42A00u, 0xED7B2DE3u, 0x21D12D7Du,
        0x2B142464u, 0xE7BE24FAu, 0x69312319u, 0xA59B2387u, 0xF9766256u, 0x35DC62C8u, 0xBB53652Bu,
        0x77F965B5u, 0x7D3C6CACu, 0xB1966C32u, 0x3F196BD1u, 0xF3B36B4Fu, 0x2A9379E3u, 0xE639797Du,
        0x68B67E9Eu, 0xA41C7E00u, 0xAED97719u, 0x62737787u, 0xECFC7064u, 0x205670FAu, 0x85CD537Du,
        0x496753E3u, 0xC7E85400u, 0x0B42549Eu, 0x01875D87u, 0xCD2D5D19u, 0x43A25AFAu, 0x8F085A64u,
        0x562848C8u, 0x9A824856u, 0x140D4FB5u, 0xD8A74F2Bu, 0xD2624632u, 0x1EC846ACu, 0x9047414Fu,
        0x5CED41D1u, 0x299DC2EDu, 0xE537C273u, 0x6BB8C590u, 0xA712C50Eu, 0xADD7CC17u, 0x617DCC89u,
        0xEFF2CB6Au, 0x2358CBF4u, 0xFA78D958u, 0x36D2D9C6u, 0xB85DDE25u, 0x74F7DEBBu, 0x7E32D7A2u,
        0xB298D73Cu, 0x3C17D0DFu, 0xF0BDD041u, 0x5526F3C6u, 0x998CF358u, 0x1703F4BBu, 0xDBA9F425u,
        0xD16CFD3Cu, 0x1DC6FDA2u, 0x9349FA41u, 0x5FE3FADFu, 0x86C3E873u, 0x4A69E8EDu, 0xC4E6EF0Eu,
        0x084CEF90u, 0x0289E689u, 0xCE23E617u, 0x40ACE1F4u, 0x8C06E16Au, 0xD0EBA0BBu, 0x1C41A025u,
        0x92CEA7C6u, 0x5E64A758u, 0x54A1AE41u, 0x980BAEDFu, 0x1684A93Cu, 0xDA2EA9A2u, 0x030EBB0Eu,
        0xCFA4BB90u, 0x412BBC73u, 0x8D81BCEDu, 0x8744B5F4u, 0x4BEEB56Au, 0xC561B289u, 0x09CBB217u,
        0xAC509190u, 0x60FA910Eu, 0xEE7596EDu, 0x22DF9673u, 0x281A9F6Au, 0xE4B09FF4u, 0x6A3F9817u,
        0xA6959889u, 0x7FB58A25u, 0xB31F8ABBu, 0x3D908D58u, 0xF13A8DC6u, 0xFBFF84DFu, 0x37558441u,
        0xB9DA83A2u, 0x7570833Cu, 0x533B85DAu, 0x9F918544u, 0x111E82A7u, 0xDDB48239u, 0xD7718B20u,
        0x1BDB8BBEu, 0x95548C5Du, 0x59FE8CC3u, 0x80DE9E6Fu, 0x4C749EF1u, 0xC2FB9912u, 0x0E51998Cu,
        0x04949095u, 0xC83E900Bu, 0x46B197E8u, 0x8A1B9776u, 0x2F80B4F1u, 0xE32AB46Fu, 0x6DA5B38Cu,
        0xA10FB312u, 0xABCABA0Bu, 0x6760BA95u, 0xE9EFBD76u, 0x2545BDE8u, 0xFC65AF44u, 0x30CFAFDAu,
        0xBE40A839u, 0x72EAA8A7u, 0x782FA1BEu, 0xB485A120u, 0x3A0AA6C3u, 0xF6A0A65Du, 0xAA4DE78Cu,
        0x66E7E712u, 0xE868E0F1u, 0x24C2E06Fu, 0x2E07E976u, 0xE2ADE9E8u, 0x6C22EE0Bu, 0xA088EE95u,
        0x79A8FC39u, 0xB502FCA7u, 0x3B8DFB44u, 0xF727FBDAu, 0xFDE2F2C3u, 0x3148F25Du, 0xBFC7F5BEu,
        0x736DF520u, 0xD6F6D6A7u, 0x1A5CD639u, 0x94D3D1DAu, 0x5879D144u, 0x52BCD85Du, 0x9E16D8C3u,
        0x1099DF20u, 0xDC33DFBEu, 0x0513CD12u, 0xC9B9CD8Cu, 0x4736CA6Fu, 0x8B9CCAF1u, 0x8159C3E8u,
        0x4DF3C376u, 0xC37CC495u, 0x0FD6C40Bu, 0x7AA64737u, 0xB60C47A9u, 0x3883404Au, 0xF42940D4u,
        0xFEEC49CDu, 0x32464953u, 0xBCC94EB0u, 0x70634E2Eu, 0xA9435C82u, 0x65E95C1Cu, 0xEB665BFFu,
        0x27CC5B61u, 0x2D095278u, 0xE1A352E6u, 0x6F2C5505u, 0xA386559Bu, 0x061D761Cu, 0xCAB77682u,
        0x44387161u, 0x889271FFu, 0x825778E6u, 0x4EFD7878u, 0xC0727F9Bu, 0x0CD87F05u, 0xD5F86DA9u,
        0x19526D37u, 0x97DD6AD4u, 0x5B776A4Au, 0x51B26353u, 0x9D1863CDu, 0x1397642Eu, 0xDF3D64B0u,
        0x83D02561u, 0x4F7A25FFu, 0xC1F5221Cu, 0x0D5F2282u, 0x079A2B9Bu, 0xCB302B05u, 0x45BF2CE6u,
        0x89152C78u, 0x50353ED4u, 0x9C9F3E4Au, 0x121039A9u, 0xDEBA3937u, 0xD47F302Eu, 0x18D530B0u,
        0x965A3753u, 0x5AF037CDu, 0xFF6B144Au, 0x33C114D4u, 0xBD4E1337u, 0x71E413A9u, 0x7B211AB0u,
        0xB78B1A2Eu, 0x39041DCDu, 0xF5AE1D53u, 0x2C8E0FFFu, 0xE0240F61u, 0x6EAB0882u, 0xA201081Cu,
        0xA8C40105u, 0x646E019Bu, 0xEAE10678u, 0x264B06E6u,
    },
};

/* The table part of the CRC on the inverted register `c`: eight bytes per
 * step, then four, then single bytes. */
static uint32_t crc_tables(uint32_t c, const unsigned char* p, size_t n)
{
    for (; n >= 8; n -= 8, p += 8) {
        uint32_t a = c ^ kz_get32(p);
        uint32_t b = kz_get32(p + 4);
        c = kz_crc_table[7][a & 0xFF] ^ kz_crc_table[6][(a >> 8) & 0xFF] ^
            kz_crc_table[5][(a >> 16) & 0xFF] ^ kz_crc_table[4][a >> 24] ^
            kz_crc_table[3][b & 0xFF] ^ kz_crc_table[2][(b >> 8) & 0xFF] ^
            kz_crc_table[1][(b >> 16) & 0xFF] ^ kz_crc_table[0][b >> 24];
    }
    if (n >= 4) {
        uint32_t a = c ^ kz_get32(p);
        c = kz_crc_table[3][a & 0xFF] ^ kz_crc_table[2][(a >> 8) & 0xFF] ^
            kz_crc_table[1][(a >> 16) & 0xFF] ^ kz_crc_table[0][a >> 24];
        p += 4, n -= 4;
    }
    for (; n; --n, ++p) c = kz_crc_table[0][(c ^ *p) & 0xFF] ^ (c >> 8);
    return c;
}

#ifdef KZ_X86_SIMD
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
__attribute__((target("avx,pclmul"))) static inline uint32_t crc_reduce(__m128i x1)
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
__attribute__((target("avx,pclmul"))) static inline uint32_t
crc_finish(__m128i x1, const unsigned char* p, size_t n)
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
__attribute__((target("avx,pclmul"))) static uint32_t crc_fold(uint32_t c, const unsigned char* p,
                                                               size_t n)
{
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
    return crc_finish(x1, p, n);
}

/* A run of 16 to 63 bytes: its first block, then the rest. */
__attribute__((target("avx,pclmul"))) static inline uint32_t
crc_blocks(uint32_t c, const unsigned char* p, size_t n)
{
    const __m128i x1 = _mm_xor_si128(_mm_loadu_si128((const __m128i*)p), _mm_cvtsi32_si128((int)c));
    return crc_finish(x1, p + 16, n - 16);
}

/* The register c placed over the first four of n bytes that end a block. */
__attribute__((target("avx,pclmul"))) static inline __m128i register_block(uint32_t c, size_t n)
{
    return _mm_shuffle_epi8(_mm_cvtsi32_si128((int)c),
                            _mm_loadu_si128((const __m128i*)(kz_shift_up + n)));
}

/* A run of 4 to 15 bytes, read only inside the run: it goes at the end of
 * one block behind zero bytes (which leave a zero register as it is), and
 * that block is reduced. */
__attribute__((target("avx,pclmul"))) static uint32_t crc_short(uint32_t c, const unsigned char* p,
                                                                size_t n)
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
__attribute__((target("avx,pclmul"))) static inline uint32_t
crc_window(uint32_t c, const unsigned char* p, size_t n, const unsigned char* lo,
           const unsigned char* hi)
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
__attribute__((target("avx,pclmul"), always_inline)) static inline uint32_t
crc_run_in(uint32_t c, const unsigned char* p, size_t n, const unsigned char* lo,
           const unsigned char* hi)
{
    if (n >= 64) return crc_fold(c, p, n);
    if (n >= 16) return crc_blocks(c, p, n);
    return crc_window(c, p, n, lo, hi);
}

/* Any run of 4 bytes or more inside [lo, hi), for callers built without
 * the vector instructions: a short one in a smaller window is copied. */
__attribute__((target("avx,pclmul"))) static uint32_t crc_run(uint32_t c, const unsigned char* p,
                                                              size_t n, const unsigned char* lo,
                                                              const unsigned char* hi)
{
    return n < 16 && hi - lo < 16 ? crc_short(c, p, n) : crc_run_in(c, p, n, lo, hi);
}

/* Both CRCs of a frame whose bytes [0, end) may all be read, header of
 * `head` >= 4 bytes, end - head >= 4: one call with everything in line, as
 * small frames are dominated by the cost of getting here. */
__attribute__((target("avx,pclmul"))) static uint32_t frame_crcs_pclmul(unsigned char* store,
                                                                        const unsigned char* frame,
                                                                        size_t head, size_t end,
                                                                        uint32_t* whole)
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

static int have_pclmul(void) { return kz_pclmul; }
#endif

uint32_t kz_crc32_in(uint32_t crc, const unsigned char* p, size_t n, const unsigned char* lo,
                     const unsigned char* hi)
{
    if (!p) return crc;
    const uint32_t c = ~crc;
#ifdef KZ_X86_SIMD
    if (n >= 4 && have_pclmul()) return ~crc_run(c, p, n, lo, hi);
#else
    (void)lo, (void)hi;
#endif
    return ~crc_tables(c, p, n);
}

/* The frame CRCs without vector code. */
uint32_t kz_frame_crcs_portable(unsigned char* store, const unsigned char* frame, size_t head,
                                size_t end, uint32_t* whole)
{
    const uint32_t h = ~crc_tables(~0u, frame, head);
    if (store) kz_put32(store + head, h);
    *whole = ~crc_tables(~h, frame + head, end - head);
    return h;
}

/* Portable until the library is loaded and the processor is known. */
kz_frame_crcs_fn kz_frame_crcs = kz_frame_crcs_portable;

#ifdef KZ_X86_SIMD
__attribute__((constructor)) static void kz_pick_code(void)
{
    kz_detect_simd();
    if (have_pclmul()) kz_frame_crcs = frame_crcs_pclmul;
}
#endif

uint32_t kz_crc32(uint32_t crc, const void* data, size_t n)
{
    const unsigned char* p = data;
    return kz_crc32_in(crc, p, n, p, p + n);
}
