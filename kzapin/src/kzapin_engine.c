/*
 * The frame engine: packing bodies into frames (splitting those that do not
 * fit), the pending list of pieces, and the receive path that finds, checks
 * and reassembles frames in a byte stream cut anywhere.
 *
 * The frame layout is described in docs/frame-format.md.
 *
 * Send side and receive side share only the settings, which are fixed at
 * creation, so one thread may pack while another feeds input.
 */
#include "kzapin_internal.h"

#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

/* Unfinished split bodies kept at once. */
#define KZ_ASSEMBLIES_MAX 4
/* Smallest allocation for the receive buffer and for a partial body. */
#define KZ_BUFFER_MIN 256
/* A receive buffer larger than this is released once it is empty again, so
 * one big frame does not pin its memory for the life of the engine. */
#define KZ_RX_KEEP_MAX (64 * 1024)
/* Checksum work that frames failing their check may cost: a burst, refilled
 * by this many bytes per byte of stream. A damaged frame is normally left one
 * byte past its sync marker, so that a frame hidden in it is still found;
 * once the allowance is spent (a peer sending well-formed headers that claim
 * huge frames, one every few bytes), a failed frame is skipped whole, which
 * keeps the work linear in the bytes received. The allowance is refilled by
 * stream position, not per input call, so it does not depend on how the
 * stream was cut. */
#define KZ_RESYNC_BURST ((uint64_t)8 * 1024 * 1024)
#define KZ_RESYNC_PER_BYTE 8u
/* The buffer of the last split body is kept for the next one while split
 * bodies keep coming; this many frames in a row that are not pieces release
 * it. */
#define KZ_SPARE_IDLE_FRAMES 16
/* Whole frames up to this length that are all in the buffer take the short
 * way: both checksums in one pass. Small, so that a false sync marker
 * claiming such a frame costs little more than checking its header. */
#define KZ_CRC_TOGETHER_MAX 64u
/* Longest piece tag: 0x01 'P' u32 ':' u32 ':' u32 and the terminator. */
#define KZ_TAG_SIZE 40

/* Notice texts. */
static const char kz_why_limits[] = "frame header out of limits";
static const char kz_why_too_large[] = "body over the receive limit";
static const char kz_why_crc[] = "frame checksum mismatch";
static const char kz_why_orphan[] = "piece without a start";
static const char kz_why_order[] = "piece out of order, partial body dropped";
static const char kz_why_replaced[] = "partial body replaced by a new start";
static const char kz_why_evicted[] = "partial body discarded to make room";
static const char kz_why_memory[] = "out of memory, bytes dropped";

typedef struct kz_assembly
{
    int used;
    uint32_t id;
    uint32_t total;
    uint32_t have; /* bytes assembled so far = offset of the next piece */
    int pieces;
    uint64_t touched; /* receive clock when a piece was last added */
    unsigned char* buf;
    size_t cap; /* memory counted for this body: its buffer, or its total when taken */
    char* name;
    void* taken;       /* the host's handle when its body sink took the body */
    kz_body_sink sink; /* the sink that took it, as it was then */
} kz_assembly;

typedef struct kz_send_side
{
    kz_list pending;
} kz_send_side;

typedef struct kz_recv_side
{
    /* Bytes of one incomplete frame candidate; buf[0] is its first byte. */
    unsigned char* buf;
    size_t len;
    size_t cap;
    size_t need;               /* length the candidate must reach before it is looked at again */
    uint64_t resync_allowance; /* checksum work failed frames may still cost */
    uint64_t resync_mark;      /* stream offset up to which it was refilled */

    kz_assembly slots[KZ_ASSEMBLIES_MAX];
    size_t held; /* memory held by all partial bodies */
    uint64_t clock;

    /* Buffer of the last completed split body, taken by the next one; the
     * partial bodies and it together stay within the body limit. */
    unsigned char* spare;
    size_t spare_cap;
    int whole_run; /* frames in a row that were not pieces */

    /* Id of the split body last refused as too large: its later pieces are
     * dropped without a notice of their own, one notice per body. */
    uint32_t refused_id;
    int refused;

    kz_rx_stats stats; /* bytes taken in, frames passed, bytes skipped */

    kz_body_sink sink; /* offered every split body; open == NULL: none */

    char* name; /* event name of the last whole frame */
    size_t name_cap;

    int busy;  /* inside input(): a handler is not allowed to feed more */
    int stop;  /* reset() was called by a handler during input() */
    int count; /* events raised by the current input() */
} kz_recv_side;

typedef struct kz_engine
{
    kz_object obj;
    /* settings, fixed at creation */
    int capacity;
    uint32_t max_body;
    int pieces;
    size_t max_frame;

    kz_send_side send;
    kz_recv_side recv;
} kz_engine;

