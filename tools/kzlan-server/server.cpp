// Accepting clients, their sessions, login and the pushes of lists.
#include "listener.h"
#include "rights.h"
#include "server_p.h"
#include "texts.h"

#include <QDateTime>
#include <QDir>
#include <QPointer>
#include <QTimer>

#include <algorithm>
#include <utility>

#include <sys/resource.h>

Q_LOGGING_CATEGORY(lcServer, "kz.server")
Q_LOGGING_CATEGORY(lcAuth, "kz.server.auth")

Server::Client::Client(Server* server, QTcpSocket* socket)
    : QObject(server), server(server), socket(socket), conn(new KZConnection(nullptr, this)),
      r(conn->resolver()),
      peer(QStringLiteral("%1:%2").arg(socket->peerAddress().toString()).arg(socket->peerPort())),
      address(socket->peerAddress().toString()), connectedMs(QDateTime::currentMSecsSinceEpoch())
{
    conn->setDevice(socket, KZConnection::Ownership::Owned);
    // Before login only a login is of use: large bodies are not stored.
    r->setMaxReceiveBody(kPreLoginBodyBytes);
}

Server::Server(Storage& storage, const QString& storageDir, QObject* parent)
    : QObject(parent), storage_(storage), storageDir_(storageDir), listener_(new Listener(this))
{
    connect(listener_, &QTcpServer::newConnection, this, &Server::accept);
    // Out of descriptors, QTcpServer stops accepting for good: try again
    // a little later, by when connections may have closed.
    connect(listener_, &QTcpServer::acceptError, this, [this](QAbstractSocket::SocketError e) {
        qCWarning(lcServer) << "cannot accept a connection (" << e << "); pausing for"
                            << kAcceptPauseMs << "ms";
        listener_->pauseAccepting();
        QTimer::singleShot(kAcceptPauseMs, this, [this] { listener_->resumeAccepting(); });
    });
    rlimit files{};
    if (::getrlimit(RLIMIT_NOFILE, &files) == 0 && files.rlim_cur != RLIM_INFINITY)
        maxClients_ = clientLimit(qint64(files.rlim_cur));
}

int Server::clientLimit(qint64 descriptors)
{
    return int(std::clamp<qint64>((descriptors - 64) / 3, 1, kMaxClients));
}

bool Server::roomBeforeLogin(const QString& address)
{
    Client* oldest = nullptr;
    int waiting = 0;
    for (Client* c : std::as_const(clients_)) {
        if (c->loggedIn || c->address != address) continue;
        ++waiting;
        if (!c->loginPending && (!oldest || c->connectedMs < oldest->connectedMs)) oldest = c;
    }
    if (waiting < kMaxUnauthenticatedPerAddress) return true;
    if (!oldest) return false;
    qCInfo(lcAuth).noquote() << oldest->peer << "closed to make room: too many connections from"
                             << address << "before login";
    drop(oldest);
    return true;
}

Server::~Server() { shutdown(); }

bool Server::listen(const QHostAddress& address, quint16 port, QString* error)
{
    if (!QDir().mkpath(storageDir_)) {
        *error = QStringLiteral("cannot create the storage folder %1").arg(storageDir_);
        return false;
    }
    removeStaleParts();
    if (listener_->listen(address, port)) return true;
    *error = listener_->errorString();
    return false;
}

QHostAddress Server::address() const { return listener_->serverAddress(); }
quint16 Server::port() const { return listener_->serverPort(); }

void Server::shutdown()
{
    listener_->close();
    const QSet<Client*> all = clients_;
    for (Client* c : all) drop(c);
}

void Server::accept()
{
    while (QTcpSocket* socket = listener_->nextPendingConnection()) {
        if (clients_.size() >= maxClients_ || !roomBeforeLogin(socket->peerAddress().toString())) {
            qCWarning(lcServer) << "too many clients; closing the connection from"
                                << socket->peerAddress().toString();
            socket->abort();
            socket->deleteLater();
            continue;
        }
        socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
        socket->setReadBufferSize(kReadBufferBytes);
        auto* c = new Client(this, socket);
        c->conn->setReadChunkSize(kReadChunkBytes);

        clients_.insert(c);
        qCInfo(lcServer).noquote() << c->peer << "connected;" << clients_.size() << "clients";
        connect(c->conn, &KZConnection::disconnected, c, [this, c] { drop(c); });
        // A client that asks without reading the answers is not read from
        // while its unread replies are many, and cut off if it takes none
        // for a while. A large reply alone (a long list pushed after a
        // login) cuts off no client that reads.
        connect(c->conn, &KZConnection::frameSent, c, [this, c] {
            if (c->unread() <= kMaxUnreadBytes) return;
            c->conn->setReadingPaused(true);
            if (!c->stallCheck) watchStall(c);
        });
        connect(c->socket, &QTcpSocket::bytesWritten, c, [c] {
            c->lastWrittenMs = QDateTime::currentMSecsSinceEpoch();
            if (c->conn->isReadingPaused() && c->unread() <= kMaxUnreadBytes / 2)
                c->conn->setReadingPaused(false);
        });
        QTimer::singleShot(kLoginTimeoutMs, c, [c] {
            if (c->loggedIn) return;
            qCInfo(lcAuth).noquote() << c->peer << "did not log in in time; disconnected";
            c->socket->abort();
        });
        attachSession(c);
        attachAccounts(c);
        attachMachines(c);
        attachPlanning(c);
        attachFiles(c);
        attachLogs(c);
    }
}

