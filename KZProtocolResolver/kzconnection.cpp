// KZConnection: a resolver bound to a QIODevice, its callbacks relayed as
// Qt signals. The signals come from the generated KZConnectionSignals; the
// relays below are stamped out from the same generated list, one template
// instance per callback type.
#include "kzconnection.h"

#include <QDebug>
#include <QIODevice>
#include <QMetaMethod>
#include <QMetaObject>
#include <QPointer>
#include <QThread>

#include <cstdlib>
#include <type_traits>

KZConnectionSignals::KZConnectionSignals(QObject* parent) : QObject(parent) {}
KZConnectionSignals::~KZConnectionSignals() = default;

namespace {

/// The relay of one callback type: a plain function of exactly the
/// callback's type that emits `Signal` on the connection behind the context
/// pointer. The assertion holds the generated signal to the callback's
/// parameter list, type for type.
template <class Fn>
struct Relay;

template <class... A>
struct Relay<void (*)(void*, A...)>
{
    template <auto Signal>
    static void call(void* ctx, A... args)
    {
        static_assert(std::is_same_v<decltype(Signal), void (KZConnectionSignals::*)(A...)>,
                      "a generated signal differs from its callback's parameters");
        (static_cast<KZConnectionSignals*>(static_cast<KZConnection*>(ctx))->*Signal)(args...);
    }
};

void registerMetaTypes()
{
    static const bool once = [] {
#include "kzconnection_types.inc"
        return true;
    }();
    (void)once;
}

/// Receive-side notes go to the default category, like the resolver's.
QDebug debugLine() { return QMessageLogger(nullptr, 0, nullptr).debug(); }

} // namespace

class KZConnectionPrivate
{
public:
    KZConnectionPrivate(KZConnection* q, int frameCapacity) : q(q), resolver(frameCapacity) {}

    KZConnection* const q;
    KZProtocolResolver resolver;
    QPointer<QIODevice> device;
    KZConnection::Ownership ownership = KZConnection::Ownership::Borrowed;
    /// Frame bytes the device has not taken yet (connection thread only).
    QByteArray pending;
    /// Set once the device closed: later frames are dropped, not kept.
    bool closed = false;
    qint64 readChunk = 64 * 1024;
    bool readingPaused = false;
    bool readQueued = false; ///< a pass of readMore() is posted

    static void packed(void* ctx, const char* bytes, int length);
    void send(const char* bytes, qint64 n);
    void flush();
    void detach();
    void connectDeviceSignal(const char* name, const char* slot);
};

// Frames are lent: written (or copied) before the call returns.
void KZConnectionPrivate::packed(void* ctx, const char* bytes, int length)
{
    auto* q = static_cast<KZConnection*>(ctx);
    if (length > 0 && QThread::currentThread() == q->thread()) {
        q->d->send(bytes, length);
    } else if (length > 0) {
        // The device belongs to the connection's thread: write there. Posted
        // calls from one thread run in the order posted.
        const QByteArray frame(bytes, length);
        QMetaObject::invokeMethod(
            q, [q, frame] { q->d->send(frame.constData(), frame.size()); }, Qt::QueuedConnection);
    }
}

void KZConnectionPrivate::send(const char* bytes, qint64 n)
{
    if (q->isSignalConnected(QMetaMethod::fromSignal(&KZConnection::frameSent)))
        emit q->frameSent(QByteArray(bytes, int(n)));
    if (!device || (!device->isOpen() && !closed)) {
        pending.append(bytes, int(n)); // written once a device is attached and open
        return;
    }
    if (!device->isWritable()) {
        debugLine() << "KZConnection: device not writable, frame of" << n << "bytes dropped";
        return;
    }
    if (!pending.isEmpty()) {
        pending.append(bytes, int(n));
        flush();
        return;
    }
    const qint64 written = device->write(bytes, n);
    if (written < 0) {
        emit q->errorOccurred(device->errorString());
        return;
    }
    if (written < n) pending.append(bytes + written, int(n - written));
}

void KZConnectionPrivate::flush()
{
    while (!pending.isEmpty() && device && device->isWritable()) {
        const qint64 written = device->write(pending);
        if (written < 0) {
            pending.clear();
            emit q->errorOccurred(device->errorString());
            return;
        }
        if (written == 0) return; // the rest goes on bytesWritten()
        pending.remove(0, int(written));
    }
}

void KZConnectionPrivate::detach()
{
    if (!device) return;
    QObject::disconnect(device, nullptr, q, nullptr);
    if (ownership == KZConnection::Ownership::Owned) {
        if (device->thread() == QThread::currentThread())
            delete device.data();
        else
            device->deleteLater();
    }
    device.clear();
}