typedef struct kz_header
{
    uint32_t flags;
    uint32_t seq;
    uint32_t attr_len;
    uint32_t data_len;
    uint32_t id;
    uint32_t total;
    uint32_t offset;
    size_t head;       /* offset of the attr bytes */
    uint32_t head_crc; /* CRC of the header bytes, where the frame CRC goes on */
    size_t frame_len;  /* whole frame including both CRCs */
} kz_header;

static kz_engine* engine_of(void* obj)
{
    /* An engine is of this very type: checked in line, the general check
     * (which walks the type chain) only for anything else. */
    const kz_object* o = obj;
    if (o && o->magic == KZ_MAGIC_LIVE && o->type == kz__protoiot) return (kz_engine*)obj;
    return kz_object_is(obj, kz__protoiot) ? (kz_engine*)obj : NULL;
}

kz_object* kz_engine_create(const kz_engine_options* options)
{
    kz_engine* e = calloc(1, sizeof *e);
    if (!e) return NULL;
    e->obj.magic = KZ_MAGIC_LIVE;
    e->obj.type = kz__protoiot;
    e->obj.handler = kz_protoiot_event_handler;
    e->obj.user = NULL;
    e->capacity = options->capacity;
    e->max_body = (uint32_t)options->max_body;
    e->pieces = options->pieces;
    e->max_frame = (size_t)KZ_PIECE_OVERHEAD + KZ_ATTR_MAX + e->max_body;
    e->recv.resync_allowance = KZ_RESYNC_BURST;
    return &e->obj;
}

/* Ends a partial body: `complete` when its event has been raised. A body
 * the host took goes back to its sink. */
static void free_slot(kz_recv_side* rs, kz_assembly* a, int complete)
{
    rs->held -= a->cap;
    if (a->taken) a->sink.close(a->sink.context, a->taken, complete);
    free(a->buf);
    free(a->name);
    memset(a, 0, sizeof *a);
}

static void drop_spare(kz_recv_side* rs)
{
    free(rs->spare);
    rs->spare = NULL;
    rs->spare_cap = 0;
}

static void recv_clear(kz_recv_side* rs)
{
    drop_spare(rs);
    free(rs->buf);
    rs->buf = NULL;
    rs->len = rs->cap = rs->need = 0;
    for (int i = 0; i < KZ_ASSEMBLIES_MAX; ++i) {
        if (rs->slots[i].used) free_slot(rs, &rs->slots[i], 0);
    }
    rs->held = 0;
}

void kz_engine_destroy(kz_object* obj)
{
    kz_engine* e = (kz_engine*)obj;
    kz_list_node* n = e->send.pending.head;
    while (n) {
        kz_list_node* next = n->next;
        free(n);
        n = next;
    }
    recv_clear(&e->recv);
    free(e->recv.name);
    free(e);
}

/* ------------------------------------------------------------------------ */
/* Pending list                                                              */
/* ------------------------------------------------------------------------ */

kz_list* kz_protocol_pending(void* engine)
{
    kz_engine* e = engine_of(engine);
    return e ? &e->send.pending : NULL;
}

kz_list_node* kz_list_node_at(kz_list* list, int index)
{
    if (!list || index < 0) return NULL;
    kz_list_node* n = list->head;
    while (n && index-- > 0) n = n->next;
    return n;
}

kz_list_node* kz_list_take_node(kz_list* list, kz_list_node* node)
{
    if (!list || !node) return NULL;
    kz_list_node* prev = NULL;
    for (kz_list_node* n = list->head; n; prev = n, n = n->next) {
        if (n != node) continue;
        if (prev) {
            prev->next = n->next;
        } else {
            list->head = n->next;
        }
        if (list->tail == n) list->tail = prev;
        list->count--;
        n->next = NULL;
        return n;
    }
    return NULL;
}

void kz_list_node_destroy(kz_list_node* node) { free(node); }

const char* kz_strnxt(const char* s) { return s ? s + strlen(s) + 1 : NULL; }

/* ------------------------------------------------------------------------ */
/* Packing                                                                   */
/* ------------------------------------------------------------------------ */

typedef struct kz_piece_info
{
    uint32_t id;
    uint32_t total;
    uint32_t offset;
} kz_piece_info;

/* Writes one frame into `out`, which has room for it; returns its length. */
static size_t write_frame(unsigned char* out, uint32_t seq, const kz_piece_info* piece,
                          const char* attr, size_t attr_len, const unsigned char* data, size_t n)
{
    size_t head = piece ? KZ_HEAD_PIECE : KZ_HEAD_WHOLE;
    out[0] = KZ_SYNC_0;
    out[1] = KZ_SYNC_1;
    out[2] = KZ_FRAME_VERSION;
    out[3] = piece ? KZ_FRAME_FLAG_PIECE : 0;
    kz_put32(out + 4, seq);
    kz_put16(out + 8, (uint32_t)attr_len);
    kz_put32(out + 10, (uint32_t)n);
    if (piece) {
        kz_put32(out + 14, piece->id);
        kz_put32(out + 18, piece->total);
        kz_put32(out + 22, piece->offset);
    }
    size_t pos = head + 4;
    if (attr_len) memcpy(out + pos, attr, attr_len);
    pos += attr_len;
    /* A body the caller already placed at its position is not moved. */
    if (n && data != out + pos) memcpy(out + pos, data, n);
    pos += n;
    /* The header CRC, and the frame CRC running on from it. */
    kz_put32(out + pos, kz_crc32_frame(out, head, pos));
    return pos + 4;
}

