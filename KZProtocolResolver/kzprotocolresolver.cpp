// The resolver frame: construction, the callback registry, the send routine,
// the receive path and the dispatcher. The message families live in kz_*.cpp.
#include "kzprotocolresolver_p.h"

#include <kzapin/kzapin.h>

#include <QDebug>
#include <QVarLengthArray>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>

using namespace kz;

// ---------------------------------------------------------------------------
// Public object
// ---------------------------------------------------------------------------

KZProtocolResolver::KZProtocolResolver(int frameCapacity, QObject* parent)
    : QObject(parent), d(new KZProtocolResolverPrivate(this, frameCapacity))
{}

KZProtocolResolver::~KZProtocolResolver()
{
    // Deleted from inside one of our own callbacks: the code that called it
    // is still running on this thread and frees the private object when it
    // returns.
    if (CallScope::isOpen(d))
        d->retire();
    else
        delete d;
}

void KZProtocolResolver::setReceiveData(void* ctx) { d->receiveData = ctx; }
void* KZProtocolResolver::receiveData() const { return d->receiveData; }
void KZProtocolResolver::setParsePackResult(PackResultCB fn) { d->packResult = fn; }
void KZProtocolResolver::setSendFailDisconnectCB(SendFailDisconnectCB fn)
{
    d->sendFailDisconnect = fn;
}

void KZProtocolResolver::setAccount(const QString& account)
{
    if (d->account != account) d->account = account;
}

QString KZProtocolResolver::getAccount() const { return d->account; }
void KZProtocolResolver::clear() {}
void KZProtocolResolver::parseReceive(QByteArray bytes) { d->parseReceive(bytes); }

void KZProtocolResolver::setMaxReceiveBody(int bytes) { d->setMaxBody(bytes); }

int KZProtocolResolver::maxReceiveBody() const { return d->maxBody(); }

KZProtocolResolver::Statistics KZProtocolResolver::statistics() const
{
    const Counters& c = d->counters;
    Statistics s;
    s.bytesReceived = c.bytesReceived.load(std::memory_order_relaxed);
    s.framesAccepted = c.framesAccepted.load(std::memory_order_relaxed);
    s.messagesDispatched = c.messagesDispatched.load(std::memory_order_relaxed);
    s.garbageBytes = c.garbageBytes.load(std::memory_order_relaxed);
    for (int i = 0; i < DropReasonCount; ++i)
        s.drops[i] = c.drops[i].load(std::memory_order_relaxed);
    return s;
}

const char* KZProtocolResolver::dropReasonText(DropReason reason)
{
    switch (reason) {
    case DropBadHeader:
        return "frame header out of limits";
    case DropOversizedBody:
        return "body over the receive limit";
    case DropBadChecksum:
        return "frame checksum mismatch";
    case DropOrphanPiece:
        return "piece without a start";
    case DropPieceOutOfOrder:
        return "piece out of order";
    case DropUnfinishedBody:
        return "unfinished split body discarded";
    case DropOutOfMemory:
        return "out of memory";
    case DropEmptyBody:
        return "empty body";
    case DropShortBody:
        return "body shorter than its header";
    case DropUnknownType:
        return "unknown message type";
    case DropUnknownMethod:
        return "unknown method code";
    case DropReasonCount:
        break;
    }
    return nullptr;
}

#define KZ_CALLBACK(Type)                                                                          \
    void KZProtocolResolver::set##Type(Type fn) { d->cb.on##Type = fn; }
#include "callbacks.def"
#undef KZ_CALLBACK

// ---------------------------------------------------------------------------
// Construction and teardown
// ---------------------------------------------------------------------------

Q_LOGGING_CATEGORY(lcResolver, "kz.resolver", QtWarningMsg)

// Read twice per encoder call and per parseReceive: in the static TLS block
// (one pointer), not through the dynamic TLS lookup a shared library
// otherwise uses.
#if defined(__GNUC__) && defined(__ELF__)
#define KZ_FAST_TLS __attribute__((tls_model("initial-exec")))
#else
#define KZ_FAST_TLS
#endif
static thread_local CallScope* openScopes KZ_FAST_TLS = nullptr;
// The resolver whose engine this thread is feeding input to: its events
// need no checked cast to find their way back.
static thread_local KZProtocolResolverPrivate* feeding KZ_FAST_TLS = nullptr;

