/*
 * What the CRC kernels of different widths share: a run folded into one
 * 128-bit lane by the wider kernels is finished by the PCLMULQDQ one. For
 * the vector files only (their types need the vector instruction sets).
 */
#ifndef KZAPIN_CRC32_FOLD_H
#define KZAPIN_CRC32_FOLD_H

#include <immintrin.h>
#include <stddef.h>
#include <stdint.h>

/* Folds p[0, n) into the lane x1, which holds the run so far (register
 * XORed in) and is directly followed by p, and reduces it to the inverted
 * register. The bytes just before p may be read: the last n % 16 bytes are
 * taken as the end of a 16-byte load. */
uint32_t kz_crc32_finish_pclmul(__m128i x1, const unsigned char* p, size_t n);

/* A run of 256 bytes or more folded 2048 bits per step with VPCLMULQDQ,
 * on the inverted register. */
uint32_t kz_crc32_fold_vpclmul(uint32_t c, const unsigned char* p, size_t n);

#endif /* KZAPIN_CRC32_FOLD_H */
