// Receiving: bytes fed to the frame engine, its events handled as it raises
// them (or queued, for input fed elsewhere), each body decoded and handed to
// dispatch; a split body whose last field is large is taken piece by piece
// straight into the array its callback gets.
#include "kzprotocolresolver_p.h"

#include <kzapin/kzapin.h>

#include <QDebug>

#include <memory>
#include <mutex>
#include <new>

using namespace kz;

// The resolver whose engine this thread is feeding input to: its events
// need no checked cast to find their way back.
static thread_local KZProtocolResolverPrivate* feeding KZ_FAST_TLS = nullptr;

// Receive-side problems are one line on the "default" category, without
// file, line or function, so hosts filter and route them like qDebug().
static QDebug debugLine() { return QMessageLogger(nullptr, 0, nullptr).debug(); }

// ---------------------------------------------------------------------------
// Large last fields, received in place
// ---------------------------------------------------------------------------

namespace {

// The messages that end in a byte field which can be large, with where its
// bytes start.
struct TrailingField
{
    Method code;
    uchar flag;
    int (*at)(Reader& r);
};
const TrailingField kTrailingFields[] = {
    {Method::MacTsfFileContent, Request, &KZProtocolResolverPrivate::fileContentDataAt},
    {Method::RemoteUpdateAttr, Reply, &KZProtocolResolverPrivate::updateDataAt},
    {Method::RemoteUpdateImage, Reply, &KZProtocolResolverPrivate::updateDataAt},
    {Method::RemoteUpdateScreen, Reply, &KZProtocolResolverPrivate::updateDataAt},
};

// Bodies from this size on are worth taking: below it the field is small
// and the engine's buffer is warm.
constexpr uint32_t kTakeFrom = 16 * 1024;

} // namespace

struct KZProtocolResolverPrivate::TakenBody
{
    // The field starts within the first bytes of the body or the body is
    // left to the engine.
    static constexpr int kHeadMax = 256;
    uchar head[kHeadMax]; // bytes [0, split), decoded
    int split = 0;
    QByteArray tail; // bytes [split, total), decoded as they arrive
    char* tailData = nullptr;

    // Where the large last field of the body that starts with the `seen`
    // decoded bytes of `head` begins: -1 when the body is not one of those
    // messages or the field does not begin within them.
    int fieldAt(int seen) const
    {
        if (seen < 4 || head[1] != kMessageType) return -1;
        const quint16 code = quint16(head[2] | head[3] << 8);
        for (const TrailingField& f : kTrailingFields) {
            if (quint16(f.code) != code || f.flag != head[0]) continue;
            Reader r(head + 4, seen - 4);
            const int at = f.at(r);
            return r.isShort() ? -1 : 4 + at;
        }
        return -1;
    }
};

static void* openBody(void*, const char*, uint32_t total, const void* first, size_t length)
{
    using TakenBody = KZProtocolResolverPrivate::TakenBody;
    if (total < kTakeFrom || length < 4) return nullptr;
    std::unique_ptr<TakenBody> body(new (std::nothrow) TakenBody);
    if (!body) return nullptr;
    const auto* in = static_cast<const uchar*>(first);
    const int seen = int(qMin<size_t>(length, TakenBody::kHeadMax));
    // The coding starts at body byte 1.
    body->head[0] = in[0];
    kz_coding_code_at(body->head + 1, in + 1, seen - 1, 0);
    body->split = body->fieldAt(seen);
    if (body->split < 0) return nullptr;
    try {
        body->tail = QByteArray(int(total) - body->split, Qt::Uninitialized);
    } catch (const std::bad_alloc&) {
        return nullptr; // the engine assembles it, within its own limits
    }
    body->tailData = body->tail.data();
    return body.release();
}

static int putBody(void*, void* taken, uint32_t offset, const void* data, size_t length)
{
    auto* body = static_cast<KZProtocolResolverPrivate::TakenBody*>(taken);
    // The bytes before the field were decoded when the body was opened.
    const qint64 end = qint64(offset) + qint64(length);
    const qint64 from = qMax<qint64>(offset, body->split);
    if (from < end)
        kz_coding_code_at(body->tailData + (from - body->split),
                          static_cast<const uchar*>(data) + (from - offset), int(end - from),
                          from - 1);
    return 1;
}

static void closeBody(void*, void* taken, int)
{
    delete static_cast<KZProtocolResolverPrivate::TakenBody*>(taken);
}

const kz_body_sink KZProtocolResolverPrivate::kBodySink = {&openBody, &putBody, &closeBody,
                                                           nullptr};

