/*
 * kzapin — the frame layer under kzresolver.
 *
 * A small C library with four jobs:
 *   - typed objects (kz_type_new / kz_type_cast2 / kz_type_delete) so that a
 *     caller holding a void* can check what it holds;
 *   - the protocol engine (kz__protoiot): packs message bodies into frames on
 *     the send side and finds, checks and reassembles frames on the receive
 *     side, raising one event per complete body;
 *   - the pending list of a split body (kz_list_...);
 *   - the length-preserving body coding (kz_coding_..._fast).
 *
 * The frame format is documented byte by byte in docs/frame-format.md.
 *
 * Threads: an engine keeps its send-side state (packing, pending list) apart
 * from its receive-side state (frame buffer, reassembly). One thread may pack
 * while another feeds input to the same engine; two threads must not pack at
 * once, nor feed input at once.
 */
#ifndef KZAPIN_KZAPIN_H
#define KZAPIN_KZAPIN_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(KZAPIN_BUILDING) && defined(__GNUC__)
#define KZAPIN_API __attribute__((visibility("default")))
#else
#define KZAPIN_API
#endif

/* ------------------------------------------------------------------------ */
/* Typed objects                                                             */
/* ------------------------------------------------------------------------ */

/** Type descriptor. Every object starts with a kz_object header whose type
 *  field points at one of these; `parent` makes the is-a chain. */
typedef struct kz_type
{
    const char* name;
    const struct kz_type* parent;
    size_t size;
} kz_type;

/** The root type: every object is a kz__object. */
KZAPIN_API extern const kz_type kz__object[1];
/** A protocol object: something that raises events (is-a kz__object). */
KZAPIN_API extern const kz_type kz__protocol[1];
/** The frame engine (is-a kz__protocol). */
KZAPIN_API extern const kz_type kz__protoiot[1];

struct kz_event;

/** Event handler entry of an object: called by the engine for every event it
 *  raises. Returns 0 when the event was handled. */
typedef int (*kz_event_handler)(struct kz_event* e);

/** Header shared by every object. `handler` and `user` are the caller's:
 *  the engine raises its events through `handler` (initially
 *  kz_protoiot_event_handler) and never touches `user`. */
typedef struct kz_object
{
    uint32_t magic; /* private: marks a live kz object */
    const kz_type* type;
    kz_event_handler handler;
    void* user;
} kz_object;

/** Option selectors of kz_type_new, given as (selector, value) pairs and
 *  closed by 0: kz_type_new(kz__protoiot, KZ_OPT_CAPACITY, 4096, 0). */
enum {
    KZ_OPT_END = 0,
    /** int: default frame capacity in bytes (used by kz_protocol_pack when
     *  its capacity argument is 0 or below). Default 2048. */
    KZ_OPT_CAPACITY = 3,
    /** int: largest body the receiver accepts, whole or reassembled, in
     *  bytes. Default KZ_DEFAULT_MAX_BODY. Larger claims are dropped. */
    KZ_OPT_MAX_BODY = 4,
    /** int: how the pieces of a split body are left in the pending list,
     *  one of KZ_PIECES_*. Default KZ_PIECES_FRESH_SEQ. */
    KZ_OPT_PIECES = 5,
};

#define KZ_DEFAULT_CAPACITY 2048
#define KZ_DEFAULT_MAX_BODY (16 * 1024 * 1024)

enum {
    /** Pieces wait unpacked (flags 0); the caller packs each with a
     *  sequence number of its own choosing. */
    KZ_PIECES_FRESH_SEQ = 0,
    /** Pieces wait unpacked and carry the sequence number of their message
     *  (flag KZ_NODE_OWN_SEQ). */
    KZ_PIECES_OWN_SEQ = 1,
    /** Pieces are packed into complete frames at once (flag
     *  KZ_NODE_PACKED); the caller sends their bytes unchanged. */
    KZ_PIECES_PACKED = 2,
};

