/// \file kzprotocolresolver.h
/// The protocol resolver: typed messages in, framed bytes out, and back.
#ifndef KZRESOLVER_KZPROTOCOLRESOLVER_H
#define KZRESOLVER_KZPROTOCOLRESOLVER_H

#include "kzrecords.h"
#include "kzresolver_global.h"

#include <QByteArray>
#include <QDate>
#include <QList>
#include <QMap>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariant>

class KZProtocolResolverPrivate;

/// Translates between typed operations and the frames of the machine-fleet
/// LAN protocol. Create one resolver per connection.
///
/// **Sending.** Call a `lan…` encoder for each message: a request
/// (`lanLogin`, `lanAddUser`, …) or the reply to one that arrived
/// (`lanDeleteUserResponse`, …). Every finished frame is handed to the
/// callback registered with setParsePackResult(); a large message arrives
/// there as several frames, in the order to send them. The buffer passed to
/// that callback is the host's: free it with `free()` once sent.
///
/// **Receiving.** Pass every block of bytes read from the connection to
/// parseReceive(), cut wherever the network cut it. Each complete message is
/// decoded and reported through the callback registered for it:
/// `setLanXCB` for an incoming request, `setLanXResultCB` for an incoming
/// reply. Unset callbacks are skipped. Broken input (garbage, bad
/// checksums, oversized bodies, unknown method codes or types) is dropped,
/// at most with one debug line on the Qt logger, and counted in
/// statistics(); no error reaches a callback and no input can crash, hang
/// or grow memory without bound.
///
/// A message whose payload is shorter than its layout still reaches its
/// callback: the fields that are missing read as zero, empty text or
/// false. The data a decoder reads ends with the body's closing zero byte,
/// however, so a reply that lacks only its last flag byte reads that flag
/// from the zero, which on the wire means true: such a reply reports
/// success. Only a reply cut shorter than that reads the flag as false.
///
/// Callbacks are plain function pointers; their first argument is the
/// context pointer set with setReceiveData(). Values passed by reference
/// live only for the duration of the call.
///
/// **Threads.** The resolver owns no thread and no socket; everything runs
/// on the caller's thread. The rules:
/// - encoders of one resolver are called from one thread at a time (they
///   share the sequence counter); the pack-result callback runs inside the
///   encoder, on its thread;
/// - parseReceive() of one resolver is called from one thread at a time;
/// - sending and receiving may run on two different threads: one thread may
///   call encoders while another feeds parseReceive() on the same resolver;
/// - message callbacks run inside parseReceive(), on its thread, with the
///   resolver's event lock held. A callback may call encoders (to answer a
///   request, say), but only where no other thread is sending on that
///   resolver at the same time. A callback that calls parseReceive() on the
///   same resolver has its bytes processed after the current block, before
///   the outer call returns;
/// - the setters (context pointer, pack-result and message callbacks) are
///   not synchronised: call them before sending and receiving start;
/// - distinct resolvers share nothing and may run on any threads;
/// - a resolver may be deleted from inside any of its own callbacks (a
///   message callback, or the pack-result callback of an encoder): the
///   running callback finishes, no further callback of that resolver runs,
///   and whatever it still held (queued messages, pieces not yet handed
///   out, bytes not yet parsed) is freed when control leaves the resolver.
///   Do not touch the resolver after deleting it, and delete it only while
///   no other thread is using it. deleteLater() works as for any QObject;
/// - statistics() may be called from any thread at any time.
///
/// **Lifetime.** A resolver constructed with a parent is deleted with it,
/// like any QObject child; it is the parent's only child that the
/// resolver adds (its private state is owned by the resolver alone), so
/// reparenting it with setParent() or deleting the children by hand is safe.
///
/// **Drops and diagnostics.** Everything the resolver throws away is
/// counted by reason (statistics()), and each drop is one debug line on the
/// logging category `kz.resolver` with its reason and sizes. The category
/// is quiet by default; `QT_LOGGING_RULES="kz.*=true"` (or
/// QLoggingCategory::setFilterRules()) turns its lines on. Encoders warn on
/// the same category, once per message, when a value cannot arrive as it
/// was given: a list or map of more than 32767 entries (counts travel as 16
/// bits and are read back as signed), a text of 32767 bytes or more in a
/// length-prefixed field, or a message body over the 16 MiB that a receiver
/// accepts by default. The bytes sent are the protocol's all the same.
///
/// Typical host:
/// \code
/// static void onFrame(void* ctx, char* bytes, int n) {
///     static_cast<QTcpSocket*>(ctx)->write(bytes, n);
///     free(bytes);
/// }
/// static void onLoginResult(void*, bool ok, int code, bool bit0, bool second) { … }
///
/// KZProtocolResolver r;
/// r.setReceiveData(&socket);
/// r.setParsePackResult(onFrame);
/// r.setLanLoginResultCB(onLoginResult);
/// QObject::connect(&socket, &QTcpSocket::readyRead, [&] { r.parseReceive(socket.readAll()); });
/// r.lanLogin("operator", "secret");
/// \endcode
class KZRESOLVER_EXPORT KZProtocolResolver : public QObject
{
    Q_OBJECT

public:
    /// Receives every packed outgoing frame: send the first `length` bytes.
    /// `bytes` was allocated with `malloc()` and is now the host's to free.
    /// `length` is 0 when the frame could not be packed (a frame capacity
    /// too small for the frame's header); send nothing then, but free it.
    using PackResultCB = void (*)(void* ctx, char* bytes, int length);
    /// Receives every packed outgoing frame lent for the call: send or copy
    /// the `length` bytes (always above 0) before returning; they are not
    /// valid afterwards and are not the host's to free.
    using PackedFrameCB = void (*)(void* ctx, const char* bytes, int length);
    /// Stored for the host; the resolver never calls it.
    using SendFailDisconnectCB = void (*)(void* ctx);