CallScope::CallScope(KZProtocolResolverPrivate* d) : d_(d), outer_(openScopes)
{
    openScopes = this;
}

CallScope::~CallScope()
{
    openScopes = outer_;
    if (d_->retired() && !isOpen(d_)) delete d_;
}

bool CallScope::isOpen(const KZProtocolResolverPrivate* d)
{
    for (const CallScope* s = openScopes; s; s = s->outer_)
        if (s->d_ == d) return true;
    return false;
}

static const char kSourceName[] = "kzprotocolresolver";

// Receive-side problems are one line on the "default" category, without
// file, line or function, so hosts filter and route them like qDebug().
static QDebug debugLine() { return QMessageLogger(nullptr, 0, nullptr).debug(); }

KZProtocolResolverPrivate::KZProtocolResolverPrivate(KZProtocolResolver* owner, int capacity)
    : QObject(nullptr), owner(owner)
{
    void* created = nullptr;
    if (capacity < 1) {
        created = kz_type_new(kz__protoiot, 0);
    } else {
        frameCapacity = capacity;
        created = kz_type_new(kz__protoiot, KZ_OPT_CAPACITY, capacity, 0);
    }
    // Without an engine the resolver stays usable for registration;
    // nothing is sent or parsed.
    if (created) adoptEngine(created);
}

void KZProtocolResolverPrivate::adoptEngine(void* created)
{
    engine = created;
    engineHolder.reset(created, [](void* e) {
        kz_type_delete(kz_type_cast2(e, kz__object, "KZProtocolResolverPrivate", kSourceName, 82));
    });
    auto* obj = static_cast<kz_object*>(
        kz_type_cast2(engine, kz__object, "KZProtocolResolverPrivate", kSourceName, 82));
    obj = static_cast<kz_object*>(
        kz_type_cast2(obj, kz__object, "KZProtocolResolverPrivate", kSourceName, 82));
    if (obj) {
        obj->user = this;
        obj->handler = &KZProtocolResolverPrivate::eventHandler;
    }
    pending = kz_protocol_pending(engine);
    rxCounts = kz_protocol_rx_counts(engine);
    kz_protocol_set_body_sink(engine, &kBodySink);
}

KZProtocolResolverPrivate::~KZProtocolResolverPrivate()
{
    {
        const std::lock_guard<QBasicMutex> lock(eventLock);
        qDeleteAll(eventQueue); // queued events are freed, never dispatched
        eventQueue.clear();
    }
    engineHolder.reset();
    engine = nullptr;
}

void KZProtocolResolverPrivate::retire()
{
    owner = nullptr;
    dying.store(true, std::memory_order_relaxed);
}

void KZProtocolResolverPrivate::drop(KZProtocolResolver::DropReason reason, qint64 bytes,
                                     qint64 detail)
{
    counters.add(counters.drops[reason], 1);
    if (!lcResolver().isDebugEnabled()) return;
    QDebug line = QMessageLogger(nullptr, 0, nullptr, lcResolver().categoryName()).debug();
    line.nospace().noquote() << "drop: " << KZProtocolResolver::dropReasonText(reason);
    switch (reason) {
    case KZProtocolResolver::DropOversizedBody:
        line << ", " << bytes << " bytes claimed, limit "
             << kz_protocol_option(engine, KZ_OPT_MAX_BODY);
        break;
    case KZProtocolResolver::DropUnknownType:
        line << " " << detail << ", " << bytes << " bytes";
        break;
    case KZProtocolResolver::DropUnknownMethod:
        line << " 0x" << QString::number(detail, 16).rightJustified(4, QLatin1Char('0')) << ", "
             << bytes << " bytes";
        break;
    default:
        line << ", " << bytes << " bytes";
        break;
    }
}

// ---------------------------------------------------------------------------
// Sending
// ---------------------------------------------------------------------------