/** Creates an object of `type` (only kz__protoiot can be created). The
 *  variable part is the option list described above, closed by 0; a call
 *  with just 0 takes every default. Returns NULL on an unknown type, an
 *  unknown selector or an out-of-range value. */
KZAPIN_API void* kz_type_new(const kz_type* type, ...);

/** Returns `obj` if it is a live object of `type` or of a type derived from
 *  it, NULL otherwise. For a non-NULL object of another type it writes one
 *  diagnostic line to stderr naming `label`, `file` and `line`. NULL in
 *  gives NULL out, silently. */
KZAPIN_API void* kz_type_cast2(void* obj, const kz_type* type, const char* label, const char* file,
                               int line);

/** Destroys an object made by kz_type_new. NULL is ignored. */
KZAPIN_API void kz_type_delete(void* obj);

/* ------------------------------------------------------------------------ */
/* Events                                                                    */
/* ------------------------------------------------------------------------ */

/** Event types raised by the engine. */
enum {
    /** Drop notice: a frame, piece or partial body was thrown away. `data`
     *  points at a short reason text (also in `name`), `length` is the
     *  number of bytes dropped (for KZ_DROP_TOO_LARGE: the body size the
     *  frame claimed), `length2` the reason, one of KZ_DROP_*. */
    KZ_EVENT_NOTICE = 16,
    /** A complete message body: `data`/`length` hold the coded body exactly
     *  as it was given to kz_protocol_pack; `name` is "data" or
     *  "data,<attr>" when the sender gave an attr text; `length2` is the
     *  number of frames the body arrived in; `seq` its sequence number.
     *  A body reassembled from pieces (length2 > 1) lies in the engine's
     *  own buffer, freed when the handler returns: the handler may change
     *  it in place (decode it there, say) instead of copying it. */
    KZ_EVENT_DATA = 17,
    /** A split body that the host's body sink took is complete (see
     *  kz_protocol_set_body_sink): `data` is the handle its open() returned,
     *  `length` the body's length, `length2` the number of frames, `seq`
     *  its message id, `name` as for KZ_EVENT_DATA. The sink's close()
     *  follows when the handler returns. */
    KZ_EVENT_TAKEN = 18,
};

/** Reasons of a drop notice (its `length2`), with their texts. */
enum {
    /** "frame header out of limits": a piece header that contradicts
     *  itself (no data, past its total, attr on a later piece). */
    KZ_DROP_HEADER = 1,
    /** "body over the receive limit": a frame claims a body larger than
     *  KZ_OPT_MAX_BODY. Reported once per split body: its later pieces
     *  raise no notice of their own. */
    KZ_DROP_TOO_LARGE = 2,
    /** "frame checksum mismatch". */
    KZ_DROP_CHECKSUM = 3,
    /** "piece without a start". */
    KZ_DROP_ORPHAN = 4,
    /** "piece out of order, partial body dropped". */
    KZ_DROP_ORDER = 5,
    /** "partial body replaced by a new start". */
    KZ_DROP_REPLACED = 6,
    /** "partial body discarded to make room". */
    KZ_DROP_EVICTED = 7,
    /** "out of memory, bytes dropped". */
    KZ_DROP_MEMORY = 8,
};

/** One event. The pointers are valid only during the handler call and
 *  point at read-only bytes (a body may still lie in the caller's input
 *  buffer): a handler that needs the data later, or changed, copies it. */
typedef struct kz_event
{
    int type;
    void* object; /* the engine that raised it */
    const char* name;
    void* data;
    int length;
    int length2;
    /* KZ_EVENT_DATA: the sequence number of the frame, or for a body
     * reassembled from pieces its message id (the first piece's sequence
     * number). 0 for notices. */
    uint32_t seq;
} kz_event;

/** The default handler installed in a new engine: accepts every event and
 *  does nothing with it. Returns 0. */
KZAPIN_API int kz_protoiot_event_handler(kz_event* e);

/* ------------------------------------------------------------------------ */
/* The engine                                                                */
/* ------------------------------------------------------------------------ */

