/// \file kzclient.h
/// A client of a LAN server whose requests return replies: KZClient.
#ifndef KZRESOLVER_KZCLIENT_H
#define KZRESOLVER_KZCLIENT_H

#include "kzconnectionsignals.h" // the records' meta-types, which the signals use
#include "kzprotocolresolver.h"
#include "kzrecords.h"
#include "kzreply.h"
#include "kzresolver_global.h"

#include <QList>
#include <QMap>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <memory>

class QIODevice;
class KZConnection;
class KZClientPrivate;

/// A client of a LAN server: it connects, logs in, sends requests and hands each request's
/// answer back as a KZReply. See the page "Writing a client" for a whole example.
///
/// \code
/// auto* client = new KZClient(this);
/// client->connectToHost("kzlan-server.plant", 7600);
/// client->login("admin", password);                 // runs once connected
/// auto* reply = client->deleteUser({"old.name"});   // sent once logged in
/// connect(reply, &KZReply::finished, this, [reply] {
///     if (reply->error() == KZReply::Error::NoError && reply->values().ok) { … }
///     reply->deleteLater();
/// });
/// \endcode
///
/// **States.** Unconnected → Connecting → Connected → LoggingIn → Ready, and Closing on the way
/// out; stateChanged() reports each. A failure emits errorOccurred() and ends in Unconnected.
/// An ordinary end (disconnectFromHost(), or the server closing after a logout) is no error.
///
/// **Requests.** One method per request that a reply answers, generated from the message
/// table: `deleteUser(names)` sends `lanDeleteUser` and returns a KZReplyOf<DeleteUserReply>.
/// A request made before the client is Ready is queued and sent, in order, once it is.
///
/// **Matching.** The protocol carries no request number: a reply is matched to the oldest
/// request of the same message code that is still waiting (first in, first out per code). A
/// server answers the requests of one message in order; a reply that comes when no request of
/// its code waits is reported by unexpectedReply() and otherwise ignored. A request that timed
/// out, or whose reply object was deleted, keeps its place until its answer comes, so a late
/// answer never finishes the next request's reply; the places are cleared with the connection.
///
/// **Time-outs.** Each request has the client's time-out (setTimeout(), 30 s unless set;
/// KZReply::setTimeout() for one request), counted from when it is sent. The connection and the
/// login have the client's time-out too. When the connection is lost, every waiting reply
/// finishes with ConnectionLostError; after disconnectFromHost() with CanceledError.
///
/// **Reconnecting.** With setAutoReconnect(true), a connection made with connectToHost() that
/// is lost after a login is made again after 0.5 s, then 1 s, 2 s and so on up to 30 s between
/// tries, and the client logs in again with the same name and password; requests not yet sent
/// wait for it. A refused login is not tried again.
///
/// **Pushes.** What the server sends unasked arrives as signals: usersReceived(),
/// machinesReceived(), operatorsReceived(), transferProgress(). A machine list that the server
/// pushes is acknowledged by the client itself, as the server expects. Every other message
/// arrives as a signal of connection().
///
/// **Threads.** A client lives in one thread, that of its device; call it and delete it
/// there. Its signals are emitted from the event loop: a slot may delete the client
/// (deleteLater() is not needed).
class KZRESOLVER_EXPORT KZClient : public QObject
{
    Q_OBJECT

public:
    /// Where the client stands.
    enum class State {
        Unconnected, ///< no connection
        Connecting,  ///< the connection is being made
        Connected,   ///< connected, no login sent yet (call login())
        LoggingIn,   ///< the login is sent, its answer not yet there
        Ready,       ///< logged in: requests are sent as they are made
        Closing,     ///< logging out and closing
    };
    Q_ENUM(State)

    /// The client's errors: those of its replies (KZReply::Error).
    using Error = KZReply::Error;

    /// An unconnected client.
    explicit KZClient(QObject* parent = nullptr);
    /// Closes the connection without a logout; waiting replies are deleted with the client
    /// and emit nothing.
    ~KZClient() override;

    /// Connects over TCP to `host` and `port` (the client makes and owns the socket; this is
    /// the only place the library uses Qt Network). Logs in at once if login() was called.
    void connectToHost(const QString& host, quint16 port);
    /// Uses `device` for the connection instead: a QSslSocket, a QLocalSocket, any QIODevice;
    /// the client does not own it, but closes it in disconnectFromHost(). An open device is
    /// Connected at once; a socket that is still connecting becomes Connected when it emits
    /// `connected()`. Reconnecting applies to connectToHost() only.
    void setDevice(QIODevice* device);
    /// The device in use, or null.
    QIODevice* device() const;
    /// Logs out and closes the connection: Closing, then Unconnected, without an error.
    /// Requests not yet answered finish with CanceledError. Stops reconnecting.
    void disconnectFromHost();

    /// Logs in as `user` with `password` once connected (at once if it is), and again after
    /// each reconnection. Ready follows an accepted login; a refused one is LoginRefusedError
    /// and closes the connection.
    void login(const QString& user, const QString& password);
    /// The code of the last login answer (0: accepted, 2: refused by the reference server).
    int loginCode() const;
    /// Whether the last login answer said the account is an administrator.
    bool isAdministrator() const;

    /// Where the client stands.
    State state() const;
    /// The last error; NoError until one happens. A new connection clears it.
    Error error() const;
    /// A sentence on error() for people, with the device's own words where it gave any.
    QString errorString() const;

    /// Sets the time-out of the connection, the login and each request, in milliseconds
    /// (30000 unless set; 0 waits forever). Requests already sent keep theirs.
    void setTimeout(int ms);
    /// The time-out in milliseconds.
    int timeout() const;
    /// Makes the connection again when it is lost after a login (see the class description).
    void setAutoReconnect(bool on);
    /// Whether the connection is made again when lost.
    bool autoReconnect() const;

    /// The connection under the client: its signals carry every message the server sends,
    /// requests and replies alike. Do not send with its resolver while requests wait: a request
    /// sent past the client is not matched, and its answer is reported as unexpected.
    KZConnection* connection() const;

#define KZRESOLVER_IN_CLIENT_CLASS
#include "kzclientrequests.h"
#undef KZRESOLVER_IN_CLIENT_CLASS

Q_SIGNALS:
    /// The client went to `state`.
    void stateChanged(KZClient::State state);
    /// The client failed with `error` (errorString() says more); it then goes to Unconnected.
    void errorOccurred(KZReply::Error error);
    /// A reply of message `code` came while no request of that code waited.
    void unexpectedReply(int code);
    /// The server sent the user list (after the login, and after each change to the accounts).
    void usersReceived(const QList<user_info>& users);
    /// The server sent the machine list (after the login, and after each change to the
    /// machines); the client has acknowledged it.
    void machinesReceived(const QList<mac_info>& machines);
    /// The server sent the operator table: the names in `order`, each one's record in `table`.
    void operatorsReceived(const QStringList& order, const QMap<QString, operator_user>& table);
    /// The server reported the progress of transfer task `task`: `percent` done, `bytes`
    /// received so far.
    void transferProgress(int task, int percent, int bytes);

private:
    friend class KZClientPrivate;
    friend class KZReply;
    std::unique_ptr<KZClientPrivate> d;
};

#endif // KZRESOLVER_KZCLIENT_H
