// The resolver's lifetime: the public object's calls, construction and
// teardown of the private object, the open-scope bookkeeping that lets a host
// delete the resolver from inside a callback, and the drop counts. Sending,
// receiving and dispatch have files of their own.
#include "kzprotocolresolver_p.h"

#include <kzapin/kzapin.h>

#include <QDebug>

#include <mutex>

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
void KZProtocolResolver::setPackedFrameCB(PackedFrameCB fn) { d->packedFrame = fn; }
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

static thread_local CallScope* openScopes KZ_FAST_TLS = nullptr;

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