void Server::watchStall(Client* c)
{
    c->stallCheck = true;
    const qint64 armed = QDateTime::currentMSecsSinceEpoch();
    QTimer::singleShot(kWriteStallMs, c, [this, c, armed] {
        c->stallCheck = false;
        if (c->cutOff || !c->conn->isReadingPaused()) return; // it reads again
        if (c->lastWrittenMs > armed) return watchStall(c);   // it reads, slowly
        c->cutOff = true;
        qCWarning(lcServer).noquote()
            << c->peer << "took none of its" << c->unread() << "bytes of replies for"
            << kWriteStallMs << "ms; disconnected";
        c->socket->abort();
    });
}

void Server::drop(Client* c)
{
    if (!clients_.remove(c)) return;
    if (c->in.part.isOpen()) {
        qCWarning(lcServer).noquote()
            << c->peer << "left during the transfer of" << Texts::forLog(c->in.name) << "after"
            << c->in.received << "of" << c->in.size << "bytes; the partial file is deleted";
        c->in.part.close();
        c->in.part.remove();
    }
    transfersInProgress_.remove(c->in.key);
    if (c->loggedIn)
        qCInfo(lcServer).noquote() << c->peer << "disconnected; was" << c->user;
    else
        qCInfo(lcServer).noquote() << c->peer << "disconnected";
    c->socket->abort();
    c->deleteLater();
}

bool Server::allowed(Client* c, const char* what)
{
    if (!c->loggedIn) {
        qCInfo(lcAuth).noquote() << c->peer << "refused" << what << "before login";
        return false;
    }
    const Rights::Need need = Rights::needOf(what);
    if (Rights::grants(c->permission, need)) return true;
    qCInfo(lcAuth).noquote() << c->peer << "refused" << what << "to" << c->user << "for want of"
                             << Rights::nameOf(need);
    return false;
}

void Server::refuseForStorage(Client* c, const char* what)
{
    qCWarning(lcServer).noquote() << c->peer << "refused" << what
                                  << ": the database could not be read whole";
}

bool Server::acceptable(Client* c, const char* what, bool ok)
{
    if (!ok)
        qCInfo(lcServer).noquote()
            << c->peer << "refused" << what << "from" << Texts::forLog(c->user)
            << ": a name or text out of its limits";
    return ok;
}

bool Server::ownOrAdmin(Client* c, const QString& name, const char* what)
{
    if (c->admin || name == c->user) return true;
    qCInfo(lcAuth).noquote() << c->peer << "refused" << what << "on another account to" << c->user;
    return false;
}

void Server::endSessions(const QStringList& names, Client* except)
{
    for (Client* other : std::as_const(clients_)) {
        if (other == except || !other->loggedIn || !names.contains(other->user)) continue;
        qCInfo(lcAuth).noquote() << other->peer << "session of" << other->user << "ended";
        other->loggedIn = false;
        // After what was already written to it, on the next pass of the loop.
        QMetaObject::invokeMethod(
            other, [other] { other->socket->disconnectFromHost(); }, Qt::QueuedConnection);
    }
}

void Server::refreshRights(const QString& name, qint32 permission)
{
    for (Client* other : std::as_const(clients_)) {
        if (!other->loggedIn || other->user != name) continue;
        other->permission = permission;
        other->admin = Rights::isAdmin(permission);
    }
}

void Server::record(Client* c, const QString& mac, const QString& kind, const QString& text)
{
    if (!storage_.addEvent(mac, kind, c ? c->user : QString(), text))
        qCWarning(lcServer) << "could not log the event" << kind << Texts::forLog(text);
}

// -- login ---------------------------------------------------------------------

int Server::loginDelayMs(int failures)
{
    if (failures <= 0) return 0;
    return qMin(5000, 100 << qMin(failures - 1, 10));
}

int Server::failuresOf(const QString& key) const
{
    const auto it = failures_.constFind(key);
    if (it == failures_.cend()) return 0;
    // Forgotten a quarter of an hour after the last failure.
    return QDateTime::currentMSecsSinceEpoch() - it->lastMs > 15 * 60 * 1000 ? 0 : it->count;
}