/** Operation table of the frame engine. */
typedef struct kz_protoiot_ops
{
    /** Forgets all receive-side state (buffered bytes, partial bodies).
     *  Called from a handler during input, it also drops the rest of that
     *  input. */
    void (*reset)(void* engine);
    /** Feeds `length` received bytes. Complete frames raise events through
     *  the engine's handler before this returns. Bytes may be cut anywhere;
     *  garbage is skipped. Returns the number of events raised, or -1 for a
     *  NULL engine or when called from a handler of the same engine. */
    int (*input)(void* engine, const void* bytes, int length);
} kz_protoiot_ops;

/** The engine's operations: kz_protoiot_engine.input(engine, bytes, n). */
KZAPIN_API extern const kz_protoiot_ops kz_protoiot_engine;

/** Receive-side counts of an engine, from its creation on. */
typedef struct kz_rx_stats
{
    uint64_t bytes_in; /* bytes fed to input */
    uint64_t frames;   /* frames (whole or piece) that passed their checks */
    uint64_t skipped;  /* bytes passed over while looking for frames: noise,
                          and the bytes of frames that failed a check */
} kz_rx_stats;

/** Copies the receive-side counts of `engine` into `out`. Returns 0, or -1
 *  for a NULL or foreign engine or a NULL `out`. Receive-side state: read it
 *  on the thread that feeds input, or while no input runs. Bytes still
 *  waiting for the rest of their frame are in `bytes_in` only. */
KZAPIN_API int kz_protocol_rx_stats(void* engine, kz_rx_stats* out);

/** The same counts where the engine keeps them, for a caller that reads them
 *  after every input: valid as long as the engine lives, under the same
 *  thread rule. NULL for a NULL or foreign engine. */
KZAPIN_API const kz_rx_stats* kz_protocol_rx_counts(void* engine);

/** Receives split bodies into memory of the host's choosing, piece by piece
 *  as they arrive, instead of the engine assembling them in its own buffer
 *  and handing them out whole: a host that knows where a body belongs (a
 *  large field straight into the array it will keep, decoded on the way)
 *  saves a copy of the whole body. */
typedef struct kz_body_sink
{
    /** Asked when the first piece of a split body arrives: `name` is its
     *  event name, `total` its length, `first` and `length` the first
     *  piece (still coded, valid during the call). Returns a handle for the
     *  body to take it, or NULL to leave it to the engine, which then
     *  raises KZ_EVENT_DATA for it as usual. */
    void* (*open)(void* context, const char* name, uint32_t total, const void* first,
                  size_t length);
    /** The bytes [offset, offset + length) of a taken body, in order and
     *  without gaps from offset 0 (the first piece again) to its total.
     *  Returns 0 when the host cannot take them: the body is then dropped
     *  with a KZ_DROP_MEMORY notice. */
    int (*put)(void* context, void* body, uint32_t offset, const void* data, size_t length);
    /** Ends a taken body, once for every handle open() returned: `complete`
     *  is 1 right after its KZ_EVENT_TAKEN event, 0 when it is dropped
     *  unfinished (with the usual notice, or by a reset or the engine's
     *  destruction, which raise none). */
    void (*close)(void* context, void* body, int complete);
    void* context;
} kz_body_sink;

/** Offers every split body that starts from now on to `sink` (copied; NULL
 *  or a NULL open() ends the offers). A taken body counts at its whole
 *  total against KZ_OPT_MAX_BODY, like the memory of partial bodies the
 *  engine assembles, and is finished by the sink that took it. The sink's
 *  functions run inside input() on its thread and must not feed the same
 *  engine. Returns 0, or -1 for a NULL or foreign engine or a sink with
 *  open() but no put() or close(). */
KZAPIN_API int kz_protocol_set_body_sink(void* engine, const kz_body_sink* sink);

/** Bytes a frame adds around its data: whole frame, and piece frame. */
#define KZ_FRAME_OVERHEAD 22
#define KZ_PIECE_OVERHEAD 34