void KZProtocolResolverPrivate::warnLoss(Method method, uchar flag, const char* what, qint64 value)
{
    const char* name = methodName(quint16(method));
    qCWarning(lcResolver).nospace().noquote()
        << (name ? name : "?") << (flag == Request ? " request" : " reply") << ": " << what << " "
        << value << " will not arrive as sent";
}

void KZProtocolResolverPrivate::warnSend(Method method, uchar flag, const Payload& payload)
{
    if (payload.lossWhat()) warnLoss(method, flag, payload.lossWhat(), payload.lossValue());
    const qint64 bodyLength = 4 + qint64(payload.size()) + 1;
    if (bodyLength > KZ_DEFAULT_MAX_BODY)
        warnLoss(method, flag, "body over the receive limit, bytes:", bodyLength);
}

void KZProtocolResolverPrivate::emitFrame(char* buffer, int length)
{
    // Every buffer goes to the host, even one the engine could not fill
    // (length 0): the host owns it and sees that nothing is to be sent.
    // Once the host has deleted the resolver, nothing more goes out.
    if (packResult && buffer && !retired()) {
        packResult(receiveData, buffer, length);
        return;
    }
    std::free(buffer);
}

namespace {

// memcpy for the few bytes of most payloads, without a call.
inline void copyShort(uchar* d, const char* s, size_t n)
{
    if (n > 16) {
        std::memcpy(d, s, n);
    } else if (n >= 8) { // two words that may overlap
        std::memcpy(d, s, 8);
        std::memcpy(d + n - 8, s + n - 8, 8);
    } else if (n >= 4) {
        std::memcpy(d, s, 4);
        std::memcpy(d + n - 4, s + n - 4, 4);
    } else {
        for (size_t i = 0; i < n; ++i) d[i] = uchar(s[i]);
    }
}

// A small body of one run written at `dst` and coded there: header,
// payload, zeros.
void writeSmall(uchar* dst, const uchar* head, const char* plain, size_t k, qint64 zeros)
{
    std::memcpy(dst, head, 4);
    copyShort(dst + 4, plain, k);
    if (zeros == 1)
        dst[4 + k] = 0;
    else
        std::memset(dst + 4 + k, 0, size_t(zeros));
    kz_coding_encrypt_fast(dst + 1, dst + 1, int(4 + k + size_t(zeros) - 1));
}

// A message body as it is sent, without building it: the four header bytes
// (flag, type, method code), the payload and `zeros` terminating zero bytes.
struct BodyParts
{
    uchar head[4];
    const Payload& payload;
    qint64 zeros;

    // Runs this short are copied and then coded in place; longer ones are
    // coded on their way from the payload into the frame.
    static constexpr qint64 kCopyThenCode = 256;

    BodyParts(const uchar* h, const Payload& p, qint64 z) : payload(p), zeros(z)
    {
        std::memcpy(head, h, 4);
    }
    BodyParts(const BodyParts&) = delete; // the first segment points into head
    BodyParts& operator=(const BodyParts&) = delete;

    qint64 length() const { return 4 + payload.size() + zeros; }

    // Calls fn(src, n, at) for the runs of body bytes [offset, offset + n)
    // in order: `at` is the body offset of the run, `src` its bytes (null
    // for the terminating zeros). Pieces are written front to back, so the
    // search starts at the segment the last call ended in.
    template <class F>
    void runs(qint64 offset, qint64 n, F fn) const
    {
        if (segments.isEmpty()) split();
        int i = cursor < segments.size() && segments[cursor].at <= offset ? cursor : 0;
        while (i < segments.size() && segments[i].at + segments[i].length <= offset) ++i;
        cursor = i;
        const qint64 end = offset + n;
        for (; i < segments.size() && offset < end; ++i) {
            const Segment& s = segments[i];
            const qint64 from = offset - s.at;
            const qint64 k = qMin(s.length - from, end - offset);
            fn(s.bytes ? s.bytes + from : nullptr, k, offset);
            offset += k;
        }
    }

