// KZConnection over a real TCP pair on 127.0.0.1: messages arrive as signals
// with their values, large messages cross in many frames, signals reach a
// receiver in another thread by queued connection, a peer that vanishes
// mid-message leaves nothing behind, a device that takes frames a piece at a
// time still gets every byte, and the same over TLS (QSslSocket): frames
// written before the handshake travel after it, a refused certificate is an
// error with its reason and one disconnect.
#include "kzconnection.h"
#include "tlscerts.h"

#include <gtest/gtest.h>

#include <QBuffer>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QHostAddress>
#include <QMetaMethod>
#include <QMutex>
#include <QSslCertificate>
#include <QSslConfiguration>
#include <QSslKey>
#include <QSslSocket>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QThread>
#include <QTimer>

#include <cstdlib>
#include <functional>
#include <memory>

namespace {

void ensureApp()
{
    static int argc = 1;
    static char name[] = "test_connection";
    static char* argv[] = {name, nullptr};
    static QCoreApplication* app = new QCoreApplication(argc, argv);
    (void)app;
}

/// Runs the event loop until `done` holds or five seconds pass.
bool waitFor(const std::function<bool()>& done)
{
    QElapsedTimer t;
    t.start();
    while (!done() && t.elapsed() < 5000)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    return done();
}

/// Runs the event loop for a while: a signal that would come twice comes now.
void settle()
{
    QElapsedTimer t;
    t.start();
    while (t.elapsed() < 200) QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
}

/// The frames of one message, packed by a resolver of our own.
template <class Send>
QByteArray framesOf(Send send)
{
    QByteArray out;
    KZProtocolResolver r;
    r.setReceiveData(&out);
    r.setParsePackResult([](void* ctx, char* bytes, int n) {
        static_cast<QByteArray*>(ctx)->append(bytes, n);
        std::free(bytes);
    });
    send(r);
    return out;
}

QList<user_info> someUsers()
{
    user_info a;
    a.name = QStringLiteral("anna");
    a.text2 = QStringLiteral("Anna K.");
    a.permission = 7;
    a.flag = true;
    a.lv1Group = QStringLiteral("plant");
    a.lv2Group = QStringLiteral("hall 2");
    user_info b = a;
    b.name = QStringLiteral("bert");
    b.permission = 1;
    b.flag = false;
    return {a, b};
}

/// A connected pair: `server` and `client` sockets, each under a connection.
class Loopback : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ensureApp();
        ASSERT_TRUE(listener.listen(QHostAddress::LocalHost, 0));
        clientSocket.connectToHost(QHostAddress::LocalHost, listener.serverPort());
        ASSERT_TRUE(waitFor([&] {
            return listener.hasPendingConnections() &&
                   clientSocket.state() == QAbstractSocket::ConnectedState;
        }));
        serverSocket.reset(listener.nextPendingConnection());
        server = std::make_unique<KZConnection>(serverSocket.get());
        client = std::make_unique<KZConnection>(&clientSocket);
    }

    QTcpServer listener;
    QTcpSocket clientSocket;
    std::unique_ptr<QTcpSocket> serverSocket;
    std::unique_ptr<KZConnection> server;
    std::unique_ptr<KZConnection> client;
};

