// Private side of KZProtocolResolver: all state, the send routes, the
// receive path and the decoders. Not installed.
#ifndef KZRESOLVER_KZPROTOCOLRESOLVER_P_H
#define KZRESOLVER_KZPROTOCOLRESOLVER_P_H

#include "kzapin/kzapin.h"
#include "kzprotocolresolver.h"
#include "methods.h"
#include "payload.h"
#include "recordforms.h"
#include "trace.h"

#include <QLoggingCategory>
#include <QMutex>
#include <QObject>

#include <atomic>
#include <memory>

struct kz_event;

// Read twice per encoder call and per parseReceive: thread-locals in the
// static TLS block (one pointer), not through the dynamic TLS lookup a shared
// library otherwise uses.
#if defined(__GNUC__) && defined(__ELF__)
#define KZ_FAST_TLS __attribute__((tls_model("initial-exec")))
#else
#define KZ_FAST_TLS
#endif

/// The name the frame library's checked casts report a failure under.
constexpr char kSourceName[] = "kzprotocolresolver";

/// The library's own logging category, "kz.resolver": one debug line per
/// drop, one warning per lossy message. Debug lines are off by default.
Q_DECLARE_LOGGING_CATEGORY(lcResolver)

/// One event queued by the engine's event handler, drained by parseReceive.
struct ReceivedEvent
{
    int type = 0;
    int length = 0;
    int length2 = 0;
    QByteArray data; // a copy of the body for data events; null otherwise
    QByteArray tail; // a taken body: its large last field (data holds the rest)
};

/// The callback slots, one per setter (callbacks.def, generated from the protocol table).
struct KZCallbacks
{
#define KZ_CALLBACK(Type) KZProtocolResolver::Type on##Type = nullptr;
#include "callbacks.def"
#undef KZ_CALLBACK
};

/// Marks, on the current thread, a stretch of code of one resolver from
/// which host callbacks may be called. A resolver deleted by the host
/// while one of its stretches is open is only retired; the outermost
/// stretch frees it when it closes. Open one as the first local of the
/// function, so that it closes after every other local is gone, and touch
/// nothing of the resolver after the function returns.
class CallScope
{
public:
    explicit CallScope(KZProtocolResolverPrivate* d);
    ~CallScope();
    CallScope(const CallScope&) = delete;
    CallScope& operator=(const CallScope&) = delete;

    /// True if a stretch of `d` is open on this thread.
    static bool isOpen(const KZProtocolResolverPrivate* d);

private:
    KZProtocolResolverPrivate* d_;
    CallScope* outer_;
};

/// The counters behind KZProtocolResolver::statistics(). Written by the
/// receiving thread, read by any.
struct Counters
{
    std::atomic<quint64> bytesReceived{0};
    std::atomic<quint64> framesAccepted{0};
    std::atomic<quint64> messagesDispatched{0};
    std::atomic<quint64> garbageBytes{0};
    std::atomic<quint64> drops[KZProtocolResolver::DropReasonCount] = {};

    // One writer: the thread that feeds input, under the event lock (or a
    // tool dispatching a body of its own, alone). Other threads only read,
    // so a plain load and store will do, without a locked instruction.
    void add(std::atomic<quint64>& c, quint64 n)
    {
        c.store(c.load(std::memory_order_relaxed) + n, std::memory_order_relaxed);
    }
};

class KZProtocolResolverPrivate : public QObject
{
    Q_OBJECT

public:
    /// The private object has no QObject parent: it belongs to `owner`
    /// alone, whatever becomes of the owner's parent.
    KZProtocolResolverPrivate(KZProtocolResolver* owner, int frameCapacity);
    ~KZProtocolResolverPrivate() override;

    /// The private object of a resolver (for tests and tools).
    static KZProtocolResolverPrivate* get(KZProtocolResolver* q) { return q->d; }

    /// Builds the body of one message, codes it, packs it into frames and
    /// hands each frame to the pack-result callback.
    Q_SLOT void packSend(QByteArray attr, uchar flag, uchar type, ushort method, QByteArray data,
                         uint datalen);

