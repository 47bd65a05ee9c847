// The frame engine alone, in two modes picked by the first byte.
//
// Receive (even first byte): arbitrary bytes into the engine's input
// operation, cut at fuzzer-chosen points, with a body limit the fuzzer picks
// so that the limit paths are reachable with short inputs. The handler reads
// every byte of every event, may reset the engine or try to feed it again
// from inside the handler.
//   Input: u8 mode, u8 limit choice, u8 reset-at event number (0 = never),
//   u8 n (cut count, modulo 16), n x u16 cut offsets, then the bytes.
//
// Pack (odd first byte): packing of an arbitrary body with an arbitrary
// capacity, attr and piece mode, the pending pieces drained as the resolver
// drains them, then reassembly by a second engine: the body must come out
// exactly once, under its name, with no drop notice.
//   Input: u8 mode, u8 piece mode, u16 capacity (modulo 4200; 0 takes the
//   engine's default), u8 attr length (modulo 24), the attr, then the body.
#include "fuzz_util.h"
#include "kernels.h"

#include <QList>

#include <algorithm>
#include <vector>

namespace {

using kzfuzz::check;

const int kLimits[] = {1, 16, 200, 4096, KZ_DEFAULT_MAX_BODY};

struct Receiving
{
    void* engine = nullptr;
    int limit = 0;
    int resetAt = 0;
    int events = 0;
    quint64 touched = 0;
};

int onReceive(kz_event* e)
{
    auto* r = static_cast<Receiving*>(static_cast<kz_object*>(e->object)->user);
    check(e->object == r->engine, "event raised by another object");
    check(e->type == KZ_EVENT_DATA || e->type == KZ_EVENT_NOTICE, "unknown event type");
    check(e->name != nullptr, "event without a name");
    r->touched += std::strlen(e->name);
    check(e->length >= 0, "negative event length");
    if (e->type == KZ_EVENT_DATA) {
        check(e->length <= r->limit, "body larger than the engine's limit");
        check(e->length2 >= 1, "body made of no frame");
        check(e->length == 0 || e->data != nullptr, "body without data");
        const auto* p = static_cast<const unsigned char*>(e->data);
        for (int i = 0; i < e->length; ++i) r->touched += p[i];
    } else {
        r->touched += std::strlen(static_cast<const char*>(e->data));
    }
    if (++r->events == r->resetAt) {
        check(kz_protoiot_engine.input(r->engine, "KZ", 2) == -1, "nested input accepted");
        kz_protoiot_engine.reset(r->engine);
    }
    return 0;
}

void receive(kzfuzz::Input& in)
{
    Receiving r;
    r.limit = kLimits[in.u8() % (sizeof(kLimits) / sizeof(kLimits[0]))];
    r.resetAt = in.u8();
    const int cutCount = in.u8() % 16;
    std::vector<quint16> raw;
    for (int i = 0; i < cutCount; ++i) raw.push_back(in.u16());
    const QByteArray bytes = in.rest();

    std::vector<int> cuts;
    for (quint16 c : raw) cuts.push_back(int(c % (bytes.size() + 1)));
    std::sort(cuts.begin(), cuts.end());
    cuts.push_back(bytes.size());

    r.engine = kz_type_new(kz__protoiot, KZ_OPT_MAX_BODY, r.limit, 0);
    auto* obj = static_cast<kz_object*>(r.engine);
    obj->user = &r;
    obj->handler = &onReceive;
    int from = 0;
    for (int to : cuts) {
        check(kz_protoiot_engine.input(r.engine, bytes.constData() + from, to - from) >= 0,
              "input refused");
        from = to;
    }
    kz_type_delete(r.engine);
}

struct Reassembly
{
    QList<QByteArray> bodies;
    QList<QByteArray> names;
    int notices = 0;
};

int onReassembled(kz_event* e)
{
    auto* r = static_cast<Reassembly*>(static_cast<kz_object*>(e->object)->user);
    if (e->type == KZ_EVENT_DATA) {
        r->bodies.append(QByteArray(static_cast<const char*>(e->data), e->length));
        r->names.append(QByteArray(e->name));
    } else {
        r->notices++;
    }
    return 0;
}

/// A zeroed heap block of exactly `n` bytes, so that a write past the
/// capacity is caught.
char* block(int n) { return static_cast<char*>(std::calloc(size_t(n), 1)); }

void pack(kzfuzz::Input& in)
{
    const int mode = in.u8() % 3;
    const int capacity = in.u16() % 4200;
    QByteArray attr = in.bytes(in.u8() % 24);
    const QByteArray body = in.rest();
    attr.replace('\0', 'a');
    const int room = capacity > 0 ? capacity : KZ_DEFAULT_CAPACITY;

    void* engine = kz_type_new(kz__protoiot, KZ_OPT_PIECES, mode, 0);
    QList<QByteArray> frames;
    char* out = block(room);
    const int n =
        kz_protocol_pack(engine, out, capacity, 7, attr.constData(), body.constData(), body.size());
    check(n >= 0 && n <= room, "packed more than the capacity");
    if (n > 0) frames.append(QByteArray(out, n));
    std::free(out);

    kz_list* pending = kz_protocol_pending(engine);
    check(n > 0 || pending->count == 0, "pieces left behind by a failed pack");
    int seq = 8;
    while (kz_list_node* node = kz_list_take_node(pending, kz_list_node_at(pending, 0))) {
        const int textLength = int(std::strlen(node->bytes));
        const int dataLength = node->total - textLength - 1;
        check(dataLength > 0, "empty piece");
        char* buffer = block(room);
        int m = 0;
        if (node->flags & KZ_NODE_PACKED) {
            check(dataLength <= room, "packed piece larger than the capacity");
            std::memcpy(buffer, kz_strnxt(node->bytes), size_t(dataLength));
            m = dataLength;
        } else {
            const int pieceSeq = (node->flags & KZ_NODE_OWN_SEQ) ? node->seq : seq++;
            m = kz_protocol_pack(engine, buffer, capacity, pieceSeq, node->bytes,
                                 kz_strnxt(node->bytes), dataLength);
            check(m > 0 && m <= room, "a pending piece does not pack into the capacity");
        }
        frames.append(QByteArray(buffer, m));
        std::free(buffer);
        kz_list_node_destroy(node);
    }
    kz_type_delete(engine);

    // An attr starting with byte 1 is a piece tag: whatever it made is not a
    // message of its own, so only the bounds above apply.
    if (n == 0 || attr.startsWith('\x01')) return;

    Reassembly r;
    void* receiver = kz_type_new(kz__protoiot, 0);
    static_cast<kz_object*>(receiver)->user = &r;
    static_cast<kz_object*>(receiver)->handler = &onReassembled;
    for (const QByteArray& f : frames) kz_protoiot_engine.input(receiver, f.constData(), f.size());
    kz_type_delete(receiver);

    check(r.notices == 0, "reassembly raised a drop notice");
    check(r.bodies.size() == 1, "the body did not come out exactly once");
    check(r.bodies[0] == body, "the body came out changed");
    check(r.names[0] == (attr.isEmpty() ? QByteArray("data") : "data," + attr),
          "the body came out under another name");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const int kernels = kzfuzz::pinKernels();
    (void)kernels;
    kzfuzz::Input in(data, size);
    if (in.u8() % 2 == 0)
        receive(in);
    else
        pack(in);
    return 0;
}