TEST_F(Loopback, MessagesArriveAsSignalsWithTheirValues)
{
    QString account, password;
    QList<int> result;
    QList<user_info> users;
    QByteArray screen;
    QString screenMac;
    int sentFrames = 0;
    QObject::connect(server.get(), &KZConnection::login, [&](const QString& a, const QString& p) {
        account = a;
        password = p;
        server->resolver()->lanLoginResult(true, 7, false); // a reply from inside the slot
        server->resolver()->lanUserInfo(someUsers());
    });
    QObject::connect(client.get(), &KZConnection::loginResult,
                     [&](bool ok, int code, bool bit0, bool second) {
                         result = {ok, code, bit0, second};
                     });
    QObject::connect(client.get(), &KZConnection::userInfo,
                     [&](const QList<user_info>& u) { users = u; });
    QObject::connect(server.get(), &KZConnection::remoteUpdateScreenResult,
                     [&](const QString& mac, const QByteArray& data) {
                         screenMac = mac;
                         screen = data;
                     });
    QObject::connect(client.get(), &KZConnection::frameSent, [&] { ++sentFrames; });

    client->resolver()->lanLogin(QStringLiteral("operator"), QStringLiteral("secret"));
    ASSERT_TRUE(waitFor([&] { return !users.isEmpty(); }));
    EXPECT_EQ(account, QStringLiteral("operator"));
    EXPECT_TRUE(password.startsWith(QStringLiteral("secret"))); // cipher padding follows
    EXPECT_EQ(result, (QList<int>{1, 6, 1, 0}));                // bit 0 of the code apart
    EXPECT_EQ(users, someUsers());

    // 256 KiB travel in many frames and come out whole, once.
    QByteArray pixels(256 * 1024, Qt::Uninitialized);
    for (int i = 0; i < pixels.size(); ++i) pixels[i] = char(i * 131 + (i >> 9));
    sentFrames = 0;
    client->resolver()->lanRemoteUpdateScreenResponse(QStringLiteral("KZ-0001"), pixels);
    EXPECT_GT(sentFrames, 100);
    ASSERT_TRUE(waitFor([&] { return !screen.isEmpty(); }));
    EXPECT_EQ(screenMac, QStringLiteral("KZ-0001"));
    EXPECT_TRUE(screen == pixels);
}

/// Records, in its own thread, what queued signals bring.
class Receiver : public QObject
{
public:
    QMutex lock;
    QList<user_info> users;
    KZProtocolResolver::StopMap stops;
    QThread* ranOn = nullptr;
};

TEST_F(Loopback, QueuedConnectionsCarryRecordsIntoAnotherThread)
{
    QThread worker;
    Receiver receiver;
    receiver.moveToThread(&worker);
    worker.start();
    QObject::connect(
        client.get(), &KZConnection::userInfo, &receiver,
        [&](const QList<user_info>& u) {
            QMutexLocker hold(&receiver.lock);
            receiver.users = u;
            receiver.ranOn = QThread::currentThread();
        },
        Qt::QueuedConnection);
    QObject::connect(
        client.get(), &KZConnection::addPlanShutItem, &receiver,
        [&](const QString&, const QString&, const KZProtocolResolver::StopMap& s,
            const QStringList&) {
            QMutexLocker hold(&receiver.lock);
            receiver.stops = s;
        },
        Qt::QueuedConnection);

    const KZProtocolResolver::StopMap stops{
        {3, {QVariant(QStringLiteral("jam")), QVariant(QStringLiteral("belt")), QVariant(1.5)}}};
    server->resolver()->lanUserInfo(someUsers());
    server->resolver()->lanAddPlanShutItem(QStringLiteral("a"), QStringLiteral("b"), stops,
                                           {QStringLiteral("n")});
    const bool arrived = waitFor([&] {
        QMutexLocker hold(&receiver.lock);
        return !receiver.users.isEmpty() && !receiver.stops.isEmpty();
    });
    worker.quit();
    worker.wait();
    ASSERT_TRUE(arrived);
    EXPECT_EQ(receiver.ranOn, &worker);
    EXPECT_EQ(receiver.users, someUsers());
    EXPECT_EQ(receiver.stops, stops);

    // Every argument of every message signal is a registered meta-type, so
    // connections by signature (SIGNAL/SLOT, QML) can queue them too.
    const QMetaObject& mo = KZConnectionSignals::staticMetaObject;
    for (int i = mo.methodOffset(); i < mo.methodCount(); ++i) {
        const QMetaMethod m = mo.method(i);
        for (int p = 0; p < m.parameterCount(); ++p)
            EXPECT_NE(m.parameterType(p), int(QMetaType::UnknownType))
                << m.methodSignature().constData() << " argument " << p;
    }
}