/* Reads a decimal u32 without sign or leading zeros. */
static int parse_u32(const char** s, uint32_t* v)
{
    const char* p = *s;
    if (*p < '0' || *p > '9') return 0;
    if (*p == '0' && p[1] >= '0' && p[1] <= '9') return 0;
    uint64_t x = 0;
    int digits = 0;
    for (; *p >= '0' && *p <= '9'; ++p) {
        x = x * 10 + (uint64_t)(*p - '0');
        if (++digits > 10 || x > UINT32_MAX) return 0;
    }
    *v = (uint32_t)x;
    *s = p;
    return 1;
}

/* Parses a piece tag "\x01P<id>:<total>:<offset>", nothing more, nothing
 * less. */
static int parse_tag(const char* tag, kz_piece_info* piece)
{
    const char* p = tag;
    if ((unsigned char)p[0] != KZ_PIECE_TAG || p[1] != 'P') return 0;
    p += 2;
    if (!parse_u32(&p, &piece->id) || *p++ != ':') return 0;
    if (!parse_u32(&p, &piece->total) || *p++ != ':') return 0;
    if (!parse_u32(&p, &piece->offset) || *p != '\0') return 0;
    return 1;
}

static int format_tag(char* tag, const kz_piece_info* piece)
{
    return snprintf(tag, KZ_TAG_SIZE, "%cP%lu:%lu:%lu", KZ_PIECE_TAG, (unsigned long)piece->id,
                    (unsigned long)piece->total, (unsigned long)piece->offset);
}

/* Makes the pending node for one piece of a split body. */
static kz_list_node* make_node(int mode, int seq, const kz_piece_info* piece,
                               const unsigned char* data, size_t n)
{
    char tag[KZ_TAG_SIZE] = "";
    size_t text_len = 0;
    size_t payload = n;
    if (mode == KZ_PIECES_PACKED) {
        payload = KZ_PIECE_OVERHEAD + n;
    } else {
        text_len = (size_t)format_tag(tag, piece);
    }
    size_t total = text_len + 1 + payload;
    if (total > INT_MAX) return NULL;
    kz_list_node* node = malloc(sizeof *node + total);
    if (!node) return NULL;
    node->next = NULL;
    node->seq = seq;
    node->total = (int)total;
    memcpy(node->bytes, tag, text_len + 1);
    unsigned char* after = (unsigned char*)node->bytes + text_len + 1;
    switch (mode) {
    case KZ_PIECES_PACKED:
        node->flags = KZ_NODE_PACKED;
        write_frame(after, (uint32_t)seq, piece, "", 0, data, n);
        break;
    case KZ_PIECES_OWN_SEQ:
        node->flags = KZ_NODE_OWN_SEQ;
        memcpy(after, data, n);
        break;
    default:
        node->flags = 0;
        memcpy(after, data, n);
        break;
    }
    return node;
}

static void free_chain(kz_list_node* n)
{
    while (n) {
        kz_list_node* next = n->next;
        free(n);
        n = next;
    }
}

/* Splits a body that does not fit one frame: the first piece goes to `out`,
 * the others to the pending list. Builds every node before touching `out`
 * or the list, so a failure leaves both unchanged. */
static int pack_split(kz_engine* e, unsigned char* out, size_t cap, int seq, const char* attr,
                      size_t attr_len, const unsigned char* body, size_t n)
{
    if (cap < KZ_PIECE_OVERHEAD + attr_len + 1) return 0;
    size_t first = cap - KZ_PIECE_OVERHEAD - attr_len;
    size_t step = cap - KZ_PIECE_OVERHEAD;
    kz_piece_info piece = {(uint32_t)seq, (uint32_t)n, 0};

    kz_list_node* head = NULL;
    kz_list_node* tail = NULL;
    int count = 0;
    for (size_t off = first; off < n;) {
        size_t chunk = n - off < step ? n - off : step;
        piece.offset = (uint32_t)off;
        kz_list_node* node = make_node(e->pieces, seq, &piece, body + off, chunk);
        if (!node) {
            free_chain(head);
            return 0;
        }
        if (tail) {
            tail->next = node;
        } else {
            head = node;
        }
        tail = node;
        count++;
        off += chunk;
    }

    piece.offset = 0;
    size_t written = write_frame(out, (uint32_t)seq, &piece, attr, attr_len, body, first);

    kz_list* list = &e->send.pending;
    if (list->tail) {
        list->tail->next = head;
    } else {
        list->head = head;
    }
    list->tail = tail;
    list->count += count;
    return (int)written;
}