int Server::noteFailure(const QString& key)
{
    const qint64 now = QDateTime::currentMSecsSinceEpoch();
    if (failures_.size() > 100000) { // bounded: old entries go first, then all
        for (auto it = failures_.begin(); it != failures_.end();)
            it = now - it->lastMs > 15 * 60 * 1000 ? failures_.erase(it) : std::next(it);
        if (failures_.size() > 100000) failures_.clear();
    }
    Failures& f = failures_[key];
    f.count = failuresOf(key) + 1;
    f.lastMs = now;
    return f.count;
}

void Server::attachSession(Client* c)
{
    connect(c->conn, &KZConnection::login, c, [this, c](const QString& account, const QString& pw) {
        if (c->loginPending) {
            qCInfo(lcAuth).noquote() << c->peer << "sent a login while its last one is pending";
            return;
        }
        // The hash is worked out on the pool, so that other clients are
        // served meanwhile; the answer comes back to this thread.
        c->loginPending = true;
        // No account has such a name or password: refused without a hash.
        if (!Texts::isName(account) || pw.size() > Texts::kMaxPassword + 15)
            return finishLogin(c, account, false);
        const PasswordHash stored = storage_.passwordOf(account);
        const QString password = Passwords::withoutPadding(pw);
        const QPointer<Client> guard(c);
        hashing_.start([this, guard, account, password, stored] {
            const bool ok = Passwords::verify(password, stored);
            QMetaObject::invokeMethod(
                this,
                [this, guard, account, ok] {
                    if (guard) finishLogin(guard, account, ok);
                },
                Qt::QueuedConnection);
        });
    });
    connect(c->conn, &KZConnection::logout, c, [c](int) {
        qCInfo(lcAuth).noquote() << c->peer << "logged out";
        c->loggedIn = false;
        c->socket->disconnectFromHost(); // after the replies already written
    });
}

void Server::finishLogin(Client* c, const QString& account, bool ok)
{
    const QString byAddress = QStringLiteral("address ") + c->socket->peerAddress().toString();
    const QString byName = QStringLiteral("name ") + account;
    if (ok) {
        failures_.remove(byAddress);
        failures_.remove(byName);
        c->loginPending = false;
        c->loggedIn = true;
        c->user = account;
        c->permission = storage_.user(account).value_or(user_info()).permission;
        c->admin = Rights::isAdmin(c->permission);
        c->r->setAccount(account);
        c->r->setMaxReceiveBody(kMaxBodyBytes);
        qCInfo(lcAuth).noquote() << c->peer << "logged in as" << Texts::forLog(account);
        record(c, QString(), QStringLiteral("login"), QStringLiteral("from ") + c->peer);
        c->r->lanLoginResult(true, 0, c->admin);
        sendLists(c);
        return;
    }
    const int failures = qMax(noteFailure(byAddress), noteFailure(byName));
    const int delay = loginDelayMs(failures);
    qCWarning(lcAuth).noquote() << c->peer << "failed to log in as" << Texts::forLog(account)
                                << "(failure" << failures << "), answering in" << delay << "ms";
    record(nullptr, QString(), QStringLiteral("login refused"),
           QStringLiteral("%1 from %2").arg(Texts::forLog(account), c->peer));
    c->loggedIn = false;
    QTimer::singleShot(delay, c, [c] {
        c->loginPending = false;
        c->r->lanLoginResult(false, 2, false);
    });
}

// -- pushes --------------------------------------------------------------------

namespace {

QStringList namesOf(const QList<operator_user>& ops)
{
    QStringList names;
    for (const operator_user& op : ops) names.append(op.name);
    return names;
}

QMap<QString, operator_user> tableOf(const QList<operator_user>& ops)
{
    QMap<QString, operator_user> table;
    for (const operator_user& op : ops) table.insert(op.name, op);
    return table;
}

} // namespace

void Server::sendLists(Client* c)
{
    c->r->lanUserInfo(storage_.users());
    c->r->lanMacInfo(storage_.machines());
    const QList<operator_user> ops = storage_.operators();
    c->r->lanOperatorUserInfo(namesOf(ops), tableOf(ops));
}

void Server::pushUsers(Client* except)
{
    const QList<user_info> users = storage_.users();
    for (Client* c : std::as_const(clients_))
        if (c != except && c->loggedIn) c->r->lanUserInfo(users);
}

void Server::pushMachines(Client* except)
{
    const QList<mac_info> macs = storage_.machines();
    for (Client* c : std::as_const(clients_))
        if (c != except && c->loggedIn) c->r->lanMacInfo(macs);
}

void Server::pushOperators(Client* except)
{
    const QList<operator_user> ops = storage_.operators();
    for (Client* c : std::as_const(clients_))
        if (c != except && c->loggedIn) c->r->lanOperatorUserInfo(namesOf(ops), tableOf(ops));
}