TEST_F(Loopback, PeerClosingMidMessageLeavesNoSignal)
{
    int logins = 0, logouts = 0, disconnects = 0;
    QObject::connect(server.get(), &KZConnection::login, [&] { ++logins; });
    QObject::connect(server.get(), &KZConnection::logout, [&] { ++logouts; });
    QObject::connect(server.get(), &KZConnection::disconnected, [&] { ++disconnects; });

    // The client's own connection steps aside: the test writes raw bytes.
    client.reset();
    const QByteArray logout = framesOf([](KZProtocolResolver& r) { r.lanLogout(5); });
    const QByteArray login = framesOf([](KZProtocolResolver& r) {
        r.lanLogin(QStringLiteral("operator"), QStringLiteral("secret"));
    });
    clientSocket.write(logout + login.left(login.size() / 2));
    clientSocket.flush();
    ASSERT_TRUE(waitFor([&] { return logouts == 1; }));
    clientSocket.disconnectFromHost();
    ASSERT_TRUE(waitFor([&] { return disconnects == 1; }));
    EXPECT_EQ(logins, 0);
    server->resolver()->lanLogout(1); // after the peer left: dropped, no crash
    QCoreApplication::processEvents();
    EXPECT_EQ(server->pendingBytes(), 0);
}

// Reading in blocks: a burst is decoded over several passes of the event
// loop, a pause stops the decoding until it is lifted, and a peer that goes
// away while reading is paused leaves its bytes undecoded.
TEST_F(Loopback, ReadsInBlocksAndPausesWhenAsked)
{
    int logouts = 0, disconnects = 0;
    QObject::connect(server.get(), &KZConnection::logout, [&] { ++logouts; });
    QObject::connect(server.get(), &KZConnection::disconnected, [&] { ++disconnects; });
    EXPECT_EQ(server->readChunkSize(), 64 * 1024);
    const QByteArray logout = framesOf([](KZProtocolResolver& r) { r.lanLogout(5); });
    server->setReadChunkSize(logout.size() * 10);
    client.reset();
    QByteArray burst;
    for (int i = 0; i < 100; ++i) burst += logout;
    server->setReadingPaused(true);
    EXPECT_TRUE(server->isReadingPaused());
    clientSocket.write(burst);
    ASSERT_TRUE(waitFor([&] { return serverSocket->bytesAvailable() == burst.size(); }));
    EXPECT_EQ(logouts, 0);
    server->setReadingPaused(false);
    QCoreApplication::processEvents();
    EXPECT_EQ(logouts, 10) << "one pass decodes one block";
    ASSERT_TRUE(waitFor([&] { return logouts == 100; }));

    server->setReadingPaused(true);
    clientSocket.write(burst);
    ASSERT_TRUE(waitFor([&] { return serverSocket->bytesAvailable() == burst.size(); }));
    clientSocket.disconnectFromHost();
    ASSERT_TRUE(waitFor([&] { return disconnects == 1; }));
    EXPECT_EQ(logouts, 100);
}

/// A device that takes at most 16 bytes per pass of the event loop, like a
/// slow serial line.
class Trickle : public QBuffer
{
protected:
    qint64 writeData(const char* data, qint64 n) override
    {
        if (busy) return 0; // full until the next pass of the event loop
        busy = true;
        QTimer::singleShot(0, this, [this] {
            busy = false;
            emit bytesWritten(0);
        });
        return QBuffer::writeData(data, qMin<qint64>(n, 16));
    }
    bool busy = false;
};

