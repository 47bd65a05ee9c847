/*
 * Which kernels run: the processor is looked up once, when the library is
 * loaded, and the vector kernels it can run are chosen; until then, and on
 * other processors, the portable ones run.
 */
#include "kzapin_kernels.h"

/* Portable until the library is loaded and the processor is known. */
kz_frame_crcs_fn kz_frame_crcs = kz_frame_crcs_portable;

#ifdef KZAPIN_X86_KERNELS
int kz_cpu_avx2, kz_cpu_pclmul;

__attribute__((constructor)) static void kz_pick_kernels(void)
{
    __builtin_cpu_init();
    kz_cpu_avx2 = __builtin_cpu_supports("avx2");
    kz_cpu_pclmul = __builtin_cpu_supports("pclmul") && __builtin_cpu_supports("avx");
    if (kz_cpu_pclmul) kz_frame_crcs = kz_frame_crcs_pclmul;
}
#endif
