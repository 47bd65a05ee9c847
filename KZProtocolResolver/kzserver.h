/// \file kzserver.h
/// A LAN server whose host answers requests when it can: KZServer.
#ifndef KZRESOLVER_KZSERVER_H
#define KZRESOLVER_KZSERVER_H

#include "kzconnection.h"
#include "kzresolver_global.h"
#include "kzresponder.h"
#include "kzserversession.h"

#include <QList>
#include <QObject>
#include <QString>

#include <functional>
#include <memory>

class KZServerPrivate;
class QHostAddress;
class QTcpServer;

/// A server of the LAN protocol: it accepts connections, keeps a session (KZServerSession)
/// per client with the limits a server facing a plant's network needs, asks the host to
/// authenticate each login, and hands each request of a logged-in client to the host's
/// handler with a KZResponder that answers it later. See the page "Writing a server" for a
/// whole example.
///
/// \code
/// auto* server = new KZServer(this);
/// server->setAuthenticator([](KZServerSession*, const QString& user, const QString& password,
///                             KZLoginResponder answer) {
///     checkInDatabase(user, password, [answer](bool ok) { ok ? answer.accept() : answer.refuse();
///     });
/// });
/// server->handle(&KZConnection::deleteUser,
///                [](KZServerSession*, KZResponder answer, const QStringList& names) {
///     deleteInDatabase(names, [answer, names](bool ok) {                 // any thread
///         answer.send([=](KZProtocolResolver& r) { r.lanDeleteUserResponse(ok, names); });
///     });
/// });
/// server->listen(QHostAddress::Any, 7600);
/// \endcode
///
/// **Sessions and limits.** Limits says what a session may cost: the clients at most, those
/// that have not logged in per address, the largest message before and after the login, the
/// bytes of answers a client leaves unread, the time a client has to log in, the time a
/// logged-in client may stay silent, and the requests of one client being worked on at once
/// (its further requests wait in the network until one is answered).
///
/// **Login.** The login exchange is the server's: a login reaches the authenticator, whose
/// answer becomes the login reply; a session is logged in from its accepted login to its
/// logout or its end. Without an authenticator every login is refused. A logout ends the
/// session after what was written to it.
///
/// **Requests.** handle() connects a handler to one request signal of every session's
/// connection (the signals of KZConnectionSignals): it runs for logged-in sessions only, on
/// the server's thread, with the session and the request's responder. The rights a request
/// needs are the host's to check there; a refusal is an answer like any other.
///
/// **Threads.** The server, its sessions and the host's handlers live in the server's
/// thread; run nothing slow there (a handler that queries a database hands the query to
/// another thread and answers from it through its responder). KZResponder and
/// KZLoginResponder are the only parts a host may use from other threads.
///
/// **Pushes.** KZServerSession::push() sends one client a message it did not ask for;
/// pushToLoggedIn() sends it to every logged-in client, each as its output allows.
class KZRESOLVER_EXPORT KZServer : public QObject
{
    Q_OBJECT

public:
    /// What one client may cost the server; 0 turns a time-out off where it says so.
    struct Limits
    {
        /// Sessions at most; a connection beyond them is closed at once.
        int maxClients = 1000;
        /// Sessions from one address that have not logged in: when one more comes, the oldest
        /// of them that has sent no login is closed (or the new one, if all of them have).
        int maxClientsBeforeLoginPerAddress = 64;
        /// The largest message body taken from a session before its login (a login is a
        /// few hundred bytes).
        int maxBodyBeforeLogin = 4096;
        /// The largest message body taken after the login.
        int maxBody = 16 * 1024 * 1024;
        /// While a client leaves more than this many bytes of answers unread, its requests
        /// are not read; reading resumes below half of it.
        qint64 maxUnreadBytes = 8 * 1024 * 1024;
        /// A client whose unread answers stay over maxUnreadBytes without it taking any for
        /// this long is disconnected.
        int writeStallMs = 10000;
        /// A session that has not logged in after this long is closed (0: never).
        int loginTimeoutMs = 10000;
        /// A logged-in session that sends nothing for this long, with no request in flight,
        /// is closed (0: never).
        int idleTimeoutMs = 30 * 60 * 1000;
        /// Requests of one session whose answer is owed; at the bound its further requests
        /// are not read until one is answered.
        int maxInFlight = 16;
        /// Bytes read and decoded from one client per pass of the event loop.
        int readChunkBytes = 8 * 1024;
        /// Bytes a client's socket holds unread at most; beyond them TCP holds the client
        /// back.
        int readBufferBytes = 64 * 1024;
    };

