/*
 * Declarations shared by the kzapin sources. Not installed, not part of the
 * public interface.
 */
#ifndef KZAPIN_INTERNAL_H
#define KZAPIN_INTERNAL_H

#include "kzapin/kzapin.h"

#include <stddef.h>
#include <stdint.h>
#include <string.h>

/* Value of kz_object.magic while an object is alive, and after deletion. */
#define KZ_MAGIC_LIVE 0x4B5A6F62u /* "KZob" */
#define KZ_MAGIC_DEAD 0xDEADDEADu

/* Engine settings gathered from the option list of kz_type_new. */
typedef struct kz_engine_options
{
    int capacity;
    int max_body;
    int pieces;
} kz_engine_options;

/* True when `obj` is a live object whose type is `type` or derives from it.
 * Writes nothing. */
int kz_object_is(const void* obj, const kz_type* type);

/* Creates a frame engine (kz_object header included, magic set) or returns
 * NULL when memory runs out. */
kz_object* kz_engine_create(const kz_engine_options* options);

/* Frees everything an engine owns, the engine included. The caller has
 * already cleared the magic. */
void kz_engine_destroy(kz_object* engine);

/* Frame layout, see docs/frame-format.md. */
#define KZ_SYNC_0 0x4Bu /* 'K' */
#define KZ_SYNC_1 0x5Au /* 'Z' */
#define KZ_FRAME_VERSION 1u
#define KZ_FRAME_FLAG_PIECE 0x01u
#define KZ_HEAD_WHOLE 14u /* header bytes covered by the header CRC */
#define KZ_HEAD_PIECE 26u
#define KZ_ATTR_MAX 65535u

/* Byte that starts the text of an unpacked pending piece. */
#define KZ_PIECE_TAG 0x01

/* Little-endian stores and loads. */
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
/* A little-endian host stores and loads them as they are. */
static inline void kz_put16(unsigned char* p, uint32_t v)
{
    const uint16_t w = (uint16_t)v;
    memcpy(p, &w, 2);
}

static inline void kz_put32(unsigned char* p, uint32_t v) { memcpy(p, &v, 4); }

static inline uint32_t kz_get16(const unsigned char* p)
{
    uint16_t w;
    memcpy(&w, p, 2);
    return w;
}

static inline uint32_t kz_get32(const unsigned char* p)
{
    uint32_t v;
    memcpy(&v, p, 4);
    return v;
}
#else
static inline void kz_put16(unsigned char* p, uint32_t v)
{
    p[0] = (unsigned char)v;
    p[1] = (unsigned char)(v >> 8);
}

static inline void kz_put32(unsigned char* p, uint32_t v)
{
    p[0] = (unsigned char)v;
    p[1] = (unsigned char)(v >> 8);
    p[2] = (unsigned char)(v >> 16);
    p[3] = (unsigned char)(v >> 24);
}

static inline uint32_t kz_get16(const unsigned char* p)
{
    return (uint32_t)p[0] | (uint32_t)p[1] << 8;
}

static inline uint32_t kz_get32(const unsigned char* p)
{
    return (uint32_t)p[0] | (uint32_t)p[1] << 8 | (uint32_t)p[2] << 16 | (uint32_t)p[3] << 24;
}
#endif

/* kz_crc32 of p[0, n) for a run that lies inside [lo, hi), all of which may
 * be read: short runs are then loaded straight from there, not copied. */
uint32_t kz_crc32_in(uint32_t crc, const unsigned char* p, size_t n, const unsigned char* lo,
                     const unsigned char* hi);

/* Both checksums of a frame whose bytes [0, end) may all be read, with a
 * header of `head` >= 4 bytes followed by at least the 4 bytes of its CRC
 * (end >= head + 4), as every frame has. Returns the CRC-32 of
 * frame[0, head) and stores the CRC-32 of frame[0, end) at `whole`; with a
 * `store` (the frame itself, on the sending side), the header CRC is
 * written at store + head first, so that the frame CRC covers it. The
 * fastest code the processor runs, chosen when the library is loaded. */
typedef uint32_t (*kz_frame_crcs_fn)(unsigned char* store, const unsigned char* frame, size_t head,
                                     size_t end, uint32_t* whole);
extern kz_frame_crcs_fn kz_frame_crcs;
/* The table-driven one, which every processor runs. */
uint32_t kz_frame_crcs_portable(unsigned char* store, const unsigned char* frame, size_t head,
                                size_t end, uint32_t* whole);

/* The kernels of the coding and the CRC, widest first. */
enum {
    KZ_KERNELS_PORTABLE = 0, /* tables and 64-bit words: every processor */
    KZ_KERNELS_AVX2 = 1,     /* AVX2 coding, PCLMULQDQ CRC */
    KZ_KERNELS_AVX512 = 2,   /* and AVX-512 coding, VPCLMULQDQ CRC of long runs */
    KZ_KERNELS_BEST = 2,
};

/* Runs the kernels of `level` or, where the processor lacks them, the
 * widest below it; returns the level in effect. The library starts at
 * the widest level the processor runs. For tests and fuzz targets that
 * check each path: call it while no other thread codes or checks frames. */
int kz_kernels_limit(int level);

/* Writes a new frame's header CRC at frame + head and returns its frame
 * CRC, the CRC-32 of frame[0, end). */
static inline uint32_t kz_crc32_frame(unsigned char* frame, size_t head, size_t end)
{
    uint32_t whole;
    kz_frame_crcs(frame, frame, head, end, &whole);
    return whole;
}

/* The same two CRCs of a received frame, left as it is: returns the CRC of
 * frame[0, head) and stores the CRC of frame[0, end) (the received header
 * CRC bytes included) at `whole`. */
static inline uint32_t kz_crc32_frame_check(const unsigned char* frame, size_t head, size_t end,
                                            uint32_t* whole)
{
    return kz_frame_crcs(NULL, frame, head, end, whole);
}

#endif /* KZAPIN_INTERNAL_H */
