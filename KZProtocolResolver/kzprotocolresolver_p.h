// Private side of KZProtocolResolver: all state, the send routine, the
// receive path and the decoders. Not installed.
#ifndef KZRESOLVER_KZPROTOCOLRESOLVER_P_H
#define KZRESOLVER_KZPROTOCOLRESOLVER_P_H

#include "kzprotocolresolver.h"
#include "layout.h"
#include "methods.h"
#include "payload.h"

#include <QMutex>
#include <QObject>

#include <atomic>
#include <memory>

struct kz_event;

/// One event queued by the engine's event handler, drained by parseReceive.
struct ReceivedEvent
{
    int type = 0;
    int length = 0;
    int length2 = 0;
    QString name;
    QByteArray data; // a copy of the body for data events; null otherwise
};

/// The callback slots, one per setter (see callbacks.def).
struct KZCallbacks
{
#define KZ_CALLBACK(Type) KZProtocolResolver::Type on##Type = nullptr;
#include "callbacks.def"
#undef KZ_CALLBACK
};

class KZProtocolResolverPrivate : public QObject
{
    Q_OBJECT

public:
    KZProtocolResolverPrivate(KZProtocolResolver* owner, int frameCapacity, QObject* parent);
    ~KZProtocolResolverPrivate() override;

    /// The private object of a resolver (for tests and tools).
    static KZProtocolResolverPrivate* get(KZProtocolResolver* q) { return q->d; }

    /// Builds the body of one message, codes it, packs it into frames and
    /// hands each frame to the pack-result callback.
    Q_SLOT void packSend(QByteArray attr, uchar flag, uchar type, ushort method, QByteArray data,
                         uint datalen);

    /// What every encoder calls: packSend with an empty attr, type 17 and
    /// the terminating zero.
    void send(kz::Method method, uchar flag, const kz::Payload& payload)
    {
        packSend(QByteArray(), flag, kz::kMessageType, ushort(method), payload.bytes(), 1);
    }

    /// Sends the API arguments `a` in the wire layout L.
    template <class L, class... A>
    void send(kz::Method method, uchar flag, const A&... a)
    {
        send(method, flag, L::encode(a...));
    }

    void parseReceive(const QByteArray& bytes);
    static int eventHandler(kz_event* e);
    void parseReadEvent(ReceivedEvent* record);

    /// Routes a restored body to the decoder of its method code. `dataLength`
    /// counts the bytes from offset 4 to the end. Unknown codes are dropped.
    /// With `trace`, every field the decoder reads is recorded there.
    int dispatch(const uchar* body, int dataLength, QVector<kz::TraceItem>* trace = nullptr);

    /// Calls `fn` with the context pointer and `args` if the slot is set.
    template <class F, class... A>
    void fire(F fn, const A&... args) const
    {
        if (fn) fn(receiveData, args...);
    }

    /// Reads one payload of layout L and fires `slot` with its values.
    template <class L, class F>
    void take(kz::Reader& r, F slot) const
    {
        L::decode(r, kz::namesOf<L>(), [&](const auto&... v) { fire(slot, v...); });
    }

    /// The decoder of a message with both forms: flag 0 reads Req and fires
    /// `onRequest`, flag 1 reads Rep and fires `onReply`; other flags are
    /// ignored.
    template <class Req, class Rep, class Q, class P>
    void route(uchar flag, kz::Reader& r, Q onRequest, P onReply) const
    {
        if (flag == kz::Request)
            take<Req>(r, onRequest);
        else if (flag == kz::Reply)
            take<Rep>(r, onReply);
    }

    // One decoder per method code.
#define KZ_METHOD(name, code, family) void decode##name(uchar flag, kz::Reader& r);
#include "methods.def"
#undef KZ_METHOD

    KZProtocolResolver* owner;
    void* engine = nullptr;
    std::shared_ptr<void> engineHolder;
    QMutex eventLock;
    QList<ReceivedEvent*> eventQueue;
    QString account;
    int frameCapacity = 2048;
    int sequence = 0;
    void* receiveData = nullptr;
    KZProtocolResolver::PackResultCB packResult = nullptr;
    KZProtocolResolver::SendFailDisconnectCB sendFailDisconnect = nullptr;
    KZCallbacks cb;

private:
    void emitFrame(char* buffer, int length);

    // Bytes handed to parseReceive from inside a callback: fed to the engine
    // once the current drain is over. Only the draining thread touches it.
    QByteArray deferredInput;
    std::atomic<Qt::HANDLE> drainingThread{nullptr};
};

#endif // KZRESOLVER_KZPROTOCOLRESOLVER_P_H
