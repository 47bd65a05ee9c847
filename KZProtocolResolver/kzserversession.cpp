// A session of KZServer: one client's connection, its login, its answers in the order of its
// requests, and the limits on what it may cost (unread answers, requests in flight, the login
// and idle time-outs).
#include "kzserver_p.h"

#include <QDateTime>
#include <QHostAddress>
#include <QLoggingCategory>
#include <QTcpSocket>

Q_DECLARE_LOGGING_CATEGORY(lcKZServer)

KZServerSessionPrivate::KZServerSessionPrivate(KZServerSession* q, KZServer* server,
                                               QTcpSocket* socket)
    : q(q), server(server), socket(socket), conn(new KZConnection(nullptr, q)),
      limits(server->limits()), address(socket->peerAddress().toString()), port(socket->peerPort()),
      startedMs(QDateTime::currentMSecsSinceEpoch())
{
    line->session = this;
}

KZServerSession::KZServerSession(KZServer* server, QTcpSocket* socket)
    : QObject(server), d(new KZServerSessionPrivate(this, server, socket))
{
    socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
    socket->setReadBufferSize(d->limits.readBufferBytes);
    d->conn->setDevice(socket, KZConnection::Ownership::Owned);
    d->conn->setReadChunkSize(d->limits.readChunkBytes);
    // Before login only a login is of use: large bodies are not stored.
    d->conn->resolver()->setMaxReceiveBody(d->limits.maxBodyBeforeLogin);

    // A client that asks without reading the answers is not read from while its unread
    // answers are many, and cut off if it takes none for a while.
    connect(d->conn, &KZConnection::frameSent, this, [this] {
        if (d->unread() <= d->limits.maxUnreadBytes) return;
        d->outputBlocked = true;
        d->updateReading();
        if (!d->stallCheck) d->watchStall();
    });
    connect(socket, &QTcpSocket::bytesWritten, this, [this] {
        d->lastWrittenMs = QDateTime::currentMSecsSinceEpoch();
        if (d->unread() > d->limits.maxUnreadBytes / 2) return;
        if (d->outputBlocked) {
            d->outputBlocked = false;
            d->updateReading();
        }
        d->sendHeldPushes();
    });
    connect(socket, &QIODevice::readyRead, this, [this] { d->touch(); });
    d->idle.setSingleShot(true);
    connect(&d->idle, &QTimer::timeout, this, [this] {
        if (d->inFlight > 0 || d->outputBlocked) return d->idle.start(); // busy, not idle
        qCInfo(lcKZServer).noquote() << peer() << d->user << "was idle too long; closed";
        close();
    });
    d->loginTimer.setSingleShot(true);
    connect(&d->loginTimer, &QTimer::timeout, this, [this] {
        if (d->loggedIn) return;
        qCInfo(lcKZServer).noquote() << peer() << "did not log in in time; closed";
        abort();
    });
    if (d->limits.loginTimeoutMs > 0) d->loginTimer.start(d->limits.loginTimeoutMs);

    connect(d->conn, &KZConnection::login, this,
            [this](const QString& user, const QString& password) { d->login(user, password); });
    connect(d->conn, &KZConnection::logout, this, [this](int) { d->logout(); });
}

KZServerSession::~KZServerSession()
{
    {
        std::lock_guard<std::mutex> lock(d->line->mutex);
        d->line->session = nullptr;
        d->line->inbox.clear();
    }
    // The connection and its socket go before the private object their slots use.
    d->socket->disconnect(this);
    d->conn->disconnect(this);
    delete d->conn;
}

KZServer* KZServerSession::server() const { return d->server; }
KZConnection* KZServerSession::connection() const { return d->conn; }
KZProtocolResolver* KZServerSession::resolver() const { return d->conn->resolver(); }
QString KZServerSession::peerAddress() const { return d->address; }
quint16 KZServerSession::peerPort() const { return d->port; }
QString KZServerSession::peer() const
{
    return d->address.contains(QLatin1Char(':'))
               ? QStringLiteral("[%1]:%2").arg(d->address).arg(d->port)
               : QStringLiteral("%1:%2").arg(d->address).arg(d->port);
}
bool KZServerSession::isLoggedIn() const { return d->loggedIn; }
QString KZServerSession::user() const { return d->user; }
bool KZServerSession::isAdministrator() const { return d->administrator; }
KZResponder KZServerSession::responder() { return KZResponder(d->take(false)); }
int KZServerSession::requestsInFlight() const { return d->inFlight; }
qint64 KZServerSession::unreadBytes() const { return d->unread(); }

void KZServerSession::push(int code, const KZResponder::Answer& push)
{
    if (d->ended || !push) return;
    if (d->outputBlocked || d->unread() > d->limits.maxUnreadBytes / 2 || !d->heldPushes.empty()) {
        d->heldPushes[code] = push; // sent when the client drains
        return;
    }
    push(*resolver());
}