int kz_protocol_pack(void* engine, void* out, int capacity, int seq, const char* attr,
                     const void* body, int length)
{
    kz_engine* e = engine_of(engine);
    if (!e || !out || length < 0 || (length > 0 && !body)) return 0;
    if (capacity <= 0) capacity = e->capacity;
    if (!attr) attr = "";
    size_t cap = (size_t)capacity;
    size_t n = (size_t)length;

    if ((unsigned char)attr[0] == KZ_PIECE_TAG) {
        kz_piece_info piece;
        if (!parse_tag(attr, &piece)) return 0;
        if (n == 0 || (uint64_t)piece.offset + n > piece.total) return 0;
        if (cap < KZ_PIECE_OVERHEAD + n) return 0;
        return (int)write_frame(out, (uint32_t)seq, &piece, "", 0, body, n);
    }

    size_t attr_len = 0;
    while (attr_len <= KZ_ATTR_MAX && attr[attr_len]) attr_len++;
    if (attr_len > KZ_ATTR_MAX) return 0;
    if (cap < KZ_FRAME_OVERHEAD + attr_len + 1) return 0;
    if (KZ_FRAME_OVERHEAD + attr_len + n <= cap) {
        return (int)write_frame(out, (uint32_t)seq, NULL, attr, attr_len, body, n);
    }
    return pack_split(e, out, cap, seq, attr, attr_len, body, n);
}

/* ------------------------------------------------------------------------ */
/* Receiving                                                                 */
/* ------------------------------------------------------------------------ */

static void raise_event(kz_engine* e, int type, const char* name, const void* data, size_t length,
                        int length2, uint32_t seq)
{
    /* The data is handed out read-only; the cast only fits the event
     * structure. */
    kz_event ev = {type, e, name, (void*)(uintptr_t)data, (int)length, length2, seq};
    e->recv.count++;
    kz_event_handler handler = e->obj.handler;
    if (handler) handler(&ev);
}

static void notice(kz_engine* e, const char* why, int reason, size_t dropped)
{
    if (dropped > INT_MAX) dropped = INT_MAX;
    raise_event(e, KZ_EVENT_NOTICE, why, why, dropped, reason, 0);
}

/* "data" or "data,<attr>" into `dst` (room for 6 + attr_len bytes). */
static void format_name(char* dst, const unsigned char* attr, size_t attr_len)
{
    memcpy(dst, "data", 4);
    if (attr_len) {
        dst[4] = ',';
        memcpy(dst + 5, attr, attr_len);
        dst[5 + attr_len] = '\0';
    } else {
        dst[4] = '\0';
    }
}

static kz_assembly* find_slot(kz_recv_side* rs, uint32_t id)
{
    for (int i = 0; i < KZ_ASSEMBLIES_MAX; ++i) {
        if (rs->slots[i].used && rs->slots[i].id == id) return &rs->slots[i];
    }
    return NULL;
}

static void drop_slot(kz_engine* e, kz_assembly* a, const char* why, int reason, size_t extra)
{
    size_t dropped = (size_t)a->have + extra;
    free_slot(&e->recv, a, 0);
    notice(e, why, reason, dropped);
}

/* Discards the partial body that has waited longest for a piece, other than
 * `keep`. Returns 0 when there is none. */
static int evict_oldest(kz_engine* e, const kz_assembly* keep)
{
    kz_recv_side* rs = &e->recv;
    kz_assembly* oldest = NULL;
    for (int i = 0; i < KZ_ASSEMBLIES_MAX; ++i) {
        kz_assembly* a = &rs->slots[i];
        if (a->used && a != keep && (!oldest || a->touched < oldest->touched)) oldest = a;
    }
    if (!oldest) return 0;
    drop_slot(e, oldest, kz_why_evicted, KZ_DROP_EVICTED, 0);
    return 1;
}

/* Can `a` grow to `want` bytes with the memory of all partial bodies
 * within the body limit? Makes room by dropping the spare buffer and, when
 * `evict`, by discarding the oldest other bodies. */
static int room_for(kz_engine* e, const kz_assembly* a, size_t want, int evict)
{
    kz_recv_side* rs = &e->recv;
    if (rs->spare && rs->held - a->cap + want + rs->spare_cap > e->max_body) drop_spare(rs);
    while (rs->held - a->cap + want > e->max_body) {
        if (!evict || !evict_oldest(e, a)) return 0;
    }
    return 1;
}

/* Makes room in `a` for `need` bytes. Grows geometrically up to the body's
 * total, and keeps the memory of all partial bodies within the body limit
 * by discarding the oldest others. */