/** Offset of the data in a whole frame with an attr of `attr_len` bytes,
 *  and in a piece frame (which carries no attr after its first piece). */
#define KZ_FRAME_DATA_AT(attr_len) (18 + (attr_len))
#define KZ_PIECE_DATA_AT(attr_len) (30 + (attr_len))

/** Frames a body of `length` bytes that the caller has already written at
 *  `out + KZ_FRAME_DATA_AT(0)`: writes the header (sequence number `seq`, no
 *  attr) and both checksums around it, as kz_protocol_pack would for that
 *  body in place, without looking for an attr or a piece tag. `out` holds
 *  KZ_FRAME_OVERHEAD + `length` bytes. Returns that frame length, or 0 and
 *  writes nothing for a NULL or foreign engine, a NULL `out`, a negative
 *  `length` or a frame over the engine's capacity. */
KZAPIN_API int kz_protocol_pack_whole(void* engine, void* out, int seq, int length);

/** Packs `body` (its `length` bytes, not overlapping `out`) into one frame
 *  in `out` (room for `capacity` bytes; 0 or below takes the engine's
 *  default capacity) with
 *  sequence number `seq` and the zero-terminated `attr` text (NULL = empty,
 *  at most 65535 bytes). Returns the number of bytes written, never more
 *  than `capacity`.
 *
 *  When the frame does not fit, the body is split: its first piece is
 *  packed into `out` and the rest is appended to the engine's pending list
 *  (kz_protocol_pending) as nodes that the caller drains, packs (unless
 *  already packed) and sends in list order.
 *
 *  Returns 0 and writes nothing for a NULL engine, a NULL `out` or a
 *  capacity too small to carry one byte of body. An `attr` text that starts
 *  with byte 0x01 is a piece tag made by the engine itself; a node's text is
 *  passed back here unchanged.
 *
 *  A body that fits one frame may also already lie at its place in the
 *  frame, `out + KZ_FRAME_DATA_AT(attr length)`: it is then left where it
 *  is, so a caller can build the body straight in the output buffer. */
KZAPIN_API int kz_protocol_pack(void* engine, void* out, int capacity, int seq, const char* attr,
                                const void* body, int length);

/** The value an engine was created with for the option `selector`
 *  (KZ_OPT_CAPACITY, KZ_OPT_MAX_BODY or KZ_OPT_PIECES), or -1 for a NULL
 *  or foreign engine or another selector. */
KZAPIN_API int kz_protocol_option(void* engine, int selector);

/** Sets the largest body the receiver accepts (KZ_OPT_MAX_BODY) to
 *  `max_body` bytes from the next input on: a whole frame or a split body
 *  whose header arrives after the call is held to the new limit. A frame
 *  already being buffered is checked again when it is complete. Bodies under
 *  reassembly when the limit is lowered are not completed against it; their
 *  memory goes when the engine needs room or is reset. Returns 0, or -1 for
 *  a NULL or foreign engine, a value below 1, or a call from inside input()
 *  (an event handler). */
KZAPIN_API int kz_protocol_set_max_body(void* engine, int max_body);

/** Packs one piece of a split body into `out` (room for `capacity` bytes; 0
 *  or below takes the engine's default): the `length` bytes at `data` are
 *  the body's bytes from `offset` on, `total` is the body's length and `id`
 *  its message id; the frame gets sequence number `seq` and no attr. The
 *  same frame as a pending node's tag "\x01P<id>:<total>:<offset>" gives,
 *  without the text. `data` may lie at `out + KZ_PIECE_DATA_AT(0)` (left in
 *  place) or not overlap `out` at all. Returns the frame length, or 0 and
 *  writes nothing when `length` < 1, the piece runs past `total` or the
 *  frame (KZ_PIECE_OVERHEAD + length) does not fit. */
KZAPIN_API int kz_protocol_pack_piece(void* engine, void* out, int capacity, int seq, uint32_t id,
                                      uint32_t total, uint32_t offset, const void* data,
                                      int length);

