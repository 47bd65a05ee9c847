/// \file kzserversession.h
/// One client's connection to a KZServer: KZServerSession.
#ifndef KZRESOLVER_KZSERVERSESSION_H
#define KZRESOLVER_KZSERVERSESSION_H

#include "kzresolver_global.h"
#include "kzresponder.h"

#include <QObject>
#include <QString>

#include <memory>

class KZConnection;
class KZProtocolResolver;
class KZServer;
class KZServerPrivate;
class KZServerSessionPrivate;
class QTcpSocket;

/// One client of a KZServer, from its connection to its end: its connection, whether and as
/// whom it logged in, the answers it is owed and the limits the server applies to it.
///
/// The server makes a session for each connection it accepts (KZServer::sessionStarted()),
/// owns it and deletes it after KZServer::sessionEnded(); a host never deletes one. A session
/// lives in the server's thread; call it there. Keep a `QPointer` to a session that a host
/// holds beyond a slot, or use a KZResponder, which stays harmless when the session is gone.
///
/// What a host keeps per session (its rights, say) it may keep in the session's dynamic
/// properties (`QObject::setProperty()`).
class KZRESOLVER_EXPORT KZServerSession : public QObject
{
    Q_OBJECT

public:
    /// Ends the session's connection without a word.
    ~KZServerSession() override;

    /// The server of the session.
    KZServer* server() const;
    /// The session's connection: its signals carry every message the client sends. KZServer's
    /// handlers (KZServer::handle()) are the way to take requests; a slot connected here
    /// directly sees requests before the login too, and must make its own responder().
    KZConnection* connection() const;
    /// The connection's resolver: the encoders of what the session sends.
    KZProtocolResolver* resolver() const;
    /// The client's address, as text ("127.0.0.1", "::1").
    QString peerAddress() const;
    /// The client's port.
    quint16 peerPort() const;
    /// "address:port", for log lines.
    QString peer() const;

    /// Whether the session's login was accepted (and it has not logged out).
    bool isLoggedIn() const;
    /// The name the session logged in with; empty before.
    QString user() const;
    /// Whether its login was accepted as an administrator's (KZLoginResponder::accept()).
    bool isAdministrator() const;

    /// The responder of the request being delivered. Call it once per request, in the slot
    /// that takes the request and before that slot returns, so that its answer keeps the
    /// request's place; KZServer::handle() does it for its handlers.
    KZResponder responder();
    /// Requests whose responder has not answered yet (the login included).
    int requestsInFlight() const;
    /// Bytes written for the client that it has not taken yet.
    qint64 unreadBytes() const;

    /// Sends a message that the client did not ask for, such as a list after a change:
    /// `push` writes it with the session's resolver. While the client does not take what was
    /// written for it (more than half of KZServer::Limits::maxUnreadBytes unread), the push is
    /// held and sent when it drains; a later push of the same `code` replaces one held. Call
    /// it on the session's thread.
    void push(int code, const KZResponder::Answer& push);

    /// Ends the session after what was written to it has gone.
    void close();
    /// Ends the session at once; what was not sent is lost.
    void abort();

Q_SIGNALS:
    /// A responder of this session was dropped without an answer (see KZResponder).
    void requestUnanswered();

private Q_SLOTS:
    void takeAnswers(); ///< the answers that responders handed over, in the order they came

private:
    friend class KZServer;
    friend class KZServerPrivate;
    friend class KZServerSessionPrivate;
    KZServerSession(KZServer* server, QTcpSocket* socket);
    /// Whether a request may reach the host's handlers: logged in, else dropped with a log
    /// line.
    bool admit(const char* what);
    std::unique_ptr<KZServerSessionPrivate> d;
};

#endif // KZRESOLVER_KZSERVERSESSION_H