    /// Creates a resolver whose frames are at most `frameCapacity` bytes
    /// (below 1: the default of 2048). Bodies that do not fit are split
    /// into several frames; the receiving side reassembles them.
    explicit KZProtocolResolver(int frameCapacity = 0, QObject* parent = nullptr);
    ~KZProtocolResolver() override;

    KZProtocolResolver(const KZProtocolResolver&) = delete;
    KZProtocolResolver& operator=(const KZProtocolResolver&) = delete;

    /// Sets the context pointer passed as first argument to every callback.
    void setReceiveData(void* ctx);
    /// The context pointer set with setReceiveData() (null by default).
    void* receiveData() const;
    /// Sets the callback that receives every outgoing frame. Without one,
    /// encoders still run (and advance the sequence counter) but their
    /// frames are discarded.
    void setParsePackResult(PackResultCB fn);
    /// Sets a callback that receives every outgoing frame in a buffer the
    /// resolver keeps and packs the next frame into, so that sending
    /// allocates no memory per frame. A host that writes each frame out (or
    /// copies it) at once should prefer it to setParsePackResult(); while
    /// it is set (not null) it is called instead of that callback. A frame
    /// that could not be packed is not handed out. Set it before the first
    /// encoder runs, on the sending thread.
    void setPackedFrameCB(PackedFrameCB fn);
    /// Stores a callback for the host's own use; the resolver never calls it.
    void setSendFailDisconnectCB(SendFailDisconnectCB fn);
    /// Stores the account name of this connection (for the host's use).
    void setAccount(const QString& account);
    /// The account name stored with setAccount() (empty by default).
    QString getAccount() const;
    /// Does nothing; callbacks, account and context stay as they are.
    void clear();

    /// Feeds bytes received from the connection. Frames may be cut anywhere
    /// and several may arrive at once; every message completed by these
    /// bytes is decoded and its callback called before this returns.
    void parseReceive(QByteArray bytes);
    /// Sets the largest message body accepted from now on, whole or
    /// reassembled from pieces, in bytes (16 MiB unless set; values below 1
    /// are ignored). Larger bodies are dropped without being stored
    /// (DropOversizedBody). A server, for instance, accepts only small
    /// bodies until a client has logged in. Called from one of this
    /// resolver's callbacks, the limit applies from the next block passed
    /// to parseReceive(); call it on the thread that calls parseReceive().
    void setMaxReceiveBody(int bytes);
    /// The limit set with setMaxReceiveBody().
    int maxReceiveBody() const;

    /// Why received bytes were thrown away (index of Statistics::drops).
    enum DropReason {
        /// A frame header that contradicts itself (a piece without data,
        /// past its body's end, or with an attr text after the first piece).
        DropBadHeader,
        /// A body larger than the receive limit (setMaxReceiveBody()); a split body is
        /// counted once.
        DropOversizedBody,
        /// A frame whose checksum does not match its bytes (corrupted).
        DropBadChecksum,
        /// A piece of a split body whose first piece never arrived.
        DropOrphanPiece,
        /// A split body broken by a missing or misplaced piece.
        DropPieceOutOfOrder,
        /// An unfinished split body, replaced by a new start of the same
        /// body or discarded to make room for others.
        DropUnfinishedBody,
        /// Bytes the frame layer could not store (memory ran out).
        DropOutOfMemory,
        /// A frame that carries no body at all.
        DropEmptyBody,
        /// A body shorter than its 4-byte message header.
        DropShortBody,
        /// A body whose type byte is not the protocol's message type.
        DropUnknownType,
        /// A method code that this library does not know.
        DropUnknownMethod,
        /// The number of reasons (the size of Statistics::drops), not a reason.
        DropReasonCount
    };

    /// What a resolver received and what it threw away, counted since its
    /// construction. The counts are always kept; reading them is cheap.
    struct Statistics
    {
        /// Bytes handed to parseReceive().
        quint64 bytesReceived = 0;
        /// Frames (whole bodies or pieces of split ones) that passed their
        /// checks.
        quint64 framesAccepted = 0;
        /// Messages handed to the decoder of their method code (its
        /// callback is called when set and when the flag selects a
        /// direction the message has).
        quint64 messagesDispatched = 0;
        /// Bytes passed over while looking for frames: noise between
        /// frames and the bytes of frames that failed a check. Bytes still
        /// waiting for the rest of their frame are not counted yet.
        quint64 garbageBytes = 0;
        /// Frames, pieces and messages thrown away, by DropReason.
        quint64 drops[DropReasonCount] = {};

        /// All drops, whatever their reason.
        quint64 totalDrops() const
        {
            quint64 n = 0;
            for (quint64 d : drops) n += d;
            return n;
        }
    };

    /// The counts of this resolver so far. Callable from any thread; while
    /// another thread is parsing, the counts are each current but not
    /// necessarily of the same instant.
    Statistics statistics() const;
    /// A short text for a drop reason ("frame checksum mismatch", ...), as
    /// the `kz.resolver` log lines write it; null for an unknown value.
    static const char* dropReasonText(DropReason reason);

    // The messages, family by family: their callback types, encoders and
    // callback setters, generated from the protocol table.
#define KZRESOLVER_IN_RESOLVER_CLASS
#include "kzmessages.h"
#undef KZRESOLVER_IN_RESOLVER_CLASS

private:
    KZProtocolResolverPrivate* d;
    friend class KZProtocolResolverPrivate;
};

#endif // KZRESOLVER_KZPROTOCOLRESOLVER_H