    /// What every encoder calls: packSend with an empty attr, type 17 and
    /// the terminating zero. Warns first when the payload noted a value
    /// that will not arrive as given, or when the body is larger than a
    /// receiver accepts by default.
    void send(kz::Method method, uchar flag, const kz::Payload& payload)
    {
        if (payload.lossWhat() || 4 + payload.size() + 1 > KZ_DEFAULT_MAX_BODY)
            warnSend(method, flag, payload);
        if (keep) {
            keep->append({method, flag, payload});
            return;
        }
        sendPayload(method, flag, payload);
    }
    /// send() without its warnings: codes and frames a payload written
    /// before (by this resolver or by a KZEncodedMessages).
    void sendPayload(kz::Method method, uchar flag, const kz::Payload& payload)
    {
        // packSend(empty attr, flag, 17, method, payload, 1) without
        // flattening the payload into one array first.
        const uchar head[4] = {flag, kz::kMessageType, uchar(quint16(method) & 0xFF),
                               uchar(quint16(method) >> 8)};
        packBody(head, payload, 1);
    }
    /// A message that send() kept instead of sending it.
    struct Kept
    {
        kz::Method method;
        uchar flag;
        kz::Payload payload;
    };
    /// While set (by KZEncodedMessages), send() appends here and sends nothing.
    QList<Kept>* keep = nullptr;
    /// The warnings of send(): a noted loss, a body over the receive limit.
    void warnSend(kz::Method method, uchar flag, const kz::Payload& payload);
    /// The one warning of a lossy message: its name and direction, what
    /// will not arrive as sent and its value.
    static void warnLoss(kz::Method method, uchar flag, const char* what, qint64 value);

    /// Called by the owner's destructor when the host deletes the resolver
    /// from inside one of its callbacks: no callback runs any more and the
    /// outermost open CallScope frees the object.
    void retire();
    bool retired() const { return dying.load(std::memory_order_relaxed); }

    /// Counts one drop and writes its line on the library's category.
    void drop(KZProtocolResolver::DropReason reason, qint64 bytes, qint64 detail = -1);

    void parseReceive(const QByteArray& bytes);
    /// The receive body limit: applied at once, or after the current block
    /// when called from one of its callbacks.
    void setMaxBody(int bytes);
    int maxBody() const;
    static int eventHandler(kz_event* e);
    void parseReadEvent(ReceivedEvent* record);
    /// Decodes one received body (`writable`: in place) and dispatches it.
    void handleBody(uchar* data, int length, bool writable);
    /// True for a decoded body long enough for its header and of the
    /// message type; otherwise drops it (counted, one debug line).
    bool isMessage(const uchar* body, int length);

    /// Routes a restored body to the decoder of its method code. `dataLength`
    /// counts the bytes from offset 4 to the end. Unknown codes are dropped.
    /// With `trace`, every field the decoder reads is recorded there.
    int dispatch(const uchar* body, int dataLength, kz::Trace* trace = nullptr);
    /// dispatch() of a body whose bytes from offset 4 on are still coded;
    /// they are decoded in place as the decoder reads them.
    void dispatchCoded(uchar* body, int dataLength);

    /// A split body whose last field is a large byte array (a screen, a
    /// file's content) is taken from the engine as its pieces arrive: the
    /// bytes before the field into `head`, the field's straight into the
    /// array the callback gets, decoded on their way in. The body is then
    /// neither assembled nor decoded a second time.
    struct TakenBody;
    static const kz_body_sink kBodySink;
    /// Dispatches a taken body: `head` holds its first `split` bytes,
    /// decoded, and `tail` the rest.
    void dispatchTaken(const uchar* head, int split, QByteArray* tail);

    /// Calls `fn` with the context pointer and `args` if the slot is set.
    template <class F, class... A>
    void fire(F fn, const A&... args) const
    {
        if (fn && !retired()) fn(receiveData, args...);
    }

    // The decoders: one per method code, and the hand-written ones of single
    // directions (decoders.inc, generated from the protocol table).
#include "decoders.inc"
    // Payload offset where the large last field's bytes start, read by the
    // fields before it: the update replies (screen, image, attributes) and a
    // file content request.
    static int updateDataAt(kz::Reader& r);
    static int fileContentDataAt(kz::Reader& r);

