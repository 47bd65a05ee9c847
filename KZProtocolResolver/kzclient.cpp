// KZClient: a KZConnection driven through connect, login, requests and close. Every signal of
// the connection is taken through the event loop (queued), so that no slot of the host runs
// inside the connection's own calls and a host may delete the client from any of them.
#include "kzclient_p.h"

#include <QDebug>
#include <QIODevice>

namespace {

/// Ties the connection's reply `signal` to the requests of `code`: its values, in the
/// signal's order, make the reply's `Values`.
template <class Values, class... A>
void wireReply(KZClientPrivate* d, int code, void (KZConnectionSignals::*signal)(A...))
{
    QObject::connect(
        &d->conn, signal, d->q, [d, code](A... a) { d->answer(code, Values{a...}); },
        Qt::QueuedConnection);
}

constexpr int kFirstReconnectMs = 500;
constexpr int kLastReconnectMs = 30000;

} // namespace

KZClientPrivate::KZClientPrivate(KZClient* q) : q(q)
{
    stepTimer.setSingleShot(true);
    reconnectTimer.setSingleShot(true);
}

void KZClientPrivate::request(KZReply* reply, Send send)
{
    if (state == State::Ready && unsent.empty())
        sendNow(reply, send);
    else
        unsent.push_back({reply, std::move(send)});
}

void KZClientPrivate::sendNow(KZReply* reply, const Send& send)
{
    send(*conn.resolver());
    waiting[reply->d->code].push_back(reply);
    if (reply->d->timeout > 0) reply->d->timer.start(reply->d->timeout);
}

void KZClientPrivate::flushUnsent()
{
    while (!unsent.empty() && state == State::Ready) {
        const Unsent u = std::move(unsent.front());
        unsent.pop_front();
        if (u.reply && !u.reply->d->settled) sendNow(u.reply, u.send);
    }
}

KZReply* KZClientPrivate::take(int code)
{
    auto it = waiting.find(code);
    if (it == waiting.end() || it->empty()) {
        qDebug("KZClient: a reply of code 0x%04X came while no request of it waited", code);
        emit q->unexpectedReply(code);
        return nullptr;
    }
    const QPointer<KZReply> reply = it->front();
    it->pop_front();
    if (!reply || reply->d->settled) return nullptr; // a late answer: its place was held
    return reply;
}

void KZClientPrivate::settle(KZReply* reply, Error error, const QString& why)
{
    KZReplyPrivate* r = reply->d.get();
    if (r->settled) return;
    r->settled = true;
    r->timer.stop();
    r->error = error;
    r->errorString = error == Error::NoError ? QString() : why.isEmpty() ? describe(error) : why;
    QMetaObject::invokeMethod(
        reply,
        [reply] {
            reply->d->finished = true;
            emit reply->finished();
        },
        Qt::QueuedConnection);
}

QString KZClientPrivate::describe(Error error)
{
    switch (error) {
    case Error::NoError:
        return QString();
    case Error::ConnectionRefusedError:
        return QStringLiteral("The server refused the connection");
    case Error::HostNotFoundError:
        return QStringLiteral("The server's host was not found");
    case Error::ConnectionLostError:
        return QStringLiteral("The connection to the server was lost");
    case Error::TimeoutError:
        return QStringLiteral("The server did not answer in time");
    case Error::LoginRefusedError:
        return QStringLiteral("The server refused the login");
    case Error::ProtocolError:
        return QStringLiteral("The server broke the protocol");
    case Error::DeviceError:
        return QStringLiteral("The connection's device failed");
    case Error::CanceledError:
        return QStringLiteral("The client closed before the answer");
    }
    return QString();
}

void KZClientPrivate::timedOut(KZReply* reply)
{
    settle(reply, Error::TimeoutError,
           QStringLiteral("No reply within %1 ms").arg(reply->d->timeout));
}

void KZClientPrivate::endAll(Error error)
{
    for (auto& queue : waiting)
        for (const QPointer<KZReply>& reply : queue)
            if (reply) settle(reply, error);
    waiting.clear();
}

void KZClientPrivate::setState(State s)
{
    if (state == s) return;
    state = s;
    emit q->stateChanged(s);
}

