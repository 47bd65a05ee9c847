/*
 * The body coding and the CRC-32 of the coded bytes together: the sender
 * codes a frame's data and checksums what it wrote, the receiver checksums
 * what it read and decodes it. Where a wide kernel does both in one pass
 * over the bytes it is used; otherwise the coding and the CRC run one after
 * the other, in the order that reads each input byte before it may be
 * overwritten.
 */
#include "kzapin_kernels.h"

/* Runs shorter than this are coded and checksummed in two passes. */
#define KZ_FUSED_MIN 256u

static uint32_t code_crc(void* dst, const void* src, int n, int64_t position, uint32_t crc,
                         int of_output)
{
    if (n <= 0 || position < 0 || !dst || !src) return crc;
    unsigned char* d = dst;
    const unsigned char* s = src;
#ifdef KZAPIN_X86_KERNELS
    if (kz_cpu_avx512 && (size_t)n >= KZ_FUSED_MIN)
        return ~kz_code_crc_avx512(d, s, (size_t)n, (uint64_t)position, ~crc, of_output);
#endif
    if (of_output) {
        kz_coding_code_at(d, s, n, position);
        return kz_crc32(crc, d, (size_t)n);
    }
    crc = kz_crc32(crc, s, (size_t)n);
    kz_coding_code_at(d, s, n, position);
    return crc;
}

uint32_t kz_coding_encrypt_crc32(void* dst, const void* src, int n, int64_t position, uint32_t crc)
{
    return code_crc(dst, src, n, position, crc, 1);
}

uint32_t kz_coding_decrypt_crc32(void* dst, const void* src, int n, int64_t position, uint32_t crc)
{
    return code_crc(dst, src, n, position, crc, 0);
}