    /// Checks a login: `user` and `password` as the client sent them (the cipher's padding
    /// removed), answered through `answer`, now or later from any thread.
    using Authenticator = std::function<void(KZServerSession* session, const QString& user,
                                             const QString& password, KZLoginResponder answer)>;

    /// A server that listens nowhere yet.
    explicit KZServer(QObject* parent = nullptr);
    /// Ends every session at once; their responders stay harmless.
    ~KZServer() override;

    /// Listens on `address` and `port` (0: a free port, see serverPort()); false, with
    /// errorString(), when it cannot. The server makes the listening socket itself.
    bool listen(const QHostAddress& address, quint16 port);
    /// Takes the connections of `server` instead, a listening QTcpServer that the host made
    /// (one that runs a TLS handshake before it hands a QSslSocket over, say). The server does
    /// not own it. Call it before `server` has pending connections, or they wait until the next.
    void setTcpServer(QTcpServer* server);
    /// The listening server, made by listen() or given with setTcpServer(); null before.
    QTcpServer* tcpServer() const;
    /// The port listened on; 0 when not listening.
    quint16 serverPort() const;
    /// Why listen() failed.
    QString errorString() const;
    /// Stops listening and ends every session at once.
    void close();

    /// Sets the limits of sessions; sessions already open keep theirs.
    void setLimits(const Limits& limits);
    /// The limits of new sessions.
    Limits limits() const;

    /// Sets the function that checks logins (see Authenticator).
    void setAuthenticator(Authenticator authenticator);

    /// Runs `handler(session, responder, values…)` for each `signal` of a logged-in session's
    /// connection, `signal` being one of KZConnection's request signals
    /// (`&KZConnection::deleteUser`); a session that has not logged in has its requests
    /// dropped, with a log line. Sessions open now and later get the handler. The server
    /// handles the login and the logout itself: do not give their signals here.
    template <class... Args, class Handler>
    void handle(void (KZConnectionSignals::*signal)(Args...), Handler handler)
    {
        addHandler([signal, handler](KZServerSession* s) {
            QObject::connect(s->connection(), signal, s, [s, handler](Args... values) {
                if (s->admit("a request")) handler(s, s->responder(), values...);
            });
        });
    }

    /// The sessions open now.
    QList<KZServerSession*> sessions() const;
    /// How many sessions are open.
    int sessionCount() const;
    /// KZServerSession::push() to every logged-in session.
    void pushToLoggedIn(int code, const KZResponder::Answer& push);

Q_SIGNALS:
    /// A connection was accepted: `session` is new and has not logged in.
    void sessionStarted(KZServerSession* session);
    /// `session`'s login was accepted; its login reply has been written. What the client
    /// expects after a login (the lists it shows, say) is pushed from here.
    void sessionLoggedIn(KZServerSession* session);
    /// `session` ended (its client left, logged out, was closed or timed out); it is deleted
    /// after this, from the event loop.
    void sessionEnded(KZServerSession* session);

private:
    friend class KZServerPrivate;
    friend class KZServerSession;
    friend class KZServerSessionPrivate;
    /// Runs `attach` on every session open now and on each new one.
    void addHandler(const std::function<void(KZServerSession*)>& attach);
    std::unique_ptr<KZServerPrivate> d;
};

#endif // KZRESOLVER_KZSERVER_H