TEST(Connection, WritesEveryByteToADeviceThatTakesPieces)
{
    ensureApp();
    KZConnection conn; // no device yet: frames wait for one
    conn.resolver()->lanAddUserResult(someUsers().first());
    const QByteArray expected =
        framesOf([](KZProtocolResolver& r) { r.lanAddUserResult(someUsers().first()); });
    const QByteArray both = framesOf([](KZProtocolResolver& r) {
        r.lanAddUserResult(someUsers().first());
        r.lanLogout(3);
    });
    EXPECT_EQ(conn.pendingBytes(), expected.size());

    Trickle device;
    device.open(QIODevice::WriteOnly);
    conn.setDevice(&device);
    ASSERT_TRUE(waitFor([&] { return conn.pendingBytes() == 0; }));
    EXPECT_TRUE(device.data() == expected);

    QCoreApplication::processEvents(); // the device takes bytes again
    conn.resolver()->lanLogout(3);
    EXPECT_GT(conn.pendingBytes(), 0);
    ASSERT_TRUE(waitFor([&] { return conn.pendingBytes() == 0; }));
    EXPECT_TRUE(device.data() == both);
}

/// A listener whose sockets start the server side of the TLS handshake as
/// they are accepted.
class TlsListener : public QTcpServer
{
public:
    QSslConfiguration config;

protected:
    void incomingConnection(qintptr fd) override
    {
        auto* s = new QSslSocket(this);
        s->setSslConfiguration(config);
        s->setSocketDescriptor(fd);
        s->startServerEncryption();
        addPendingConnection(s);
    }
};

/// Both ends of one TLS connection, each under a KZConnection attached
/// before the handshake starts, with what their signals reported.
struct TlsPair
{
    QSslSocket clientSocket;
    KZConnection client{&clientSocket};
    std::unique_ptr<QSslSocket> serverSocket;
    std::unique_ptr<KZConnection> server;
    int clientClosed = 0;
    int serverClosed = 0;
    QStringList clientErrors;

    TlsPair()
    {
        QObject::connect(&client, &KZConnection::disconnected, [this] { ++clientClosed; });
        QObject::connect(&client, &KZConnection::errorOccurred,
                         [this](const QString& m) { clientErrors.append(m); });
    }

    /// Connects to `listener` checking its certificate against `name`, with
    /// `ca` trusted (none: the system's store); true once the server side
    /// has its socket and connection.
    bool connect(TlsListener& listener, const QString& ca, const QString& name)
    {
        QSslConfiguration c = clientSocket.sslConfiguration();
        if (!ca.isEmpty()) c.setCaCertificates(QSslCertificate::fromPath(ca));
        clientSocket.setSslConfiguration(c);
        clientSocket.connectToHostEncrypted(QStringLiteral("127.0.0.1"), listener.serverPort(),
                                            name);
        if (!waitFor([&] { return listener.hasPendingConnections(); })) return false;
        serverSocket.reset(static_cast<QSslSocket*>(listener.nextPendingConnection()));
        server = std::make_unique<KZConnection>(serverSocket.get());
        QObject::connect(server.get(), &KZConnection::disconnected, [this] { ++serverClosed; });
        return true;
    }
};

/// A server certificate for localhost and 127.0.0.1, signed by a test CA.
class Tls : public ::testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        ensureApp();
        dir = new QTemporaryDir;
        ca = tlscerts::selfSigned(dir->path(), QStringLiteral("kz-test-ca"),
                                  QStringLiteral("DNS:kz-test-ca"));
        id = tlscerts::signedBy(ca, dir->path(), QStringLiteral("localhost"),
                                QStringLiteral("DNS:localhost,IP:127.0.0.1"));
    }
    static void TearDownTestSuite() { delete dir; }

    void SetUp() override
    {
        ASSERT_TRUE(QSslSocket::supportsSsl());
        QFile key(id.key);
        ASSERT_TRUE(key.open(QIODevice::ReadOnly));
        listener.config = QSslConfiguration::defaultConfiguration();
        listener.config.setLocalCertificateChain(QSslCertificate::fromPath(id.cert));
        listener.config.setPrivateKey(QSslKey(key.readAll(), QSsl::Ec));
        ASSERT_FALSE(listener.config.privateKey().isNull());
        ASSERT_TRUE(listener.listen(QHostAddress::LocalHost, 0));
    }

    static QTemporaryDir* dir;
    static tlscerts::Identity ca;
    static tlscerts::Identity id;
    TlsListener listener;
};

