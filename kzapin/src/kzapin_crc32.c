/*
 * CRC-32 as zlib computes it (reflected polynomial 0xEDB88320, initial and
 * final XOR 0xFFFFFFFF): the public entry point and the one the engine uses
 * for runs inside a frame, each taking the fastest kernel the processor
 * runs.
 */
#include "kzapin_kernels.h"

uint32_t kz_crc32_in(uint32_t crc, const unsigned char* p, size_t n, const unsigned char* lo,
                     const unsigned char* hi)
{
    if (!p) return crc;
    const uint32_t c = ~crc;
#ifdef KZAPIN_X86_KERNELS
    if (n >= 4 && kz_cpu_pclmul) return ~kz_crc32_run_pclmul(c, p, n, lo, hi);
#else
    (void)lo, (void)hi;
#endif
    return ~kz_crc32_tables(c, p, n);
}

uint32_t kz_crc32(uint32_t crc, const void* data, size_t n)
{
    const unsigned char* p = data;
    return kz_crc32_in(crc, p, n, p, p + n);
}
