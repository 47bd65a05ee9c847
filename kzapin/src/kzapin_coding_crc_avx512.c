/*
 * Coding and CRC-32 in one pass with AVX-512: each 64-byte block is loaded
 * once, coded, stored and folded into the CRC of its coded form, which is
 * what the sender writes and what the receiver reads. Four folding vectors,
 * 256 bytes per step. Built with the AVX-512 and VPCLMULQDQ flags; called
 * only where the processor has them.
 */
#include "kzapin_crc32_fold.h"
#include "kzapin_wide.h"

/* Codes the block at s into d with the keystream counters z; returns the
 * block's coded form: the output when `of_output`, else the input. */
static inline __m512i code_block(unsigned char* d, const unsigned char* s, __m512i z, int of_output)
{
    const __m512i w = _mm512_loadu_si512(s);
    const __m512i o = kz_key_apply(w, kz_key8(z));
    _mm512_storeu_si512(d, o);
    return of_output ? o : w;
}

uint32_t kz_code_crc_avx512(unsigned char* d, const unsigned char* s, size_t len, uint64_t position,
                            uint32_t c, int of_output)
{
    /* Blocks start at keystream words. The first one begins `skip` bytes
     * before the run: those are neither read nor written, and count as zero
     * bytes ahead of the register, which leave a CRC as it is. */
    const unsigned skip = (unsigned)(position % 8);
    const __mmask64 first = ~(__mmask64)0 << skip;
    const __m512i step = KZ_KEY_STEP;
    __m512i z = kz_key_counters(position / 8);
    const __m512i w0 = _mm512_maskz_loadu_epi8(first, (const void*)((uintptr_t)s - skip));
    const __m512i o0 = kz_key_apply(w0, kz_key8(z));
    _mm512_mask_storeu_epi8((void*)((uintptr_t)d - skip), first, o0);
    const uint64_t r = (uint64_t)c << (8 * skip), spill = skip > 4 ? c >> (64 - 8 * skip) : 0;
    __m512i x0 =
        _mm512_xor_si512(of_output ? _mm512_maskz_mov_epi8(first, o0) : w0,
                         _mm512_castsi128_si512(_mm_set_epi64x((long long)spill, (long long)r)));
    d += 64 - skip, s += 64 - skip, len -= 64 - skip;
    __m512i x1 = code_block(d, s, z = _mm512_add_epi64(z, step), of_output);
    __m512i x2 = code_block(d + 64, s + 64, z = _mm512_add_epi64(z, step), of_output);
    __m512i x3 = code_block(d + 128, s + 128, z = _mm512_add_epi64(z, step), of_output);
    z = _mm512_add_epi64(z, step);
    d += 192, s += 192, len -= 192;
    for (; len >= 256; d += 256, s += 256, len -= 256) {
        const __m512i z1 = _mm512_add_epi64(z, step), z2 = _mm512_add_epi64(z1, step),
                      z3 = _mm512_add_epi64(z2, step);
        x0 = kz_fold(x0, KZ_FOLD_BY2048, code_block(d, s, z, of_output));
        x1 = kz_fold(x1, KZ_FOLD_BY2048, code_block(d + 64, s + 64, z1, of_output));
        x2 = kz_fold(x2, KZ_FOLD_BY2048, code_block(d + 128, s + 128, z2, of_output));
        x3 = kz_fold(x3, KZ_FOLD_BY2048, code_block(d + 192, s + 192, z3, of_output));
        z = _mm512_add_epi64(z3, step);
    }
    x0 = kz_fold_vectors(x0, x1, x2, x3);
    for (; len >= 64; d += 64, s += 64, len -= 64) {
        x0 = kz_fold(x0, KZ_FOLD_BY512, code_block(d, s, z, of_output));
        z = _mm512_add_epi64(z, step);
    }
    const __m128i lane = kz_fold_to_lane(x0);
    if (!len) return kz_crc32_finish_pclmul(lane, s, 0);
    /* The last bytes: the CRC reads the coded ones, so in place the input
     * is checksummed before it is overwritten and the output after. */
    const __mmask64 m = ((__mmask64)1 << len) - 1;
    const __m512i o = kz_key_apply(_mm512_maskz_loadu_epi8(m, s), kz_key8(z));
    if (of_output) {
        _mm512_mask_storeu_epi8(d, m, o);
        return kz_crc32_finish_pclmul(lane, d, len);
    }
    c = kz_crc32_finish_pclmul(lane, s, len);
    _mm512_mask_storeu_epi8(d, m, o);
    return c;
}