// ---------------------------------------------------------------------------
// Receiving
// ---------------------------------------------------------------------------

static KZProtocolResolver::DropReason reasonOfNotice(int code);

void KZProtocolResolverPrivate::parseReceive(const QByteArray& bytes)
{
    // Only this thread ever finds its own id here, so relaxed order will do.
    // The id is the address of a thread-local: no call to look it up.
    const void* const self = &feeding;
    if (drainingThread.load(std::memory_order_relaxed) == self) {
        // Called from one of our callbacks: the event lock is held by this
        // very thread, so take the bytes after the current drain.
        deferredInput.append(bytes);
        return;
    }
    const CallScope scope(this); // a message callback may delete the resolver
    feed(bytes);
    // Once retired, the rest is freed with the object.
    while (!retired() && !deferredInput.isEmpty()) {
        QByteArray more;
        more.swap(deferredInput);
        feed(more);
    }
}

void KZProtocolResolverPrivate::setMaxBody(int bytes)
{
    if (bytes < 1 || !engine) return;
    // Inside a callback the engine is still reading the current block.
    if (drainingThread.load(std::memory_order_relaxed))
        pendingMaxBody = bytes;
    else
        kz_protocol_set_max_body(engine, bytes);
}

int KZProtocolResolverPrivate::maxBody() const
{
    if (pendingMaxBody > 0) return pendingMaxBody;
    return engine ? kz_protocol_option(engine, KZ_OPT_MAX_BODY) : 0;
}

void KZProtocolResolverPrivate::feed(const QByteArray& bytes)
{
    const std::lock_guard<QBasicMutex> lock(eventLock);
    counters.add(counters.bytesReceived, quint64(bytes.size()));
    drainingThread.store(&feeding, std::memory_order_relaxed);
    // Events queued before (by input fed to the engine elsewhere) come
    // first; those of this input are handled as the engine raises them.
    if (!eventQueue.isEmpty()) drainQueue();
    if (engine && !bytes.isEmpty() && !retired()) {
        handleAtOnce = true;
        KZProtocolResolverPrivate* const outer = feeding;
        feeding = this;
        kz_protoiot_engine.input(engine, bytes.constData(), bytes.size());
        feeding = outer;
        handleAtOnce = false;
        if (rxCounts) {
            counters.framesAccepted.store(rxCounts->frames, std::memory_order_relaxed);
            counters.garbageBytes.store(rxCounts->skipped, std::memory_order_relaxed);
        }
    }
    if (!eventQueue.isEmpty()) drainQueue();
    drainingThread.store(nullptr, std::memory_order_relaxed);
    if (pendingMaxBody > 0 && engine) {
        kz_protocol_set_max_body(engine, pendingMaxBody);
        pendingMaxBody = 0;
    }
}

void KZProtocolResolverPrivate::drainQueue()
{
    while (!eventQueue.isEmpty() && !retired()) {
        ReceivedEvent* record = eventQueue.takeFirst();
        if (!record) continue;
        parseReadEvent(record);
        delete record;
    }
}

int KZProtocolResolverPrivate::eventHandler(kz_event* e)
{
    if (!e || !e->data) {
        debugLine() << "before reutrn e || e->data nullptr";
        return 0;
    }
    // The engine this thread is feeding is known to be ours; any other
    // object is checked before its resolver is looked up.
    KZProtocolResolverPrivate* self = feeding;
    if (!self || e->object != self->engine) {
        auto* proto = static_cast<kz_object*>(
            kz_type_cast2(e->object, kz__protocol, "parseReadEvent", kSourceName, 276));
        if (!proto) {
            debugLine() << "before return proto";
            return 0;
        }
        self = static_cast<KZProtocolResolverPrivate*>(proto->user);
        if (!self) {
            debugLine() << "before return resolver nullptr";
            return 0;
        }
    }
    if (e->type != KZ_EVENT_DATA && e->type != KZ_EVENT_NOTICE && e->type != KZ_EVENT_TAKEN)
        return kz_protoiot_event_handler(e);

    if (self->handleAtOnce) {
        // Raised inside parseReceive, which holds the event lock on this
        // thread and has drained the queue: handle the event now, from the
        // engine's bytes, in the order the engine raises them.
        if (self->retired()) {
            kz_protoiot_engine.reset(self->engine); // nothing more is wanted
            return 0;
        }
        if (e->type == KZ_EVENT_NOTICE) {
            self->drop(reasonOfNotice(e->length2), e->length);
            return kz_protoiot_event_handler(e);
        }
        if (e->type == KZ_EVENT_TAKEN) {
            auto* taken = static_cast<TakenBody*>(e->data);
            self->dispatchTaken(taken->head, taken->split, &taken->tail);
            return 0;
        }
        // A reassembled body is the engine's own and may be decoded in place.
        self->handleBody(static_cast<uchar*>(e->data), e->length, e->length2 > 1);
        return 0;
    }

    auto* record = new ReceivedEvent;
    record->type = e->type;
    record->length = e->length;
    record->length2 = e->length2;
    if (e->type == KZ_EVENT_DATA && e->length > 0)
        record->data = QByteArray(static_cast<const char*>(e->data), e->length);
    if (e->type == KZ_EVENT_TAKEN) {
        auto* taken = static_cast<TakenBody*>(e->data);
        record->data = QByteArray(reinterpret_cast<const char*>(taken->head), taken->split);
        record->tail.swap(taken->tail);
    }
    {
        const std::lock_guard<QBasicMutex> lock(self->eventLock);
        self->eventQueue.append(record);
    }
    return e->type == KZ_EVENT_DATA ? 0 : kz_protoiot_event_handler(e);
}