    /// Makes `created` (a frame engine) the resolver's, freeing the one it
    /// had: its events come here, and the pending list and receive counts
    /// are read from it. The constructor's engine comes this way, and a test
    /// or tool that wants other engine options swaps one in the same way.
    void adoptEngine(void* created);

    KZProtocolResolver* owner;
    void* engine = nullptr; // set through adoptEngine()
    std::shared_ptr<void> engineHolder;
    QBasicMutex eventLock; // its fast path is inline: taken once per parseReceive
    QList<ReceivedEvent*> eventQueue;
    QString account;
    int frameCapacity = 2048;
    int sequence = 0;
    void* receiveData = nullptr;
    KZProtocolResolver::PackResultCB packResult = nullptr;
    KZProtocolResolver::PackedFrameCB packedFrame = nullptr;
    KZProtocolResolver::SendFailDisconnectCB sendFailDisconnect = nullptr;
    KZCallbacks cb;
    Counters counters;

private:
    // A buffer of `n` bytes to pack a frame into: the kept send buffer when
    // frames are lent to the host and it is not lent already (an encoder
    // called from inside the frame callback), else one from malloc().
    char* frameBuffer(size_t n);
    // Hands a frame to the host and gives its buffer back or frees it.
    void emitFrame(char* buffer, int length);
    // The send buffer (the sending thread's): frameCapacity bytes once used.
    std::unique_ptr<char[]> sendBuffer;
    size_t sendBufferSize = 0;
    bool sendBufferBusy = false;
    // Codes and frames the body of header `head` (flag, type, method code),
    // the payload and `zeros` zero bytes, and hands out every frame.
    void packBody(const uchar* head, const kz::Payload& payload, qint64 zeros);
    // packBody for a body that is long, in several runs or split.
    void packLong(const uchar* head, const kz::Payload& payload, qint64 zeros);
    // One frame: `write(at)` writes and codes the body of `length` bytes
    // straight into the buffer the host gets, sized to the frame, which is
    // then framed and handed out.
    template <class Write>
    void packOneFrame(int length, Write write);
    // packSend for an attr text or a body too long for the fast way: the
    // body built whole and packed (split) by the engine.
    void packSendGeneral(const QByteArray& attr, const uchar* head, const QByteArray& data,
                         uint datalen);
    // Handles the queued events, under the event lock.
    void drainQueue();
    // One input under the event lock: the queued events, then the input's
    // own as the engine raises them.
    void feed(const QByteArray& bytes);
    // Set while parseReceive feeds the engine: its events are handled at once.
    bool handleAtOnce = false;
    // Where bodies that lie in read-only bytes are decoded; a buffer larger
    // than kScratchKeep is released after its message.
    static constexpr int kScratchKeep = 64 * 1024;
    // Bodies this large in a buffer of their own are decoded as they are read.
    static constexpr int kDecodeLazilyFrom = 4096;
    int dispatchWith(const uchar* body, int dataLength, kz::Trace* trace, uchar* coded,
                     QByteArray* tail = nullptr);
    std::unique_ptr<uchar[]> scratch;
    int scratchSize = 0;
    // Packs and hands out the pieces the engine left in its pending list,
    // when there are any.
    void drainPending()
    {
        if (pending && pending->count > 0) drainPendingNow();
    }
    void drainPendingNow();
    // The engine's pending list and receive counts, where it keeps them.
    kz_list* pending = nullptr;
    const kz_rx_stats* rxCounts = nullptr;

    // Bytes handed to parseReceive from inside a callback: fed to the engine
    // once the current drain is over. Only the draining thread touches it.
    QByteArray deferredInput;
    int pendingMaxBody = 0; // set from a callback: applied once the current block is done
    std::atomic<const void*> drainingThread{nullptr}; // a per-thread address
    // Set once the host has deleted the owner from inside a callback.
    std::atomic<bool> dying{false};
};

#endif // KZRESOLVER_KZPROTOCOLRESOLVER_P_H
