/*
 * Which kernels run: the processor is looked up once, when the library is
 * loaded, and the widest kernels it can run are chosen; until then, and on
 * other processors, the portable ones run.
 */
#include "kzapin_kernels.h"

/* Portable until the library is loaded and the processor is known. */
kz_frame_crcs_fn kz_frame_crcs = kz_frame_crcs_portable;

#ifdef KZAPIN_X86_KERNELS
int kz_cpu_avx2, kz_cpu_pclmul, kz_cpu_avx512;

int kz_kernels_limit(int level)
{
    __builtin_cpu_init();
    const int avx2 = __builtin_cpu_supports("avx2");
    const int pclmul = __builtin_cpu_supports("pclmul") && __builtin_cpu_supports("avx");
    const int avx512 = avx2 && pclmul && __builtin_cpu_supports("avx512f") &&
                       __builtin_cpu_supports("avx512dq") && __builtin_cpu_supports("avx512bw") &&
                       __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("vpclmulqdq");
    /* A processor with PCLMULQDQ but not AVX2 runs the PCLMULQDQ CRC alone. */
    kz_cpu_avx2 = level >= KZ_KERNELS_AVX2 && avx2;
    kz_cpu_pclmul = level >= KZ_KERNELS_AVX2 && pclmul;
    kz_cpu_avx512 = level >= KZ_KERNELS_AVX512 && avx512;
    kz_frame_crcs = kz_cpu_pclmul ? kz_frame_crcs_pclmul : kz_frame_crcs_portable;
    return kz_cpu_avx512 ? KZ_KERNELS_AVX512 : kz_cpu_avx2 ? KZ_KERNELS_AVX2 : KZ_KERNELS_PORTABLE;
}

__attribute__((constructor)) static void kz_pick_kernels(void)
{
    kz_kernels_limit(KZ_KERNELS_BEST);
}
#else
int kz_kernels_limit(int level)
{
    (void)level;
    return KZ_KERNELS_PORTABLE;
}
#endif
