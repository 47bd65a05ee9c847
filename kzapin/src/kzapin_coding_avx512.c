/*
 * The body coding with AVX-512: eight keystream words per vector with the
 * 64-bit multiply of AVX-512 DQ, two vectors per step, and the last bytes
 * of a run (any number below 64) coded with one masked load and store.
 * Built with the AVX-512 flags; called only where the processor has them.
 */
#include "kzapin_wide.h"

void kz_code_run_avx512(unsigned char* d, const unsigned char* s, size_t len, uint64_t index)
{
    __m512i z = kz_key_counters(index);
    for (; len >= 128; len -= 128, d += 128, s += 128) {
        const __m512i z2 = _mm512_add_epi64(z, KZ_KEY_STEP);
        const __m512i k = kz_key8(z), k2 = kz_key8(z2);
        _mm512_storeu_si512(d, kz_key_apply(_mm512_loadu_si512(s), k));
        _mm512_storeu_si512(d + 64, kz_key_apply(_mm512_loadu_si512(s + 64), k2));
        z = _mm512_add_epi64(z2, KZ_KEY_STEP);
    }
    if (len >= 64) {
        _mm512_storeu_si512(d, kz_key_apply(_mm512_loadu_si512(s), kz_key8(z)));
        z = _mm512_add_epi64(z, KZ_KEY_STEP);
        len -= 64, d += 64, s += 64;
    }
    if (len) {
        const __mmask64 m = ((__mmask64)1 << len) - 1;
        _mm512_mask_storeu_epi8(d, m, kz_key_apply(_mm512_maskz_loadu_epi8(m, s), kz_key8(z)));
    }
}