static int reserve(kz_engine* e, kz_assembly* a, size_t need)
{
    kz_recv_side* rs = &e->recv;
    if (a->cap >= need) return 1;
    size_t want = a->cap * 2;
    if (want < KZ_BUFFER_MIN) want = KZ_BUFFER_MIN;
    if (want < need) want = need;
    if (want > a->total) want = a->total;
    if (!a->buf && rs->spare && rs->spare_cap >= need && rs->held + rs->spare_cap <= e->max_body) {
        /* A new body takes the buffer the last one left. */
        a->buf = rs->spare;
        a->cap = rs->spare_cap;
        rs->held += a->cap;
        rs->spare = NULL;
        rs->spare_cap = 0;
        return 1;
    }
    if (!room_for(e, a, want, 0)) want = need;
    if (!room_for(e, a, want, 1)) return 0;
    unsigned char* buf = realloc(a->buf, want);
    if (!buf) return 0;
    rs->held += want - a->cap;
    a->buf = buf;
    a->cap = want;
    return 1;
}

/* Offers a split body that starts to the host's sink. A body it takes
 * counts at its whole total from now on: the host holds its memory.
 * Returns 0 when that does not fit the body limit. */
static int take_body(kz_engine* e, kz_assembly* a, const unsigned char* first, size_t n)
{
    kz_recv_side* rs = &e->recv;
    void* taken = rs->sink.open(rs->sink.context, a->name, a->total, first, n);
    if (!taken) return 1;
    a->taken = taken;
    a->sink = rs->sink;
    if (!room_for(e, a, a->total, 1)) return 0;
    rs->held += a->total - a->cap;
    a->cap = a->total;
    return 1;
}

static void on_piece(kz_engine* e, const kz_header* h, const unsigned char* attr,
                     const unsigned char* data)
{
    kz_recv_side* rs = &e->recv;
    size_t n = h->data_len;
    kz_assembly* a = find_slot(rs, h->id);
    rs->clock++;

    if (h->offset == 0) {
        if (a) drop_slot(e, a, kz_why_replaced, KZ_DROP_REPLACED, 0);
        a = NULL;
        for (int i = 0; i < KZ_ASSEMBLIES_MAX && !a; ++i) {
            if (!rs->slots[i].used) a = &rs->slots[i];
        }
        if (!a) {
            evict_oldest(e, NULL);
            for (int i = 0; i < KZ_ASSEMBLIES_MAX && !a; ++i) {
                if (!rs->slots[i].used) a = &rs->slots[i];
            }
        }
        char* name = malloc(6 + h->attr_len);
        if (!a || !name) {
            free(name);
            notice(e, kz_why_memory, KZ_DROP_MEMORY, n);
            return;
        }
        format_name(name, attr, h->attr_len);
        a->used = 1;
        a->id = h->id;
        a->total = h->total;
        a->have = 0;
        a->pieces = 0;
        a->name = name;
        if (rs->sink.open && !take_body(e, a, data, n)) {
            drop_slot(e, a, kz_why_memory, KZ_DROP_MEMORY, n);
            return;
        }
    } else if (!a) {
        notice(e, kz_why_orphan, KZ_DROP_ORPHAN, n);
        return;
    } else if (a->total != h->total || a->have != h->offset) {
        drop_slot(e, a, kz_why_order, KZ_DROP_ORDER, n);
        return;
    }

    a->touched = rs->clock;
    if (a->taken) {
        if (!a->sink.put(a->sink.context, a->taken, a->have, data, n)) {
            drop_slot(e, a, kz_why_memory, KZ_DROP_MEMORY, n);
            return;
        }
    } else if (reserve(e, a, (size_t)a->have + n)) {
        memcpy(a->buf + a->have, data, n);
    } else {
        drop_slot(e, a, kz_why_memory, KZ_DROP_MEMORY, n);
        return;
    }
    a->have += (uint32_t)n;
    a->pieces++;
    if (a->have == a->total && a->taken) {
        raise_event(e, KZ_EVENT_TAKEN, a->name, a->taken, a->total, a->pieces, a->id);
        free_slot(rs, a, 1);
    } else if (a->have == a->total) {
        /* The handler may change the body in place: it is ours and freed
         * right after. */
        raise_event(e, KZ_EVENT_DATA, a->name, a->buf, a->total, a->pieces, a->id);
        /* Its buffer waits for the next split body (the spare, if any,
         * was taken by this one or is smaller than the budget allows). */
        unsigned char* buf = a->buf;
        const size_t cap = a->cap;
        a->buf = NULL;
        free_slot(rs, a, 1);
        drop_spare(rs);
        if (rs->held + cap <= e->max_body && !rs->stop) {
            rs->spare = buf;
            rs->spare_cap = cap;
        } else {
            free(buf);
        }
    }
}

