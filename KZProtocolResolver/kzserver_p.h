// KZServer's private classes: the server's listening side and its sessions, each session's
// answers in the order of its requests, and the line a responder reaches its session by.
#ifndef KZRESOLVER_KZSERVER_P_H
#define KZRESOLVER_KZSERVER_P_H

#include "kzserver.h"

#include <QHash>
#include <QMap>
#include <QPointer>
#include <QTimer>

#include <atomic>
#include <functional>
#include <map>
#include <mutex>
#include <vector>

/// What a responder hands its session, run on the session's thread.
class KZServerSessionPrivate;
using KZDelivery = std::function<void(KZServerSessionPrivate*)>;

/// The way from responders, on any thread, to their session: null once the session is gone.
/// Answers wait in the inbox, under the lock, until the session takes them on its thread; the
/// session's destructor clears the line under the same lock, so an answer reaches a live
/// session or none.
struct KZSessionLine
{
    std::mutex mutex;
    KZServerSessionPrivate* session = nullptr;
    std::vector<std::pair<qint64, KZDelivery>> inbox;

    /// Hands `delivery` for request `ticket` to the session, if it is still there. An empty
    /// delivery means the responder was dropped without an answer.
    void post(qint64 ticket, KZDelivery delivery);
};

class KZResponderState
{
public:
    KZResponderState(std::shared_ptr<KZSessionLine> line, qint64 ticket, bool login)
        : line(std::move(line)), ticket(ticket), login(login)
    {}
    /// Delivers a dropped request: a login is refused, another left unanswered.
    ~KZResponderState();
    /// Hands `delivery` to the session once; later calls do nothing.
    void deliver(KZDelivery delivery);

    const std::shared_ptr<KZSessionLine> line;
    const qint64 ticket;
    const bool login;
    std::atomic<bool> used{false};
};

class KZServerSessionPrivate
{
public:
    KZServerSessionPrivate(KZServerSession* q, KZServer* server, QTcpSocket* socket);

    KZServerSession* const q;
    KZServer* const server;
    QTcpSocket* const socket; ///< owned by the connection
    KZConnection* conn;
    const KZServer::Limits limits;
    const std::shared_ptr<KZSessionLine> line = std::make_shared<KZSessionLine>();
    QString address;
    quint16 port = 0;
    qint64 startedMs = 0;

    bool loggedIn = false;
    bool loginPending = false;
    bool administrator = false;
    QString user;
    QString pendingUser; ///< the name of the login being checked
    bool ended = false;

    qint64 nextTicket = 0;              ///< the ticket of the next request
    qint64 nextToSend = 0;              ///< the ticket whose answer goes next
    int inFlight = 0;                   ///< tickets given whose answer has not arrived
    std::map<qint64, KZDelivery> ready; ///< answers that wait for an earlier one
    std::map<int, KZResponder::Answer> heldPushes;
    bool outputBlocked = false; ///< too much unread: reading paused until it drains
    bool stallCheck = false;
    qint64 lastWrittenMs = 0;
    QTimer idle;
    QTimer loginTimer;

    qint64 unread() const;
    /// A ticket for the next request, counted in flight.
    std::shared_ptr<KZResponderState> take(bool login);
    /// On the session's thread: the answer of `ticket` arrived (empty: dropped); sends every
    /// answer whose turn has come.
    void arrived(qint64 ticket, KZDelivery delivery);
    void updateReading();
    void touch();
    void watchStall();
    void sendHeldPushes();
    void login(const QString& user, const QString& password);
    void loginAnswered(bool ok, int code, bool administrator);
    void logout();
};

class KZServerPrivate
{
public:
    explicit KZServerPrivate(KZServer* q) : q(q) {}

    KZServer* const q;
    QPointer<QTcpServer> tcp;
    bool ownTcp = false;
    QString errorString;
    KZServer::Limits limits;
    KZServer::Authenticator authenticator;
    std::vector<std::function<void(KZServerSession*)>> handlers;
    QList<KZServerSession*> sessions; ///< in the order they started

    void accept();
    /// Makes room for one more connection from `address` before login; false when there is
    /// none.
    bool roomBeforeLogin(const QString& address);
    void end(KZServerSession* session);
};

#endif // KZRESOLVER_KZSERVER_P_H
