/// \file kzconnection.h
/// A protocol connection over a QIODevice, with one Qt signal per message.
#ifndef KZRESOLVER_KZCONNECTION_H
#define KZRESOLVER_KZCONNECTION_H

#include "kzconnectionsignals.h"
#include "kzprotocolresolver.h"
#include "kzresolver_global.h"

#include <QByteArray>
#include <QObject>
#include <QString>

#include <memory>

class QIODevice;
class KZConnectionPrivate;

/// One protocol connection over a QIODevice (a QTcpSocket, a QLocalSocket,
/// a serial port, any device): the socket glue and the callbacks of a
/// KZProtocolResolver, done once.
///
/// **Receiving.** Whatever the device reads is fed to the resolver, and every
/// complete message is emitted as a signal named after it, with the
/// callback's arguments (without the context pointer): `loginResult(bool,
/// int, bool, bool)` for `LanLoginResultCB`, `deleteUser(QStringList)` for
/// `LanDeleteUserCB`, and so on for every callback the resolver has. The
/// signals are declared in KZConnectionSignals, generated from the
/// resolver's callback table.
///
/// **Sending.** Call the encoders of resolver(): `conn->resolver()->lanLogin(…)`.
/// Every frame they produce is written to the device. A device that takes
/// only part of a frame (an unbuffered one) gets the rest as it reports
/// `bytesWritten()`; buffered devices such as sockets take every frame whole
/// and send it from their own write buffer (see `bytesToWrite()`), so a host
/// that sends a lot should watch that, or pendingBytes(), before sending more.
/// Frames produced while no device is attached wait for one; frames produced
/// while the device is not writable (closed) are dropped.
///
/// **Threads.** The connection lives in the device's thread; its signals
/// are emitted there. Connect across threads with queued connections: every
/// argument type, records included, is a registered meta-type. Encoders may
/// be called from another thread (one thread at a time, as for any
/// resolver); their frames are then handed to the connection's thread and
/// written there, in order.
///
/// **Context pointer.** The connection sets the resolver's context pointer,
/// pack-result callback and every message callback. A host may still set
/// one message callback on resolver() itself: it then replaces that
/// message's signal, and its context pointer is this connection.
///
/// A slot connected directly may send replies, but must not delete the
/// connection (use deleteLater()).
///
/// \code
/// auto* conn = new KZConnection(socket, this);
/// connect(conn, &KZConnection::loginResult, this, [](bool ok, int code, bool, bool) { … });
/// connect(conn, &KZConnection::deleteUser, this, &Server::deleteUsers);
/// conn->resolver()->lanLogin("operator", "secret");
/// \endcode
///
/// **TLS.** The protocol's own login cipher has a key and vector that the
/// protocol fixes: it keeps the password from a glance at a frame, not from
/// anyone who captures the login, and nothing else is enciphered. Where the
/// network is not trusted, run the connection over a QSslSocket (the host
/// links Qt Network; KZConnection itself uses Qt Core only). Start TLS from
/// the socket's first byte: connectToHostEncrypted() on the client;
/// startServerEncryption() on the server as soon as the socket is made (or
/// attach the socket once it emitted `encrypted()`). Then:
/// - frames sent before the handshake completes, even before the socket is
///   connected, are held and travel encrypted after it;
/// - only decrypted bytes are read: nothing reaches the resolver before the
///   handshake is done;
/// - a refused certificate or a failed handshake is errorOccurred() with the
///   TLS layer's reason ("The certificate is self-signed, and untrusted",
///   "The host name did not match any of the valid hosts for this
///   certificate", …), followed by one disconnected(). Frames already sent
///   are never written in the clear.
///
/// Do not start TLS later on a socket that already carries the connection
/// (after `connected()`): frames written before that went out unprotected.
///
/// \code
/// auto* socket = new QSslSocket;
/// QSslConfiguration tls = socket->sslConfiguration();
/// tls.setCaCertificates(QSslCertificate::fromPath("plant-ca.crt")); // or the system's
/// socket->setSslConfiguration(tls);
/// auto* conn = new KZConnection(nullptr, this);
/// conn->setDevice(socket, KZConnection::Ownership::Owned);
/// connect(conn, &KZConnection::errorOccurred, this, [](const QString& why) { … });
/// conn->resolver()->lanLogin("operator", "secret");    // sent after the handshake
/// socket->connectToHostEncrypted("kzlan-server.plant", 7600); // the name is checked
/// \endcode
class KZRESOLVER_EXPORT KZConnection : public KZConnectionSignals
{
    Q_OBJECT

public:
    /// Whether the connection deletes its device.
    enum class Ownership {
        Borrowed, ///< the device belongs to the caller (the default)
        Owned,    ///< deleted with the connection or when replaced
    };