/* A whole frame that passed its checks: counted, and its event raised. */
static void on_whole(kz_engine* e, const unsigned char* attr, size_t attr_len,
                     const unsigned char* data, size_t data_len, uint32_t seq)
{
    kz_recv_side* rs = &e->recv;
    rs->stats.frames++;
    if (rs->whole_run < KZ_SPARE_IDLE_FRAMES && ++rs->whole_run == KZ_SPARE_IDLE_FRAMES)
        drop_spare(rs);
    size_t need = 6 + attr_len;
    if (rs->name_cap < need) {
        char* name = realloc(rs->name, need);
        if (!name) {
            notice(e, kz_why_memory, KZ_DROP_MEMORY, data_len);
            return;
        }
        rs->name = name;
        rs->name_cap = need;
    }
    format_name(rs->name, attr, attr_len);
    raise_event(e, KZ_EVENT_DATA, rs->name, data, data_len, 1, seq);
}

/* The usual frame: whole, all in `p`, no longer than KZ_CRC_TOGETHER_MAX,
 * checked in one checksum pass and handled. Returns its length, or 0 for
 * anything else (a piece, a frame still arriving or larger, one that fails
 * a check), which the general path then looks at as if this had not. */
static size_t take_small_whole(kz_engine* e, const unsigned char* p, size_t avail)
{
    if (avail < KZ_FRAME_OVERHEAD || p[1] != KZ_SYNC_1 || p[2] != KZ_FRAME_VERSION || p[3] != 0)
        return 0;
    const uint32_t attr_len = kz_get16(p + 8);
    const uint32_t data_len = kz_get32(p + 10);
    const uint64_t frame_len = (uint64_t)KZ_FRAME_OVERHEAD + attr_len + data_len;
    if (frame_len > avail || frame_len > KZ_CRC_TOGETHER_MAX || data_len > e->max_body) return 0;
    const size_t crc_at = (size_t)frame_len - 4;
    uint32_t whole;
    if (kz_crc32_frame_check(p, KZ_HEAD_WHOLE, crc_at, &whole) != kz_get32(p + KZ_HEAD_WHOLE) ||
        whole != kz_get32(p + crc_at))
        return 0;
    const unsigned char* attr = p + KZ_HEAD_WHOLE + 4;
    on_whole(e, attr, attr_len, attr + attr_len, data_len, kz_get32(p + 4));
    return (size_t)frame_len;
}

enum { HEAD_NEED_MORE, HEAD_GARBAGE, HEAD_REJECTED, HEAD_TOO_LARGE, HEAD_OK };

/* Looks at a candidate that starts with the sync marker. On HEAD_NEED_MORE
 * `*need` is the length it must reach first. */
static int parse_header(const kz_engine* e, const unsigned char* p, size_t avail, kz_header* h,
                        size_t* need)
{
    if (avail < 4) {
        *need = 4;
        return HEAD_NEED_MORE;
    }
    if (p[2] != KZ_FRAME_VERSION || (p[3] & ~KZ_FRAME_FLAG_PIECE) != 0) return HEAD_GARBAGE;
    h->flags = p[3];
    size_t head = (h->flags & KZ_FRAME_FLAG_PIECE) ? KZ_HEAD_PIECE : KZ_HEAD_WHOLE;
    if (avail < head + 4) {
        *need = head + 4;
        return HEAD_NEED_MORE;
    }
    h->head_crc = kz_crc32_in(0, p, head, p, p + avail);
    if (h->head_crc != kz_get32(p + head)) return HEAD_GARBAGE;

    h->seq = kz_get32(p + 4);
    h->attr_len = kz_get16(p + 8);
    h->data_len = kz_get32(p + 10);
    h->head = head + 4;
    if (h->flags & KZ_FRAME_FLAG_PIECE) {
        h->id = kz_get32(p + 14);
        h->total = kz_get32(p + 18);
        h->offset = kz_get32(p + 22);
        if (h->data_len == 0 || (uint64_t)h->offset + h->data_len > h->total ||
            (h->offset != 0 && h->attr_len != 0))
            return HEAD_REJECTED;
        if (h->total > e->max_body) return HEAD_TOO_LARGE;
    } else {
        h->id = h->offset = 0;
        h->total = h->data_len;
        if (h->data_len > e->max_body) return HEAD_TOO_LARGE;
    }
    h->frame_len = h->head + h->attr_len + h->data_len + 4;
    return HEAD_OK;
}

/* Handles every complete frame in buf[0, len) and skips what is not a
 * frame. Returns the number of bytes used up; the rest starts with an
 * incomplete candidate that must reach `*need` bytes. */
/* May the failed frame ending at stream offset `end` be left one byte past
 * its start, at a checksum cost of `cost`? Otherwise it is skipped whole. */
