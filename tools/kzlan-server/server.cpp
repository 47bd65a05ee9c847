// Accepting clients, their sessions, login and the pushes of lists.
#include "descriptors.h"
#include "listener.h"
#include "rights.h"
#include "server_p.h"
#include "texts.h"

#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
#include <QPointer>
#include <QThread>
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

Server::Server(const QString& database, const QString& storageDir, QObject* parent)
    : QObject(parent), storageDir_(storageDir), listener_(new Listener(this)),
      logins_(QThread::idealThreadCount()), reader_(QStringLiteral("kzlan-reader")),
      writer_(QStringLiteral("kzlan-writer"))
{
    if (!writer_.open(database, &storageError_))
        storageError_ = QStringLiteral("cannot open the database for writing: ") + storageError_;
    else if (!reader_.open(database, &storageError_))
        storageError_ = QStringLiteral("cannot open the database for reading: ") + storageError_;
    setLimits(limits_);
    connect(listener_, &QTcpServer::newConnection, this, &Server::accept);
    // A failed accept that QTcpServer takes as lasting stops accepting for
    // good; one it takes as temporary (out of descriptors, on some Qt
    // versions) leaves the listening socket readable, and the loop would spin
    // on accept. Both are left to the descriptor watch: accepting pauses while
    // the process is near its limit of open files, keeping a few for the
    // database's journal, the log and the runtime, and resumes when
    // descriptors are free again.
    connect(listener_, &QTcpServer::acceptError, this, [this](QAbstractSocket::SocketError e) {
        qCWarning(lcServer) << "cannot accept a connection (" << e << "); pausing";
        pauseAccepting();
    });
    auto* watch = new QTimer(this);
    connect(watch, &QTimer::timeout, this, [this] {
        const long limit = descriptorLimit();
        const bool full = limit > 0 && openDescriptors() >= limit - kDescriptorReserve;
        if (full && !acceptPaused_) {
            qCWarning(lcServer) << "out of descriptors (" << limit << "); accepting paused";
            pauseAccepting();
        } else if (!full && acceptPaused_ && pausedSince_.elapsed() >= kAcceptPauseMs) {
            acceptPaused_ = false;
            listener_->resumeAccepting();
        }
    });
    watch->start(kDescriptorCheckMs);
    rlimit files{};
    if (::getrlimit(RLIMIT_NOFILE, &files) == 0 && files.rlim_cur != RLIM_INFINITY)
        maxClients_ = clientLimit(qint64(files.rlim_cur));
}

void Server::pauseAccepting()
{
    listener_->pauseAccepting();
    acceptPaused_ = true;
    pausedSince_.start();
}

void Server::setLimits(const ServerLimits& limits)
{
    limits_ = limits;
    logins_.setBounds(limits.authQueue, limits.authQueuePerAddress);
    reader_.run([limits](Storage& s) { s.setBusyTimeout(limits.dbBusyTimeoutMs); });
    writer_.run([limits](Storage& s) {
        s.setBusyTimeout(limits.dbBusyTimeoutMs);
        s.setEventLimits(limits.eventLogRows, limits.eventLogDays);
    });
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

Server::~Server()
{
    shutdown();
    // Reads start hashes, hashes end in changes: each stage is finished
    // before the one it feeds.
    reader_.finish();
    work_.waitForDone();
    writer_.finish();
}

bool Server::listen(const QHostAddress& address, quint16 port, QString* error)
{
    if (!storageError_.isEmpty()) {
        *error = storageError_;
        return false;
    }
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
            c->outputBlocked = true;
            updateReading(c);
            if (!c->stallCheck) watchStall(c);
        });
        connect(c->socket, &QTcpSocket::bytesWritten, c, [this, c] {
            c->lastWrittenMs = QDateTime::currentMSecsSinceEpoch();
            if (c->unread() > kMaxUnreadBytes / 2) return;
            if (c->outputBlocked) {
                c->outputBlocked = false;
                updateReading(c);
            }
            if (c->pushes) armPushes(); // it drains: its pushes may go
        });
        connect(c->socket, &QIODevice::readyRead, c, [this, c] { touch(c); });
        c->idle.setSingleShot(true);
        connect(&c->idle, &QTimer::timeout, c, [c] {
            if (c->inFlight > 0 || c->outputBlocked) return c->idle.start(); // busy, not idle
            qCInfo(lcServer).noquote() << c->peer << c->user << "was idle too long; disconnected";
            c->loggedIn = false;
            c->socket->disconnectFromHost();
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
        if (c->cutOff || !c->outputBlocked) return;         // it reads again
        if (c->lastWrittenMs > armed) return watchStall(c); // it reads, slowly
        c->cutOff = true;
        qCWarning(lcServer).noquote()
            << c->peer << "took none of its" << c->unread() << "bytes of replies for"
            << kWriteStallMs << "ms; disconnected";
        c->socket->abort();
    });
}