QTemporaryDir* Tls::dir = nullptr;
tlscerts::Identity Tls::ca;
tlscerts::Identity Tls::id;

TEST_F(Tls, FramesWrittenBeforeTheHandshakeTravelAfterIt)
{
    TlsPair p;
    // One frame before the socket is even connecting, one once it is
    // connected but still in its handshake.
    p.client.resolver()->lanLogin(QStringLiteral("operator"), QStringLiteral("secret"));
    bool encryptedWhenWritten = true;
    QObject::connect(&p.clientSocket, &QSslSocket::connected, [&] {
        encryptedWhenWritten = p.clientSocket.isEncrypted();
        p.client.resolver()->lanLogout(7);
    });
    ASSERT_TRUE(p.connect(listener, ca.cert, QStringLiteral("127.0.0.1")));

    QStringList seen; // on the server, in order, with the socket's state
    QList<int> result;
    QObject::connect(p.server.get(), &KZConnection::login, [&](const QString& a, const QString&) {
        seen << a + (p.serverSocket->isEncrypted() ? QStringLiteral(" encrypted") : QString());
        p.server->resolver()->lanLoginResult(true, 4, true);
    });
    QObject::connect(p.server.get(), &KZConnection::logout,
                     [&](int v) { seen << QStringLiteral("logout %1").arg(v); });
    QObject::connect(&p.client, &KZConnection::loginResult,
                     [&](bool ok, int code, bool, bool admin) {
                         result = {ok, code, admin};
                     });
    ASSERT_TRUE(waitFor([&] { return !result.isEmpty() && seen.size() == 2; }))
        << p.clientErrors.join(QLatin1Char('\n')).toStdString();
    EXPECT_FALSE(encryptedWhenWritten) << "the second frame was to be written mid-handshake";
    EXPECT_EQ(seen,
              (QStringList{QStringLiteral("operator encrypted"), QStringLiteral("logout 7")}));
    EXPECT_EQ(result, (QList<int>{1, 4, 1}));
    EXPECT_EQ(p.server->resolver()->statistics().garbageBytes, 0u) << "handshake bytes were fed";
    EXPECT_EQ(p.client.resolver()->statistics().garbageBytes, 0u);

    p.clientSocket.disconnectFromHost();
    ASSERT_TRUE(waitFor([&] { return p.serverClosed > 0 && p.clientClosed > 0; }));
    settle();
    EXPECT_EQ(p.serverClosed, 1);
    EXPECT_EQ(p.clientClosed, 1);
}

// A certificate the client refuses: its connection reports the reason the TLS
// layer gives and disconnects once, and no frame reaches the server.
TEST_F(Tls, ARefusedCertificateIsAnErrorWithItsReasonThenOneDisconnect)
{
    const struct
    {
        const char* what;
        bool trustCa;
        const char* name;   // the certificate is checked against it
        const char* reason; // in the first error message, any case
    } rows[] = {
        {"issuer not trusted", false, "127.0.0.1", "certificate"},
        {"made out for another name", true, "kzlan.example", "host name"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        TlsPair p;
        int logins = 0;
        p.client.resolver()->lanLogin(QStringLiteral("operator"), QStringLiteral("secret"));
        ASSERT_TRUE(
            p.connect(listener, row.trustCa ? ca.cert : QString(), QString::fromLatin1(row.name)));
        QObject::connect(p.server.get(), &KZConnection::login, [&] { ++logins; });
        ASSERT_TRUE(waitFor([&] { return p.clientClosed > 0; }));
        settle();
        EXPECT_EQ(p.clientClosed, 1);
        ASSERT_FALSE(p.clientErrors.isEmpty());
        EXPECT_TRUE(p.clientErrors.first().contains(QLatin1String(row.reason), Qt::CaseInsensitive))
            << p.clientErrors.join(QLatin1Char('\n')).toStdString();
        EXPECT_EQ(logins, 0);
    }
}

} // namespace