void KZClientPrivate::fail(Error e, const QString& why)
{
    const bool again = autoReconnect && loggedIn && ownSocket && e != Error::LoginRefusedError;
    error = e;
    errorString = why.isEmpty() ? describe(e) : why;
    closeDevice();
    endAll(e == Error::TimeoutError || e == Error::LoginRefusedError ? e
                                                                     : Error::ConnectionLostError);
    if (!again) {
        for (const Unsent& u : unsent)
            if (u.reply) settle(u.reply, e);
        unsent.clear();
    }
    const QPointer<KZClient> alive(q);
    emit q->errorOccurred(e);
    if (!alive) return;
    setState(State::Unconnected);
    if (alive && again && state == State::Unconnected) scheduleReconnect();
}

void KZClientPrivate::attach(QIODevice* dev)
{
    device = dev;
    conn.setDevice(dev);
    error = Error::NoError;
    errorString.clear();
    loggedIn = false;
    if (dev->isOpen() && !isConnecting(dev)) {
        connected();
        return;
    }
    watchConnect(dev);
    setState(State::Connecting);
    if (timeoutMs > 0) stepTimer.start(timeoutMs);
}

void KZClientPrivate::connected()
{
    stepTimer.stop();
    const QPointer<KZClient> alive(q);
    setState(State::Connected);
    if (alive && haveLogin && state == State::Connected) startLogin();
}

void KZClientPrivate::startLogin()
{
    conn.resolver()->lanLogin(user, password);
    if (timeoutMs > 0) stepTimer.start(timeoutMs);
    setState(State::LoggingIn);
}

void KZClientPrivate::loginAnswered(bool ok, int code, bool isAdmin)
{
    if (state != State::LoggingIn) {
        emit q->unexpectedReply(0);
        return;
    }
    stepTimer.stop();
    loginCode = code;
    admin = isAdmin;
    if (!ok) {
        fail(Error::LoginRefusedError,
             QStringLiteral("The server refused the login (code %1)").arg(code));
        return;
    }
    loggedIn = true;
    backoffMs = 0;
    state = State::Ready;
    flushUnsent(); // before the host hears of it: its new requests go after the queued ones
    emit q->stateChanged(State::Ready);
}

void KZClientPrivate::lost()
{
    if (state == State::Closing || state == State::Unconnected) {
        closeDevice();
        setState(State::Unconnected);
        return;
    }
    fail(Error::ConnectionLostError, QStringLiteral("The server closed the connection"));
}

void KZClientPrivate::deviceFailed()
{
    const Error e = deviceError(device);
    if (e == Error::NoError || state == State::Closing) return; // the close is reported by lost()
    fail(e, device ? device->errorString() : QString());
}

void KZClientPrivate::closeDevice()
{
    stepTimer.stop();
    QIODevice* dev = device;
    device.clear();
    conn.setDevice(nullptr);
    if (!dev) return;
    QObject::disconnect(dev, nullptr, q, nullptr);
    if (ownSocket.get() == dev) {
        close(dev);
        ownSocket.release()->deleteLater();
    }
}

void KZClientPrivate::scheduleReconnect()
{
    backoffMs = backoffMs ? qMin(backoffMs * 2, kLastReconnectMs) : kFirstReconnectMs;
    reconnectTimer.start(backoffMs);
}

// ---------------------------------------------------------------------------