void KZServerSession::close()
{
    d->loggedIn = false;
    // After what was already written, on the next pass of the loop.
    const QPointer<QTcpSocket> socket(d->socket);
    QMetaObject::invokeMethod(
        this,
        [socket] {
            if (socket) socket->disconnectFromHost();
        },
        Qt::QueuedConnection);
}

void KZServerSession::abort()
{
    d->loggedIn = false;
    d->socket->abort();
}

bool KZServerSession::admit(const char* what)
{
    if (d->loggedIn) return true;
    qCInfo(lcKZServer).noquote() << peer() << "sent" << what << "before login; dropped";
    return false;
}

void KZServerSession::takeAnswers()
{
    std::vector<std::pair<qint64, KZDelivery>> taken;
    {
        std::lock_guard<std::mutex> lock(d->line->mutex);
        taken.swap(d->line->inbox);
    }
    for (auto& [ticket, delivery] : taken) d->arrived(ticket, std::move(delivery));
}

qint64 KZServerSessionPrivate::unread() const
{
    return socket->bytesToWrite() + conn->pendingBytes();
}

std::shared_ptr<KZResponderState> KZServerSessionPrivate::take(bool login)
{
    ++inFlight;
    updateReading();
    return std::make_shared<KZResponderState>(line, nextTicket++, login);
}

void KZServerSessionPrivate::arrived(qint64 ticket, KZDelivery delivery)
{
    --inFlight;
    if (!delivery) {
        qCWarning(lcKZServer).noquote() << q->peer() << "a request was left unanswered";
        emit q->requestUnanswered();
    }
    // The client matches answers to requests in order: an answer that is ready early waits
    // for those of earlier requests.
    ready.emplace(ticket, std::move(delivery));
    for (auto it = ready.find(nextToSend); it != ready.end() && !ended;
         it = ready.find(nextToSend)) {
        const KZDelivery next = std::move(it->second);
        ready.erase(it);
        ++nextToSend;
        if (next) next(this);
    }
    updateReading();
}

void KZServerSessionPrivate::updateReading()
{
    conn->setReadingPaused(outputBlocked || inFlight >= limits.maxInFlight);
}

void KZServerSessionPrivate::touch()
{
    if (loggedIn && limits.idleTimeoutMs > 0) idle.start(limits.idleTimeoutMs);
}

void KZServerSessionPrivate::watchStall()
{
    stallCheck = true;
    const qint64 armed = QDateTime::currentMSecsSinceEpoch();
    QTimer::singleShot(limits.writeStallMs, q, [this, armed] {
        stallCheck = false;
        if (!outputBlocked) return;                     // it reads again
        if (lastWrittenMs > armed) return watchStall(); // it reads, slowly
        qCWarning(lcKZServer).noquote()
            << q->peer() << "took none of its" << unread() << "bytes of answers for"
            << limits.writeStallMs << "ms; closed";
        q->abort();
    });
}

void KZServerSessionPrivate::sendHeldPushes()
{
    while (!heldPushes.empty() && !outputBlocked && unread() <= limits.maxUnreadBytes / 2) {
        const KZResponder::Answer push = std::move(heldPushes.begin()->second);
        heldPushes.erase(heldPushes.begin());
        push(*conn->resolver());
    }
}

void KZServerSessionPrivate::login(const QString& name, const QString& password)
{
    if (loginPending || loggedIn) {
        qCInfo(lcKZServer).noquote() << q->peer() << "sent a login while logged in or logging in";
        return;
    }
    loginPending = true;
    // The cipher pads the password with bytes 1 to 15, which no password holds.
    QString typed = password;
    while (!typed.isEmpty() && typed.back().unicode() >= 1 && typed.back().unicode() <= 15)
        typed.chop(1);
    pendingUser = name; // the session's user once accepted
    const KZLoginResponder answer(take(true));
    const KZServer::Authenticator& check = server->d->authenticator;
    if (check)
        check(q, name, typed, answer);
    else
        answer.refuse();
}

void KZServerSessionPrivate::loginAnswered(bool ok, int code, bool admin)
{
    loginPending = false;
    KZProtocolResolver* r = conn->resolver();
    if (!ok) {
        qCInfo(lcKZServer).noquote() << q->peer() << "login refused";
        r->lanLoginResult(false, code, false);
        return;
    }
    loggedIn = true;
    user = pendingUser;
    administrator = admin;
    loginTimer.stop();
    r->setAccount(user);
    r->setMaxReceiveBody(limits.maxBody);
    r->lanLoginResult(true, code, admin);
    touch();
    emit server->sessionLoggedIn(q);
}

void KZServerSessionPrivate::logout()
{
    qCInfo(lcKZServer).noquote() << q->peer() << user << "logged out";
    q->close();
}