/// Connects the device's first signal called `name`, whatever its
/// parameters, to one of our parameterless slots. Sockets have
/// `disconnected()` and `errorOccurred(…)` without QIODevice declaring them,
/// and the library does not link Qt Network: the device's meta-object tells.
void KZConnectionPrivate::connectDeviceSignal(const char* name, const char* slot)
{
    const QMetaObject* mo = device->metaObject();
    for (int i = 0; i < mo->methodCount(); ++i) {
        const QMetaMethod m = mo->method(i);
        if (m.methodType() == QMetaMethod::Signal && m.name() == name) {
            const QMetaObject* own = q->metaObject();
            QObject::connect(device, m, q, own->method(own->indexOfSlot(slot)));
            return;
        }
    }
}

// ---------------------------------------------------------------------------

KZConnection::KZConnection(QIODevice* device, QObject* parent) : KZConnection(device, 0, parent) {}

KZConnection::KZConnection(QIODevice* device, int frameCapacity, QObject* parent)
    : KZConnectionSignals(parent), d(std::make_unique<KZConnectionPrivate>(this, frameCapacity))
{
    registerMetaTypes();
    KZProtocolResolver& r = d->resolver;
    r.setReceiveData(this);
    r.setPackedFrameCB(&KZConnectionPrivate::packed);
#define KZ_RELAY(Type, name)                                                                       \
    r.set##Type(&Relay<KZProtocolResolver::Type>::call<&KZConnectionSignals::name>);
#include "kzconnection_relays.inc"
#undef KZ_RELAY
    if (device) setDevice(device);
}

KZConnection::~KZConnection() { d->detach(); }

void KZConnection::setDevice(QIODevice* device, Ownership ownership)
{
    if (device == d->device) {
        d->ownership = ownership;
        return;
    }
    d->detach();
    d->closed = false;
    if (!device) return;
    if (device->thread() != thread())
        qWarning("KZConnection: the device lives in another thread than the connection");
    d->device = device;
    d->ownership = ownership;
    connect(device, &QIODevice::readyRead, this, &KZConnection::handleReadyRead);
    connect(device, &QIODevice::bytesWritten, this, &KZConnection::handleBytesWritten);
    const QMetaObject* mo = device->metaObject();
    if (mo->indexOfSignal("disconnected()") >= 0)
        d->connectDeviceSignal("disconnected", "handleDeviceClosed()");
    else
        connect(device, &QIODevice::readChannelFinished, this, &KZConnection::handleDeviceClosed);
    d->connectDeviceSignal("connected", "handleBytesWritten()"); // frames sent before it
    d->connectDeviceSignal("errorOccurred", "handleDeviceError()");
    d->flush();
    // Bytes that arrived before: read on the next pass of the event loop, once
    // the host has connected its slots.
    if (device->bytesAvailable() > 0)
        QMetaObject::invokeMethod(this, &KZConnection::handleReadyRead, Qt::QueuedConnection);
}

QIODevice* KZConnection::device() const { return d->device; }

KZProtocolResolver* KZConnection::resolver() const { return &d->resolver; }

qint64 KZConnection::pendingBytes() const { return d->pending.size(); }

void KZConnection::setReadChunkSize(qint64 bytes)
{
    if (bytes > 0) d->readChunk = bytes;
}

qint64 KZConnection::readChunkSize() const { return d->readChunk; }

void KZConnection::setReadingPaused(bool paused)
{
    d->readingPaused = paused;
    if (!paused && d->device && d->device->bytesAvailable() > 0 && !d->readQueued) {
        d->readQueued = true;
        QMetaObject::invokeMethod(this, &KZConnection::readMore, Qt::QueuedConnection);
    }
}

bool KZConnection::isReadingPaused() const { return d->readingPaused; }

void KZConnection::handleReadyRead()
{
    if (!d->device || d->readingPaused) return;
    const QByteArray bytes = d->device->read(d->readChunk);
    if (!bytes.isEmpty()) d->resolver.parseReceive(bytes);
    // The rest on the next pass: a readyRead comes only for new bytes.
    if (d->device && !d->readingPaused && d->device->bytesAvailable() > 0 && !d->readQueued) {
        d->readQueued = true;
        QMetaObject::invokeMethod(this, &KZConnection::readMore, Qt::QueuedConnection);
    }
}

void KZConnection::readMore()
{
    d->readQueued = false;
    handleReadyRead();
}

void KZConnection::handleBytesWritten() { d->flush(); }

void KZConnection::handleDeviceClosed()
{
    while (d->device && !d->readingPaused && d->device->bytesAvailable() > 0) {
        const QByteArray bytes = d->device->read(d->readChunk);
        if (bytes.isEmpty()) break;
        d->resolver.parseReceive(bytes);
    }
    d->closed = true;
    d->pending.clear();
    emit disconnected();
}

void KZConnection::handleDeviceError()
{
    emit errorOccurred(d->device ? d->device->errorString() : QString());
}