    /// A connection over `device` (may be null: see setDevice()), with
    /// frames of the resolver's default capacity.
    explicit KZConnection(QIODevice* device = nullptr, QObject* parent = nullptr);
    /// A connection whose resolver packs frames of at most `frameCapacity`
    /// bytes (see KZProtocolResolver::KZProtocolResolver()).
    KZConnection(QIODevice* device, int frameCapacity, QObject* parent = nullptr);
    ~KZConnection() override;

    /// Attaches the device to read from and write to, detaching the previous
    /// one (deleted if it was Owned). Frames waiting for a device are written
    /// at once; bytes already waiting on the device are read on the next
    /// pass of the event loop, after the caller has connected its slots.
    /// The resolver stays the same: attach a device to a new connection
    /// only, or at the start of a fresh stream.
    void setDevice(QIODevice* device, Ownership ownership = Ownership::Borrowed);
    /// The attached device, or null.
    QIODevice* device() const;

    /// The resolver of this connection: call its encoders to send. It is
    /// owned by the connection and lives as long as it.
    KZProtocolResolver* resolver() const;

    /// Bytes of frames produced but not yet accepted by the device (not
    /// counting the device's own write buffer).
    qint64 pendingBytes() const;

    /// Sets how many bytes one pass of the event loop reads from the device
    /// and decodes (64 KiB unless set; values below 1 are ignored). What is
    /// left is read on the following passes, so that a connection that
    /// receives a lot does not keep the loop from other work, and a host
    /// can pause between two blocks.
    void setReadChunkSize(qint64 bytes);
    /// The size set with setReadChunkSize().
    qint64 readChunkSize() const;
    /// Stops or resumes reading from the device. While paused nothing is
    /// read or decoded, not even when the peer goes away; the bytes wait in
    /// the device. A host pauses a peer whose replies it cannot get rid of
    /// (see pendingBytes() and the device's `bytesToWrite()`), so that the
    /// peer's requests stop costing memory. For reading to stop at the
    /// network too, give a socket a limited read buffer
    /// (`QAbstractSocket::setReadBufferSize()`): the peer is then held back
    /// by TCP flow control.
    void setReadingPaused(bool paused);
    /// Whether reading is paused (setReadingPaused()).
    bool isReadingPaused() const;

Q_SIGNALS:
    /// The device's peer went away: the device emitted `disconnected()`
    /// (sockets) or, for a device without that signal, `readChannelFinished()`.
    /// Whatever it had received before was decoded first, unless reading
    /// is paused (setReadingPaused()).
    void disconnected();
    /// The device reported an error (`errorOccurred` of a socket) or refused
    /// a write; `message` is the device's error string.
    void errorOccurred(const QString& message);
    /// A frame was handed to the device (or queued for it), in sending
    /// order: for logs and captures. Emitted only when connected.
    void frameSent(const QByteArray& frame);

private Q_SLOTS:
    void handleReadyRead();
    void readMore();
    void handleBytesWritten();
    void handleDeviceClosed();
    void handleDeviceError();

private:
    friend class KZConnectionPrivate;
    std::unique_ptr<KZConnectionPrivate> d;
};

#endif // KZRESOLVER_KZCONNECTION_H