KZClient::KZClient(QObject* parent) : QObject(parent), d(std::make_unique<KZClientPrivate>(this))
{
    KZConnection* c = &d->conn;
    const auto queued = Qt::QueuedConnection;
#define KZ_CLIENT_REPLY(Values, code, signal)                                                      \
    wireReply<Values>(d.get(), code, &KZConnectionSignals::signal);
#include "kzclient_replies.inc"
#undef KZ_CLIENT_REPLY
    connect(
        c, &KZConnectionSignals::loginResult, this,
        [this](bool ok, int code, bool codeBit0, bool admin) {
            d->loginAnswered(ok, code | int(codeBit0), admin);
        },
        queued);
    connect(c, &KZConnectionSignals::userInfo, this, &KZClient::usersReceived, queued);
    connect(
        c, &KZConnectionSignals::macInfo, this,
        [this](const QList<mac_info>& macs) {
            if (d->state == State::Ready) d->conn.resolver()->lanMacInfoResponse();
            emit machinesReceived(macs);
        },
        queued);
    connect(c, &KZConnectionSignals::operatorUserInfo, this, &KZClient::operatorsReceived, queued);
    connect(c, &KZConnectionSignals::macTsfFilePercent, this, &KZClient::transferProgress, queued);
    // The device's end and errors: a queued one that belongs to a device already let go is
    // not taken for the current one.
    connect(c, &KZConnection::disconnected, this, [this] {
        const QPointer<QIODevice> dev = d->device;
        QMetaObject::invokeMethod(
            this,
            [this, dev] {
                if (dev && dev == d->device) d->lost();
            },
            Qt::QueuedConnection);
    });
    connect(c, &KZConnection::errorOccurred, this, [this] {
        const QPointer<QIODevice> dev = d->device;
        QMetaObject::invokeMethod(
            this,
            [this, dev] {
                if (dev && dev == d->device) d->deviceFailed();
            },
            Qt::QueuedConnection);
    });
    connect(&d->stepTimer, &QTimer::timeout, this, [this] {
        if (d->state == State::Closing) {
            d->closeDevice();
            d->setState(State::Unconnected);
        } else {
            d->fail(Error::TimeoutError, d->state == State::LoggingIn
                                             ? QStringLiteral("The server did not answer the login")
                                             : QStringLiteral("No connection within the time-out"));
        }
    });
    connect(&d->reconnectTimer, &QTimer::timeout, this, [this] {
        if (d->state == State::Unconnected) d->openSocket();
    });
}

KZClient::~KZClient()
{
    d->conn.setDevice(nullptr); // the socket, if the client made it, goes with d
}

void KZClient::connectToHost(const QString& host, quint16 port)
{
    d->reconnectTimer.stop();
    if (d->state != State::Unconnected) {
        d->closeDevice();
        d->endAll(Error::CanceledError);
        d->state = State::Unconnected;
    }
    d->host = host;
    d->port = port;
    d->backoffMs = 0;
    d->openSocket();
}

void KZClient::setDevice(QIODevice* device)
{
    d->reconnectTimer.stop();
    if (d->state != State::Unconnected || d->device) {
        d->closeDevice();
        d->endAll(Error::CanceledError);
        d->state = State::Unconnected;
    }
    if (device) d->attach(device);
}

QIODevice* KZClient::device() const { return d->device; }

void KZClient::disconnectFromHost()
{
    d->reconnectTimer.stop();
    for (const KZClientPrivate::Unsent& u : d->unsent)
        if (u.reply) KZClientPrivate::settle(u.reply, Error::CanceledError);
    d->unsent.clear();
    d->endAll(Error::CanceledError);
    if (d->state == State::Unconnected || d->state == State::Closing) return;
    if (d->state == State::Ready || d->state == State::LoggingIn) d->conn.resolver()->lanLogout(0);
    d->setState(State::Closing);
    if (d->state != State::Closing) return;
    // A socket sends what it holds (the logout), then reports its end through lost().
    if (d->device && KZClientPrivate::close(d->device)) {
        if (d->timeoutMs > 0) d->stepTimer.start(d->timeoutMs);
        return;
    }
    d->closeDevice();
    d->setState(State::Unconnected);
}

void KZClient::login(const QString& user, const QString& password)
{
    d->user = user;
    d->password = password;
    d->haveLogin = true;
    if (d->state == State::Connected) d->startLogin();
}

int KZClient::loginCode() const { return d->loginCode; }
bool KZClient::isAdministrator() const { return d->admin; }
KZClient::State KZClient::state() const { return d->state; }
KZClient::Error KZClient::error() const { return d->error; }
QString KZClient::errorString() const { return d->errorString; }

void KZClient::setTimeout(int ms) { d->timeoutMs = qMax(0, ms); }
int KZClient::timeout() const { return d->timeoutMs; }
void KZClient::setAutoReconnect(bool on)
{
    d->autoReconnect = on;
    if (!on) d->reconnectTimer.stop();
}
bool KZClient::autoReconnect() const { return d->autoReconnect; }

KZConnection* KZClient::connection() const { return &d->conn; }

#include "kzclient_requests.inc"