/* ------------------------------------------------------------------------ */
/* The pending list                                                          */
/* ------------------------------------------------------------------------ */

/** Node flag: `bytes` after the text already hold a complete frame. */
#define KZ_NODE_PACKED 0x20
/** Node flag: pack the piece with the node's own `seq`. */
#define KZ_NODE_OWN_SEQ 0x02

/** One pending piece. `bytes` holds a zero-terminated text followed by the
 *  data; `total` counts text, terminator and data. */
typedef struct kz_list_node
{
    struct kz_list_node* next; /* private */
    unsigned flags;
    int seq;
    int total;
    char bytes[]; /* text '\0' data */
} kz_list_node;

typedef struct kz_list
{
    kz_list_node* head; /* private */
    kz_list_node* tail; /* private */
    int count;
} kz_list;

/** The engine's pending list (NULL for a NULL or foreign object). */
KZAPIN_API kz_list* kz_protocol_pending(void* engine);

/** The node at `index` (0 = first), or NULL. */
KZAPIN_API kz_list_node* kz_list_node_at(kz_list* list, int index);

/** Unlinks `node` from `list` and returns it (NULL if it is not there). The
 *  caller then owns it and frees it with kz_list_node_destroy. */
KZAPIN_API kz_list_node* kz_list_take_node(kz_list* list, kz_list_node* node);

/** Frees a node taken out of its list. NULL is ignored. */
KZAPIN_API void kz_list_node_destroy(kz_list_node* node);

/** The address just past the zero-terminated string `s`. */
KZAPIN_API const char* kz_strnxt(const char* s);

/* ------------------------------------------------------------------------ */
/* Body coding                                                               */
/* ------------------------------------------------------------------------ */

/** Length-preserving scrambling of `n` bytes from `src` into `dst`. `dst`
 *  may equal `src` (in place); other overlaps are not allowed. The coding
 *  of a byte depends on its position in the run, so code a run as a whole.
 *  n <= 0 does nothing. */
KZAPIN_API void kz_coding_encrypt_fast(void* dst, const void* src, int n);
/** Codes `n` bytes that lie `position` bytes into a run (position >= 0),
 *  as kz_coding_encrypt_fast codes them when it codes the whole run: a run
 *  may be coded piece by piece. Decoding is the same call. */
KZAPIN_API void kz_coding_code_at(void* dst, const void* src, int n, int64_t position);
/** Reverses kz_coding_encrypt_fast for a run of the same length. */
KZAPIN_API void kz_coding_decrypt_fast(void* dst, const void* src, int n);

/** Codes `n` bytes that lie `position` bytes into a run, as
 *  kz_coding_code_at does, and returns the CRC-32 of the coded bytes it
 *  wrote, continuing from `crc` (as kz_crc32 would compute it over `dst`
 *  afterwards): the sender codes a frame's data and checksums it in one
 *  pass over the bytes where the processor allows. `dst` may equal `src`.
 *  Returns `crc` unchanged and writes nothing for n <= 0, a negative
 *  position or a NULL pointer. */
KZAPIN_API uint32_t kz_coding_encrypt_crc32(void* dst, const void* src, int n, int64_t position,
                                            uint32_t crc);
/** The receiver's side of kz_coding_encrypt_crc32: returns the CRC-32 of
 *  the `n` coded bytes at `src`, continuing from `crc`, and writes them
 *  decoded to `dst` (which may equal `src`), in one pass where the
 *  processor allows. */
KZAPIN_API uint32_t kz_coding_decrypt_crc32(void* dst, const void* src, int n, int64_t position,
                                            uint32_t crc);

/** CRC-32 (IEEE 802.3, reflected, as zlib computes it) of `n` bytes,
 *  continuing from `crc` (0 to start). */
KZAPIN_API uint32_t kz_crc32(uint32_t crc, const void* data, size_t n);

#ifdef __cplusplus
}
#endif

#endif /* KZAPIN_KZAPIN_H */