    // Writes the body bytes [offset, offset + n) to `dst`, coded: every byte
    // but the first of the body is coded as one run that starts at byte 1.
    void write(uchar* dst, qint64 offset, qint64 n) const
    {
        if (n <= kCopyThenCode) {
            runs(offset, n, [&](const char* src, qint64 k, qint64 at) {
                uchar* d = dst + (at - offset);
                if (src)
                    std::memcpy(d, src, size_t(k));
                else
                    std::memset(d, 0, size_t(k));
            });
            if (offset == 0)
                kz_coding_code_at(dst + 1, dst + 1, int(n - 1), 0);
            else
                kz_coding_code_at(dst, dst, int(n), offset - 1);
            return;
        }
        runs(offset, n, [&](const char* src, qint64 k, qint64 at) {
            uchar* d = dst + (at - offset);
            if (!src) {
                std::memset(d, 0, size_t(k));
                src = reinterpret_cast<const char*>(d);
            }
            if (at == 0) { // the flag byte stays as it is
                d[0] = uchar(src[0]);
                kz_coding_code_at(d + 1, src + 1, int(k - 1), 0);
            } else {
                kz_coding_code_at(d, src, int(k), at - 1);
            }
        });
    }

private:
    // The body as runs: the header, the payload's runs, the zeros (bytes
    // null), each at its body offset.
    struct Segment
    {
        const char* bytes;
        qint64 at;
        qint64 length;
    };
    mutable QVarLengthArray<Segment, 8> segments; // made by the first runs()
    mutable int cursor = 0;

    void split() const
    {
        segments.append({reinterpret_cast<const char*>(head), 0, 4});
        qint64 at = 4;
        payload.forEachRun(0, size_t(payload.size()), [&](const char* d, size_t k) {
            segments.append({d, at, qint64(k)});
            at += qint64(k);
        });
        if (zeros > 0) segments.append({nullptr, at, zeros});
    }
};

} // namespace

void KZProtocolResolverPrivate::packSend(QByteArray attr, uchar flag, uchar type, ushort method,
                                         QByteArray data, uint datalen)
{
    const uchar head[4] = {flag, type, uchar(method & 0xFF), uchar(method >> 8)};
    // Messages carry no attr text: that goes the general way.
    if (!attr.isEmpty()) {
        const CallScope scope(this); // the pack-result callback may delete the resolver
        packSendGeneral(attr, head, data, datalen);
        return;
    }
    Payload payload;
    payload << rawbytes{data};
    // An empty payload is `datalen` zero bytes.
    packBody(head, payload, data.isEmpty() ? qint64(qMin<uint>(datalen, 0x10000)) : 1);
}

void KZProtocolResolverPrivate::packBody(const uchar* head, const Payload& payload, qint64 zeros)
{
    // Most messages: a short body of one run in one frame, written, coded
    // and framed straight into the buffer the host gets, sized to the frame.
    const char* plain = payload.contiguous();
    const qint64 bodyLength = 4 + payload.size() + zeros;
    if (!plain || bodyLength > BodyParts::kCopyThenCode ||
        KZ_FRAME_OVERHEAD + bodyLength > frameCapacity) {
        packLong(head, payload, zeros);
        return;
    }
    const CallScope scope(this); // the pack-result callback may delete the resolver
    packOneFrame(int(bodyLength),
                 [&](uchar* at) { writeSmall(at, head, plain, size_t(payload.size()), zeros); });
}

template <class Write>
void KZProtocolResolverPrivate::packOneFrame(int length, Write write)
{
    const int seq = sequence++;
    auto* out = static_cast<uchar*>(std::malloc(size_t(KZ_FRAME_OVERHEAD + length)));
    int written = 0;
    if (out) {
        write(out + KZ_FRAME_DATA_AT(0));
        written = kz_protocol_pack_whole(engine, out, seq, length);
    }
    emitFrame(reinterpret_cast<char*>(out), written);
    drainPending();
}

