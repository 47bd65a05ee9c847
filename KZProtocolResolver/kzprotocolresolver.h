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
/// checksums, truncated or unknown messages) is dropped, at most with one
/// debug line on the Qt logger; nothing is reported to the host and no
/// input can crash, hang or grow memory without bound.
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
/// - distinct resolvers share nothing and may run on any threads.
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
    /// Receives every packed outgoing frame. `bytes` was allocated with
    /// `malloc()` and is now the host's to free.
    using PackResultCB = void (*)(void* ctx, char* bytes, int length);
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

    /// \name Session: login and logout
    /// The password travels AES-128-CBC enciphered under a key the library
    /// derives at run time; the receiving resolver deciphers it.
    ///@{
    using LanLoginCB = void (*)(void* ctx, const QString& account, const QString& password);
    using LanLoginResultCB = void (*)(void* ctx, bool first, int code, bool codeBit0, bool second);
    using LanLogoutCB = void (*)(void* ctx, int value);

    /// Sends a login request with the password enciphered.
    void lanLogin(const QString& account, const QString& password);
    /// Answers a login. The receiver gets `code` with bit 0 cleared, and
    /// bit 0 separately as `codeBit0`.
    void lanLoginResult(bool first, int code, bool second);
    /// Announces a logout.
    void lanLogout(int value);
    /// Called for a login request; the password arrives deciphered (cut at
    /// its first zero byte; cipher padding bytes 1..15 stay at its end).
    void setLanLoginCB(LanLoginCB fn);
    /// Called for a login reply.
    void setLanLoginResultCB(LanLoginResultCB fn);
    /// Called for a logout.
    void setLanLogoutCB(LanLogoutCB fn);
    ///@}

    // Each message family has its section; a family adds its declarations
    // just above its own marker line.

    // @@users@@

    // @@groups@@

    // @@operators@@

    // @@permissions@@

    // @@mac registry@@

    // @@mac status@@

    // @@remote panel@@

    // @@more families@@

private:
    KZProtocolResolverPrivate* d;
    friend class KZProtocolResolverPrivate;
};

#endif // KZRESOLVER_KZPROTOCOLRESOLVER_H