void Server::updateReading(Client* c)
{
    c->conn->setReadingPaused(c->outputBlocked || c->inFlight >= limits_.maxInFlight);
}

void Server::touch(Client* c)
{
    if (c->loggedIn && limits_.idleTimeoutS > 0) c->idle.start(limits_.idleTimeoutS * 1000);
}

void Server::drop(Client* c)
{
    if (!clients_.remove(c)) return;
    if (c->in.part.isOpen() || c->in.closing) {
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
                                  << ": the database could not be read whole or written";
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
    writer_.run([mac, kind, who = c ? c->user : QString(), text](Storage& s) {
        if (!s.addEvent(mac, kind, who, text))
            qCWarning(lcServer) << "could not log the event" << kind << Texts::forLog(text);
    });
}

void Server::answerInOrder(Client* c, qint64 ticket, std::function<void()> answer)
{
    --c->inFlight;
    updateReading(c);
    // Replies are matched to requests in order: an answer whose work ended
    // early waits for those of earlier requests.
    c->waitingAnswers.insert(ticket, std::move(answer));
    const QPointer<Client> guard(c); // an answer may drop the client
    while (guard && guard->waitingAnswers.contains(guard->answered))
        guard->waitingAnswers.take(guard->answered++)();
}

// -- login ---------------------------------------------------------------------

void Server::attachSession(Client* c)
{
    connect(c->conn, &KZConnection::login, c, [this, c](const QString& account, const QString& pw) {
        if (c->loginPending || c->loggedIn) {
            qCInfo(lcAuth).noquote() << c->peer << "sent a login while its last one is pending";
            return;
        }
        c->loginPending = true;
        // No account has such a name or password: refused without a hash.
        if (!Texts::isName(account) || pw.size() > Texts::kMaxPassword + 15)
            return finishLogin(c, account, std::nullopt);
        // The check waits its turn in the login queue; the account is read
        // by the reader and its hash worked out on the pool, and only if the
        // client is still there then.
        const QPointer<Client> guard(c);
        const QString password = Passwords::withoutPadding(pw);
        const bool queued = logins_.add(c->address, account, [this, guard, account, password] {
            if (!guard || guard->socket->state() != QAbstractSocket::ConnectedState) return false;
            const QString address = guard->address;
            using Checked = std::optional<qint32>;
            auto back = answerer<Checked>(
                guard,
                [this, guard, address, account](Checked permission) {
                    logins_.finished(address, account, bool(permission));
                    finishLogin(guard, account, permission);
                },
                [this, address, account](Checked permission) {
                    logins_.finished(address, account, bool(permission));
                });
            reader_.run([this, account, password, back](Storage& s) {
                const PasswordHash stored = s.passwordOf(account);
                const qint32 permission = s.user(account).value_or(user_info()).permission;
                handoff::start(work_, [password, stored, permission, back]() mutable {
                    back(Passwords::verify(password, stored) ? Checked(permission) : std::nullopt);
                });
            });
            return true;
        });
        if (!queued) {
            qCWarning(lcAuth).noquote() << c->peer << "login refused unchecked: too many waiting";
            finishLogin(c, account, std::nullopt);
        }
    });
    connect(c->conn, &KZConnection::logout, c, [c](int) {
        qCInfo(lcAuth).noquote() << c->peer << "logged out";
        c->loggedIn = false;
        c->socket->disconnectFromHost(); // after the replies already written
    });
}

void Server::finishLogin(Client* c, const QString& account, std::optional<qint32> permission)
{
    c->loginPending = false;
    if (permission) {
        c->loggedIn = true;
        c->user = account;
        c->permission = *permission;
        c->admin = Rights::isAdmin(c->permission);
        c->r->setAccount(account);
        c->r->setMaxReceiveBody(kMaxBodyBytes);
        qCInfo(lcAuth).noquote() << c->peer << "logged in as" << Texts::forLog(account);
        record(c, QString(), QStringLiteral("login"), QStringLiteral("from ") + c->peer);
        c->r->lanLoginResult(true, 0, c->admin);
        touch(c);
        sendLists(c);
        return;
    }
    // The next attempt from this address or for this name waits (the
    // login queue); the refusal itself goes at once.
    qCWarning(lcAuth).noquote() << c->peer << "failed to log in as" << Texts::forLog(account)
                                << "(failure" << logins_.failuresOf(c->address, account) << ")";
    record(nullptr, QString(), QStringLiteral("login refused"),
           QStringLiteral("%1 from %2").arg(Texts::forLog(account), c->peer));
    c->loggedIn = false;
    c->r->lanLoginResult(false, 2, false);
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

void Server::sendToAll(const KZEncodedMessages& messages)
{
    for (Client* c : std::as_const(clients_))
        if (c->loggedIn) messages.sendTo(*c->r);
}

void Server::mark(Client* c, int lists)
{
    // A change made while the lists are being read waits for the next read.
    (pushesReading_ ? c->pushesNext : c->pushes) |= lists;
}

void Server::sendLists(Client* c)
{
    // Read afresh, after the changes queued before the login, and shared
    // with the clients that log in or wait for a push meanwhile.
    const int all = PushUsers | PushMachines | PushOperators;
    pushesPending_ |= all;
    mark(c, all);
    armPushes();
}

void Server::push(int lists, Client* except)
{
    pushesPending_ |= lists;
    for (Client* c : std::as_const(clients_))
        if (c != except && c->loggedIn) mark(c, lists);
    armPushes();
}

void Server::armPushes()
{
    if (pushesArmed_) return;
    pushesArmed_ = true;
    QTimer::singleShot(0, this, &Server::sendPushes);
}

void Server::sendPushes()
{
    pushesArmed_ = false;
    if (pushesReading_) return; // sent when the read is back
    if (pushesPending_) return readPushes();
    servePushes();
}

void Server::servePushes()
{
    QElapsedTimer spent;
    spent.start();
    const QSet<Client*> all = clients_; // a send may drop a client
    for (Client* c : all) {
        if (!c->pushes || !clients_.contains(c)) continue;
        if (!c->loggedIn) {
            c->pushes = 0;
            continue;
        }
        if (c->outputBlocked || c->unread() > kMaxUnreadBytes / 2) continue; // when it drains
        if (spent.elapsed() >= kPushMsPerPass) return armPushes();           // the next pass
        const int lists = std::exchange(c->pushes, 0);
        if (lists & PushUsers) pushed_.users.sendTo(*c->r);
        if (lists & PushMachines) pushed_.machines.sendTo(*c->r);
        if (lists & PushOperators) pushed_.operators.sendTo(*c->r);
        pushesSent_ += (lists & 1) + ((lists >> 1) & 1) + ((lists >> 2) & 1);
    }
}

void Server::readPushes()
{
    // The lists are read once for all the clients served after a change,
    // by the writer after the changes queued before: changes that come
    // meanwhile share one read.
    pushesReading_ = true;
    const int lists = std::exchange(pushesPending_, 0);
    writer_.run([this, lists](Storage& s) {
        auto read = std::make_shared<PushedLists>();
        if (lists & PushUsers) {
            const QList<user_info> users = s.users();
            read->users = KZEncodedMessages([&](KZProtocolResolver& r) { r.lanUserInfo(users); });
        }
        if (lists & PushMachines) {
            const QList<mac_info> machines = s.machines();
            read->machines =
                KZEncodedMessages([&](KZProtocolResolver& r) { r.lanMacInfo(machines); });
        }
        if (lists & PushOperators) {
            const QList<operator_user> ops = s.operators();
            read->operators = KZEncodedMessages(
                [&](KZProtocolResolver& r) { r.lanOperatorUserInfo(namesOf(ops), tableOf(ops)); });
        }
        handoff::post(this, [this, lists, read] {
            if (lists & PushUsers) pushed_.users = std::move(read->users);
            if (lists & PushMachines) pushed_.machines = std::move(read->machines);
            if (lists & PushOperators) pushed_.operators = std::move(read->operators);
            pushesReading_ = false;
            servePushes();
            for (Client* c : std::as_const(clients_)) c->pushes |= std::exchange(c->pushesNext, 0);
            if (pushesPending_) armPushes();
        });
    });
}