// The frame layer's drop notices, by their reason code.
static KZProtocolResolver::DropReason reasonOfNotice(int code)
{
    switch (code) {
    case KZ_DROP_TOO_LARGE:
        return KZProtocolResolver::DropOversizedBody;
    case KZ_DROP_CHECKSUM:
        return KZProtocolResolver::DropBadChecksum;
    case KZ_DROP_ORPHAN:
        return KZProtocolResolver::DropOrphanPiece;
    case KZ_DROP_ORDER:
        return KZProtocolResolver::DropPieceOutOfOrder;
    case KZ_DROP_REPLACED:
    case KZ_DROP_EVICTED:
        return KZProtocolResolver::DropUnfinishedBody;
    case KZ_DROP_MEMORY:
        return KZProtocolResolver::DropOutOfMemory;
    default:
        return KZProtocolResolver::DropBadHeader;
    }
}

void KZProtocolResolverPrivate::parseReadEvent(ReceivedEvent* record)
{
    if (record->type == KZ_EVENT_NOTICE) {
        // Queued for the count and the log line only.
        drop(reasonOfNotice(record->length2), record->length);
        return;
    }
    if (record->type == KZ_EVENT_TAKEN) {
        dispatchTaken(reinterpret_cast<const uchar*>(record->data.constData()), record->data.size(),
                      &record->tail);
        return;
    }
    if (record->type != KZ_EVENT_DATA) return;
    handleBody(reinterpret_cast<uchar*>(record->data.data()), record->data.size(), true);
}

void KZProtocolResolverPrivate::handleBody(uchar* data, int length, bool writable)
{
    if (!data || length <= 0) {
        debugLine() << "data==nullptr || data_len ==0 and ready to return "
                    << static_cast<const void*>(nullptr) << 0;
        drop(KZProtocolResolver::DropEmptyBody, 0);
        return;
    }
    if (writable && length >= kDecodeLazilyFrom) {
        // A large body in a buffer of its own: only its header is decoded
        // now, the rest as the decoder reads it.
        kz_coding_decrypt_fast(data + 1, data + 1, 3);
        if (isMessage(data, length)) dispatchCoded(data, length - 4);
        return;
    }
    // Decoded in place when the bytes may be changed, otherwise into the
    // scratch buffer kept from one message to the next.
    uchar* body = data;
    if (!writable) {
        if (scratchSize < length) {
            scratch.reset(new (std::nothrow) uchar[size_t(length)]);
            scratchSize = scratch ? length : 0;
            if (!scratch) {
                drop(KZProtocolResolver::DropOutOfMemory, length);
                return;
            }
        }
        body = scratch.get();
        body[0] = data[0];
    }
    kz_coding_decrypt_fast(body + 1, data + 1, length - 1);
    // The event name may carry the peer's attr text after a comma; no
    // message uses it.
    if (isMessage(body, length)) dispatch(body, length - 4);
    if (scratchSize > kScratchKeep) {
        // One large whole frame does not pin its memory.
        scratch.reset();
        scratchSize = 0;
    }
}

bool KZProtocolResolverPrivate::isMessage(const uchar* body, int length)
{
    if (length < 4) {
        drop(KZProtocolResolver::DropShortBody, length);
        return false;
    }
    if (body[1] != kMessageType) {
        drop(KZProtocolResolver::DropUnknownType, length, body[1]);
        return false;
    }
    return true;
}