void KZProtocolResolverPrivate::packLong(const uchar* head, const Payload& payload, qint64 zeros)
{
    const CallScope scope(this); // the pack-result callback may delete the resolver
    const int capacity = frameCapacity;
    const qint64 bodyLength = 4 + payload.size() + zeros;
    if (bodyLength > INT_MAX) {
        // Too long to count in an int: it cannot be framed. The host still
        // gets a buffer to free, and the message its number.
        ++sequence;
        emitFrame(static_cast<char*>(std::malloc(1)), 0);
        return;
    }
    const int length = int(bodyLength);
    if (KZ_FRAME_OVERHEAD + qint64(length) <= capacity) {
        packOneFrame(length,
                     [&](uchar* at) { BodyParts(head, payload, zeros).write(at, 0, length); });
        return;
    }
    const int seq = sequence++;
    const BodyParts body(head, payload, zeros);

    // Split: the first piece carries capacity - 34 bytes and so does every
    // later one; each is packed as soon as it is written. Pieces take fresh
    // sequence numbers unless the engine keeps the message's own.
    const qint64 step = qint64(capacity) - KZ_PIECE_OVERHEAD;
    if (step < 1 || !engine) {
        // Nothing can be sent: the host still gets a buffer to free.
        emitFrame(static_cast<char*>(std::malloc(1)), 0);
        return;
    }
    const bool freshSeq = kz_protocol_option(engine, KZ_OPT_PIECES) == KZ_PIECES_FRESH_SEQ;
    for (qint64 offset = 0; offset < length && !retired();) {
        const int n = int(qMin<qint64>(step, length - offset));
        auto* out = static_cast<uchar*>(std::malloc(size_t(KZ_PIECE_OVERHEAD + n)));
        if (!out) {
            offset += n;
            continue;
        }
        uchar* at = out + KZ_PIECE_DATA_AT(0);
        body.write(at, offset, n);
        const int pieceSeq = offset == 0 || !freshSeq ? seq : sequence++;
        const int written =
            kz_protocol_pack_piece(engine, out, KZ_PIECE_OVERHEAD + n, pieceSeq, uint32_t(seq),
                                   uint32_t(length), uint32_t(offset), at, n);
        emitFrame(reinterpret_cast<char*>(out), written);
        offset += n;
    }
    drainPending();
}

void KZProtocolResolverPrivate::packSendGeneral(const QByteArray& attr, const uchar* head,
                                                const QByteArray& data, uint datalen)
{
    QByteArray body;
    body.reserve(4 + data.size() + 1);
    body.append(reinterpret_cast<const char*>(head), 4);
    if (data.isEmpty()) {
        body.append(QByteArray(int(qMin<uint>(datalen, 0x10000)), '\0'));
    } else {
        body.append(data);
        body.append('\0');
    }
    const int length = body.size();

    // Everything but the flag byte is coded.
    kz_coding_encrypt_fast(body.data() + 1, body.constData() + 1, length - 1);

    const QByteArray attrText = attr + '\0';
    char* out = static_cast<char*>(std::calloc(size_t(frameCapacity), 1));
    const int seq = sequence++;
    const int written = out ? kz_protocol_pack(engine, out, frameCapacity, seq,
                                               attrText.constData(), body.constData(), length)
                            : 0;
    emitFrame(out, written);
    drainPending();
}

void KZProtocolResolverPrivate::drainPendingNow()
{
    // A body that did not fit left its other pieces in the engine. They are
    // drained whatever the body's size, so no piece is ever left behind.
    // Once the host deleted the resolver, the pieces left are freed with
    // the engine.
    while (pending->count > 0 && !retired()) {
        kz_list_node* node = kz_list_take_node(pending, kz_list_node_at(pending, 0));
        if (!node) break;
        const int textLength = int(std::strlen(node->bytes));
        const int dataLength = node->total - textLength - 1;
        char* buffer = nullptr;
        int n = 0;
        if (!(node->flags & KZ_NODE_PACKED)) {
            buffer = static_cast<char*>(std::malloc(size_t(qMax(frameCapacity, 1))));
            const int pieceSeq = (node->flags & KZ_NODE_OWN_SEQ) ? node->seq : sequence++;
            if (buffer)
                n = kz_protocol_pack(engine, buffer, frameCapacity, pieceSeq, node->bytes,
                                     kz_strnxt(node->bytes), dataLength);
            else
                --sequence; // nothing packed, no number used
        } else {
            buffer = static_cast<char*>(std::malloc(size_t(qMax(dataLength, 1))));
            if (buffer && dataLength <= frameCapacity) {
                std::memcpy(buffer, kz_strnxt(node->bytes), size_t(qMax(dataLength, 0)));
                n = dataLength;
            }
        }
        emitFrame(buffer, n);
        kz_list_node_destroy(node);
    }
}

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

