/*
 * The byte-crunching kernels behind the body coding and the CRC-32: a
 * portable form that every processor runs, vector forms for x86 processors
 * (each in a file of its own, built for its instruction set), and the
 * choice among them, made once when the library is loaded.
 */
#ifndef KZAPIN_KERNELS_H
#define KZAPIN_KERNELS_H

#include "kzapin_internal.h"

#include <stddef.h>
#include <stdint.h>

/* The keystream: word i is the splitmix64 finaliser of
 * i * KZ_CODING_GAMMA + KZ_CODING_SEED. */
#define KZ_CODING_GAMMA 0x9E3779B97F4A7C15ull
#define KZ_CODING_SEED 0x4B5A4150494E3031ull /* "KZAPIN01" */
#define KZ_CODING_MUL1 0xBF58476D1CE4E5B9ull
#define KZ_CODING_MUL2 0x94D049BB133111EBull

static inline uint64_t kz_key_word(uint64_t index)
{
    uint64_t z = index * KZ_CODING_GAMMA + KZ_CODING_SEED;
    z = (z ^ (z >> 30)) * KZ_CODING_MUL1;
    z = (z ^ (z >> 27)) * KZ_CODING_MUL2;
    return z ^ (z >> 31);
}

/* Slicing-by-8 CRC-32 on the inverted register `c` (the register as it
 * runs, before the final XOR). */
uint32_t kz_crc32_tables(uint32_t c, const unsigned char* p, size_t n);

#ifdef KZAPIN_X86_KERNELS
/* Codes whole keystream words from word `index` on, four at a time, as
 * many of `words` as it can; returns how many (a multiple of four). AVX2. */
size_t kz_code_words_avx2(unsigned char* d, const unsigned char* s, size_t words, uint64_t index);

/* Codes all `len` bytes of a run whose first byte takes byte 0 of keystream
 * word `index`. AVX-512 F, DQ, BW. */
void kz_code_run_avx512(unsigned char* d, const unsigned char* s, size_t len, uint64_t index);

/* Codes `len` >= 256 bytes that lie `position` bytes into a run and folds
 * their coded form (the output when `of_output`, else the input) into the
 * CRC on the inverted register `c`, in one pass; returns the register.
 * AVX-512 F, DQ, BW, VL and VPCLMULQDQ. */
uint32_t kz_code_crc_avx512(unsigned char* d, const unsigned char* s, size_t len, uint64_t position,
                            uint32_t c, int of_output);

/* The CRC on the inverted register of a run of 4 bytes or more inside
 * [lo, hi), all of which may be read. PCLMULQDQ. */
uint32_t kz_crc32_run_pclmul(uint32_t c, const unsigned char* p, size_t n, const unsigned char* lo,
                             const unsigned char* hi);

/* kz_frame_crcs with PCLMULQDQ. */
uint32_t kz_frame_crcs_pclmul(unsigned char* store, const unsigned char* frame, size_t head,
                              size_t end, uint32_t* whole);

/* The kernels in use, chosen when the library is loaded (or limited by
 * kz_kernels_limit): AVX2 coding, PCLMULQDQ CRC, and the AVX-512 coding and
 * VPCLMULQDQ folding of long runs. */
extern int kz_cpu_avx2, kz_cpu_pclmul, kz_cpu_avx512;
#endif

#endif /* KZAPIN_KERNELS_H */