static int may_resync_inside(kz_recv_side* rs, uint64_t end, size_t cost)
{
    if (end > rs->resync_mark) {
        rs->resync_allowance += (end - rs->resync_mark) * KZ_RESYNC_PER_BYTE;
        if (rs->resync_allowance > KZ_RESYNC_BURST) rs->resync_allowance = KZ_RESYNC_BURST;
        rs->resync_mark = end;
    }
    if (rs->resync_allowance < cost) {
        rs->resync_allowance = 0;
        return 0;
    }
    rs->resync_allowance -= cost;
    return 1;
}

/* A well-formed header that claims a body over the limit. A split body is
 * reported once, at the first of its pieces seen; its later pieces go
 * without a notice of their own. */
static void refuse(kz_engine* e, const kz_header* h)
{
    kz_recv_side* rs = &e->recv;
    if (h->flags & KZ_FRAME_FLAG_PIECE) {
        if (rs->refused && rs->refused_id == h->id && h->offset != 0) return;
        rs->refused = 1;
        rs->refused_id = h->id;
    }
    notice(e, kz_why_too_large, KZ_DROP_TOO_LARGE, h->total);
}

/* `base` is the stream offset of buf[0]. */
static size_t scan(kz_engine* e, const unsigned char* buf, size_t len, uint64_t base, size_t* need)
{
    size_t pos = 0;
    *need = 0;
    while (pos < len && !e->recv.stop) {
        const unsigned char* p = buf + pos;
        size_t avail = len - pos;
        if (p[0] != KZ_SYNC_0) {
            const unsigned char* k = memchr(p + 1, KZ_SYNC_0, avail - 1);
            const size_t next = k ? (size_t)(k - buf) : len;
            e->recv.stats.skipped += next - pos;
            pos = next;
            continue;
        }
        const size_t small = take_small_whole(e, p, avail);
        if (small) {
            pos += small;
            continue;
        }
        if (avail < 2) {
            *need = 2;
            return pos;
        }
        if (p[1] != KZ_SYNC_1) {
            e->recv.stats.skipped++;
            pos++;
            continue;
        }
        kz_header h;
        size_t more = 0;
        switch (parse_header(e, p, avail, &h, &more)) {
        case HEAD_NEED_MORE:
            *need = more;
            return pos;
        case HEAD_GARBAGE:
            e->recv.stats.skipped++;
            pos++;
            continue;
        case HEAD_REJECTED:
            notice(e, kz_why_limits, KZ_DROP_HEADER, h.head);
            e->recv.stats.skipped++;
            pos++;
            continue;
        case HEAD_TOO_LARGE:
            refuse(e, &h);
            e->recv.stats.skipped++;
            pos++;
            continue;
        default:
            break;
        }
        if (avail < h.frame_len) {
            *need = h.frame_len;
            return pos;
        }
        size_t crc_at = h.frame_len - 4;
        const size_t head = h.head - 4;
        if (kz_crc32_in(h.head_crc, p + head, crc_at - head, p, p + h.frame_len) !=
            kz_get32(p + crc_at)) {
            notice(e, kz_why_crc, KZ_DROP_CHECKSUM, h.frame_len);
            const size_t step =
                may_resync_inside(&e->recv, base + pos + h.frame_len, crc_at) ? 1 : h.frame_len;
            e->recv.stats.skipped += step;
            pos += step;
            continue;
        }
        const unsigned char* attr = p + h.head;
        const unsigned char* data = attr + h.attr_len;
        if (h.flags & KZ_FRAME_FLAG_PIECE) {
            e->recv.stats.frames++;
            e->recv.whole_run = 0;
            on_piece(e, &h, attr, data);
        } else {
            on_whole(e, attr, h.attr_len, data, h.data_len, h.seq);
        }
        pos += h.frame_len;
    }
    return pos;
}

static int rx_append(kz_engine* e, const unsigned char* bytes, size_t n)
{
    kz_recv_side* rs = &e->recv;
    size_t need = rs->len + n;
    if (need > rs->cap) {
        size_t want = rs->cap * 2;
        if (want < KZ_BUFFER_MIN) want = KZ_BUFFER_MIN;
        if (want > e->max_frame) want = e->max_frame;
        if (want < need) want = need;
        unsigned char* buf = realloc(rs->buf, want);
        if (!buf) return 0;
        rs->buf = buf;
        rs->cap = want;
    }
    memcpy(rs->buf + rs->len, bytes, n);
    rs->len += n;
    return 1;
}

static void engine_reset(void* engine)
{
    kz_engine* e = engine_of(engine);
    if (!e) return;
    if (e->recv.busy) {
        /* Called from a handler: the scan still uses the buffers. */
        e->recv.stop = 1;
        return;
    }
    recv_clear(&e->recv);
}