// ---------------------------------------------------------------------------
// Dispatch
// ---------------------------------------------------------------------------

namespace {

using Decoder = void (KZProtocolResolverPrivate::*)(uchar, Reader&);

struct Route
{
    quint16 code;
    const char* name;
    Decoder decode;
};

constexpr Route kRoutes[] = {
#define KZ_METHOD(name, code, family) {code, #name, &KZProtocolResolverPrivate::decode##name},
#include "methods.def"
#undef KZ_METHOD
};

constexpr bool routesAscending()
{
    for (size_t i = 1; i < sizeof(kRoutes) / sizeof(kRoutes[0]); ++i)
        if (kRoutes[i - 1].code >= kRoutes[i].code) return false;
    return true;
}
static_assert(routesAscending(), "methods.def must list the codes in ascending order");
static_assert(sizeof(kRoutes) / sizeof(kRoutes[0]) == 117, "the protocol has 117 method codes");

constexpr size_t kRouteCount = sizeof(kRoutes) / sizeof(kRoutes[0]);
constexpr quint16 kHighestCode = kRoutes[kRouteCount - 1].code;

// Route of each code up to the highest, by index + 1 (0: no message): one
// load per body instead of a search.
struct RouteIndex
{
    quint8 at[kHighestCode + 1] = {};
};
constexpr RouteIndex makeRouteIndex()
{
    RouteIndex index;
    for (size_t i = 0; i < kRouteCount; ++i) index.at[kRoutes[i].code] = quint8(i + 1);
    return index;
}
static_assert(kRouteCount < 255, "a route index is one byte");
constexpr RouteIndex kRouteIndex = makeRouteIndex();

const Route* findRoute(quint16 code)
{
    if (code > kHighestCode || kRouteIndex.at[code] == 0) return nullptr;
    return &kRoutes[kRouteIndex.at[code] - 1];
}

} // namespace

const char* kz::methodName(quint16 code)
{
    const Route* r = findRoute(code);
    return r ? r->name : nullptr;
}

// In line in both callers: a message goes through one call to its decoder.
inline int KZProtocolResolverPrivate::dispatchWith(const uchar* body, int dataLength,
                                                   QVector<TraceItem>* trace, uchar* coded,
                                                   QByteArray* tail)
{
    if (dataLength < 0) return 1; // a body shorter than its header
    const quint16 code = quint16(body[2] | (body[3] << 8));
    if (const Route* route = findRoute(code)) {
        counters.add(counters.messagesDispatched, 1);
        Reader r(body + 4, dataLength);
        r.setTrace(trace);
        // Body byte 4 is keystream position 3: the coding starts at byte 1.
        if (coded) r.setCoded(coded, 3);
        r.setTail(tail);
        (this->*route->decode)(body[0], r);
    } else {
        drop(KZProtocolResolver::DropUnknownMethod, dataLength + 4, code);
    }
    return 1;
}

int KZProtocolResolverPrivate::dispatch(const uchar* body, int dataLength,
                                        QVector<TraceItem>* trace)
{
    return dispatchWith(body, dataLength, trace, nullptr);
}

void KZProtocolResolverPrivate::dispatchCoded(uchar* body, int dataLength)
{
    dispatchWith(body, dataLength, nullptr, body + 4);
}

void KZProtocolResolverPrivate::dispatchTaken(const uchar* head, int split, QByteArray* tail)
{
    dispatchWith(head, split - 4, nullptr, nullptr, tail);
}
