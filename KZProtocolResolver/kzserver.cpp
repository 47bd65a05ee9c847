// KZServer: accepting connections within the limits, a session per connection, the host's
// authenticator and request handlers given to each session, and pushes to all of them.
#include "kzserver_p.h"

#include <QDateTime>
#include <QHostAddress>
#include <QLoggingCategory>
#include <QTcpServer>
#include <QTcpSocket>

Q_LOGGING_CATEGORY(lcKZServer, "kz.server")

KZServer::KZServer(QObject* parent) : QObject(parent), d(new KZServerPrivate(this)) {}

KZServer::~KZServer()
{
    // Sessions go before the private object their end reports to.
    const QList<KZServerSession*> all = d->sessions;
    d->sessions.clear();
    qDeleteAll(all);
}

bool KZServer::listen(const QHostAddress& address, quint16 port)
{
    auto* tcp = new QTcpServer(this);
    if (!tcp->listen(address, port)) {
        d->errorString = tcp->errorString();
        delete tcp;
        return false;
    }
    setTcpServer(tcp);
    d->ownTcp = true;
    return true;
}

void KZServer::setTcpServer(QTcpServer* server)
{
    if (d->tcp) {
        d->tcp->disconnect(this);
        if (d->ownTcp) d->tcp->deleteLater();
    }
    d->tcp = server;
    d->ownTcp = false;
    if (server) connect(server, &QTcpServer::newConnection, this, [this] { d->accept(); });
}

QTcpServer* KZServer::tcpServer() const { return d->tcp; }
quint16 KZServer::serverPort() const { return d->tcp ? d->tcp->serverPort() : 0; }
QString KZServer::errorString() const { return d->errorString; }

void KZServer::close()
{
    if (d->tcp) d->tcp->close();
    const QList<KZServerSession*> all = d->sessions;
    for (KZServerSession* s : all) s->abort();
}

void KZServer::setLimits(const Limits& limits) { d->limits = limits; }
KZServer::Limits KZServer::limits() const { return d->limits; }
void KZServer::setAuthenticator(Authenticator authenticator)
{
    d->authenticator = std::move(authenticator);
}

void KZServer::addHandler(const std::function<void(KZServerSession*)>& attach)
{
    d->handlers.push_back(attach);
    for (KZServerSession* s : std::as_const(d->sessions)) attach(s);
}

QList<KZServerSession*> KZServer::sessions() const { return d->sessions; }
int KZServer::sessionCount() const { return d->sessions.size(); }

void KZServer::pushToLoggedIn(int code, const KZResponder::Answer& push)
{
    // A write may end a session; it is deleted from the event loop only.
    const QList<KZServerSession*> all = d->sessions;
    for (KZServerSession* s : all)
        if (!s->d->ended && s->isLoggedIn()) s->push(code, push);
}

void KZServerPrivate::accept()
{
    while (QTcpSocket* socket = tcp->nextPendingConnection()) {
        const QString address = socket->peerAddress().toString();
        if (sessions.size() >= limits.maxClients || !roomBeforeLogin(address)) {
            qCWarning(lcKZServer).noquote()
                << "too many clients; closed a connection from" << address;
            socket->abort();
            socket->deleteLater();
            continue;
        }
        auto* s = new KZServerSession(q, socket);
        sessions.append(s);
        qCInfo(lcKZServer).noquote() << s->peer() << "connected;" << sessions.size() << "sessions";
        QObject::connect(s->connection(), &KZConnection::disconnected, q, [this, s] { end(s); });
        emit q->sessionStarted(s);
        for (const auto& attach : handlers) attach(s);
    }
}

bool KZServerPrivate::roomBeforeLogin(const QString& address)
{
    KZServerSession* oldest = nullptr;
    int waiting = 0;
    for (KZServerSession* s : std::as_const(sessions)) {
        if (s->isLoggedIn() || s->d->address != address) continue;
        ++waiting;
        if (!s->d->loginPending && (!oldest || s->d->startedMs < oldest->d->startedMs)) oldest = s;
    }
    if (waiting < limits.maxClientsBeforeLoginPerAddress) return true;
    if (!oldest) return false;
    qCInfo(lcKZServer).noquote() << oldest->peer() << "closed to make room for" << address;
    end(oldest);
    return true;
}

void KZServerPrivate::end(KZServerSession* s)
{
    if (!sessions.removeOne(s)) return;
    s->d->ended = true;
    s->d->loggedIn = false;
    qCInfo(lcKZServer).noquote() << s->peer() << "ended;" << sessions.size() << "sessions";
    emit q->sessionEnded(s);
    s->d->socket->abort();
    s->deleteLater();
}