static int engine_input(void* engine, const void* bytes, int length)
{
    kz_engine* e = engine_of(engine);
    if (!e) return -1;
    kz_recv_side* rs = &e->recv;
    if (rs->busy) return -1;
    if (!bytes || length <= 0) return 0;

    rs->busy = 1;
    rs->stop = 0;
    rs->count = 0;
    const unsigned char* in = bytes;
    size_t left = (size_t)length;
    while (left > 0 && !rs->stop) {
        size_t need = 0;
        if (rs->len == 0) {
            /* Nothing buffered: frames are handled straight from the
             * caller's bytes and only an incomplete tail is kept. */
            const uint64_t base = rs->stats.bytes_in;
            rs->stats.bytes_in += left;
            size_t used = scan(e, in, left, base, &need);
            if (!rs->stop && used < left) {
                if (!rx_append(e, in + used, left - used)) {
                    notice(e, kz_why_memory, KZ_DROP_MEMORY, left - used);
                    rs->stop = 1;
                }
                rs->need = need;
            }
            left = 0;
            continue;
        }
        /* Complete the buffered candidate, never taking more than it needs,
         * so the buffer stays within one frame. */
        size_t take = rs->need - rs->len;
        if (take > left) take = left;
        if (!rx_append(e, in, take)) {
            notice(e, kz_why_memory, KZ_DROP_MEMORY, rs->len + left);
            rs->stop = 1;
            break;
        }
        in += take;
        left -= take;
        rs->stats.bytes_in += take;
        if (rs->len < rs->need) continue;
        size_t used = scan(e, rs->buf, rs->len, rs->stats.bytes_in - rs->len, &need);
        if (rs->stop) break;
        rs->len -= used;
        if (rs->len) {
            memmove(rs->buf, rs->buf + used, rs->len);
            rs->need = need;
        } else {
            rs->need = 0;
            if (rs->cap > KZ_RX_KEEP_MAX) {
                free(rs->buf);
                rs->buf = NULL;
                rs->cap = 0;
            }
        }
    }
    if (rs->stop) {
        recv_clear(rs);
        rs->stop = 0;
    }
    rs->busy = 0;
    return rs->count;
}

int kz_protocol_option(void* engine, int selector)
{
    kz_engine* e = engine_of(engine);
    if (!e) return -1;
    switch (selector) {
    case KZ_OPT_CAPACITY:
        return e->capacity;
    case KZ_OPT_MAX_BODY:
        return (int)e->max_body;
    case KZ_OPT_PIECES:
        return e->pieces;
    default:
        return -1;
    }
}

int kz_protocol_set_max_body(void* engine, int max_body)
{
    kz_engine* e = engine_of(engine);
    if (!e || max_body < 1 || e->recv.busy) return -1;
    e->max_body = (uint32_t)max_body;
    e->max_frame = (size_t)KZ_PIECE_OVERHEAD + KZ_ATTR_MAX + e->max_body;
    if (e->recv.spare && e->recv.held + e->recv.spare_cap > e->max_body) drop_spare(&e->recv);
    return 0;
}

int kz_protocol_pack_piece(void* engine, void* out, int capacity, int seq, uint32_t id,
                           uint32_t total, uint32_t offset, const void* data, int length)
{
    kz_engine* e = engine_of(engine);
    if (!e || !out || length <= 0 || !data) return 0;
    if (capacity <= 0) capacity = e->capacity;
    size_t n = (size_t)length;
    if ((uint64_t)offset + n > total) return 0;
    if ((size_t)capacity < KZ_PIECE_OVERHEAD + n) return 0;
    kz_piece_info piece = {id, total, offset};
    return (int)write_frame(out, (uint32_t)seq, &piece, "", 0, data, n);
}

int kz_protocol_pack_whole(void* engine, void* out, int seq, int length)
{
    kz_engine* e = engine_of(engine);
    if (!e || !out || length < 0 || length > e->capacity - KZ_FRAME_OVERHEAD) return 0;
    unsigned char* frame = out;
    return (int)write_frame(frame, (uint32_t)seq, NULL, "", 0, frame + KZ_FRAME_DATA_AT(0),
                            (size_t)length);
}

const kz_protoiot_ops kz_protoiot_engine = {engine_reset, engine_input};

int kz_protocol_rx_stats(void* engine, kz_rx_stats* out)
{
    kz_engine* e = engine_of(engine);
    if (!e || !out) return -1;
    *out = e->recv.stats;
    return 0;
}

const kz_rx_stats* kz_protocol_rx_counts(void* engine)
{
    kz_engine* e = engine_of(engine);
    return e ? &e->recv.stats : NULL;
}

int kz_protocol_set_body_sink(void* engine, const kz_body_sink* sink)
{
    kz_engine* e = engine_of(engine);
    if (!e) return -1;
    if (sink && sink->open && (!sink->put || !sink->close)) return -1;
    if (sink && sink->open) {
        e->recv.sink = *sink;
    } else {
        memset(&e->recv.sink, 0, sizeof e->recv.sink);
    }
    return 0;
}
