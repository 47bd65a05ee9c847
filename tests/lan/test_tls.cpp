// TLS between kzlan-server and kzlan-client over loopback, with certificates
// the test makes: a client that trusts the server's CA logs in; one that
// does not, or that finds the certificate made out for another name, is
// refused with exit code 6; plain clients are served beside TLS ones unless
// the server takes TLS only; connections that stall before or in their
// handshake are closed after the time-out without holding anyone up; and a
// certificate or key that cannot serve stops the start with a clear message.
#include "lan.h"
#include "tlscerts.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QHostAddress>
#include <QProcess>
#include <QTcpSocket>
#include <QTemporaryDir>

using namespace lan;

namespace {

QStringList words(const QString& line)
{
    return line.isEmpty() ? QStringList() : line.split(QLatin1Char('|'));
}

/// A CA and a server certificate it signed for localhost and 127.0.0.1; a
/// self-signed certificate for kzlan.example only; an unrelated self-signed
/// one (a CA the server has nothing to do with).
struct Certs
{
    QTemporaryDir dir;
    tlscerts::Identity ca, server, elsewhere, stranger;

    Certs()
    {
        ca = tlscerts::selfSigned(dir.path(), QStringLiteral("kz-plant-ca"),
                                  QStringLiteral("DNS:kz-plant-ca"));
        server = tlscerts::signedBy(ca, dir.path(), QStringLiteral("localhost"),
                                    QStringLiteral("DNS:localhost,IP:127.0.0.1"));
        elsewhere = tlscerts::selfSigned(dir.path(), QStringLiteral("kzlan.example"),
                                         QStringLiteral("DNS:kzlan.example"));
        stranger = tlscerts::selfSigned(dir.path(), QStringLiteral("stranger"),
                                        QStringLiteral("DNS:stranger.example"));
    }
    /// The words of `line` with @CA, @ELSEWHERE and @STRANGER replaced by
    /// the certificate files.
    QStringList expand(const char* line) const
    {
        QStringList w = words(QString::fromUtf8(line));
        for (QString& s : w) {
            if (s == QLatin1String("@CA")) s = ca.cert;
            if (s == QLatin1String("@ELSEWHERE")) s = elsewhere.cert;
            if (s == QLatin1String("@STRANGER")) s = stranger.cert;
        }
        return w;
    }
};

QStringList serving(const tlscerts::Identity& id)
{
    return {QStringLiteral("--tls-cert"), id.cert, QStringLiteral("--tls-key"), id.key};
}

class LanTls : public ::testing::Test
{
protected:
    static void SetUpTestSuite() { certs = new Certs; }
    static void TearDownTestSuite() { delete certs; }
    static Certs* certs;

    struct Row
    {
        const char* options; // global options of the client, split at '|'
        const char* args;    // the sub-command
        int code;
        const char* err; // in stderr (any case), "" for anything
    };
    /// Runs each row against `server` and checks its exit code and message.
    static void check(const Server& server, std::initializer_list<Row> rows)
    {
        for (const Row& row : rows) {
            SCOPED_TRACE(std::string(row.options) + " " + row.args);
            const Outcome r =
                client(server, certs->expand(row.options), words(QString::fromUtf8(row.args)));
            EXPECT_EQ(r.code, row.code) << r.err.constData();
            EXPECT_TRUE(
                QString::fromUtf8(r.err).contains(QString::fromUtf8(row.err), Qt::CaseInsensitive))
                << r.err.constData();
            if (row.code == 0) {
                EXPECT_TRUE(r.out.contains("admin")) << r.out.constData();
            }
        }
    }
};

Certs* LanTls::certs = nullptr;

TEST_F(LanTls, OnlyAClientThatTrustsTheCertificateLogsIn)
{
    Server server;
    ASSERT_TRUE(server.start(serving(certs->server)));
    check(server, {
                      {"--tls|--ca|@CA", "users|list", 0, ""},
                      {"", "users|list", 0, ""},                    // plain beside TLS
                      {"--tls", "login", 6, "is refused"},          // the system's CAs only
                      {"--ca|@STRANGER", "login", 6, "is refused"}, // --ca implies --tls
                      {"--ca|@CA|--tls-name|kzlan.example", "login", 6, "host name"},
                  });
    EXPECT_FALSE(server.log().contains(kAdminPassword.toUtf8()));

    Server other;
    ASSERT_TRUE(other.start(serving(certs->elsewhere)));
    check(other, {
                     {"--ca|@ELSEWHERE", "login", 6, "host name"}, // made out for kzlan.example
                     {"--ca|@ELSEWHERE|--tls-name|kzlan.example", "users|list", 0, ""},
                 });
    EXPECT_EQ(server.terminate(), 0); // no leak reported, under the sanitizers
}

TEST_F(LanTls, TlsOnlyClosesPlainClientsWithOneLogLine)
{
    Server server;
    ASSERT_TRUE(server.start(serving(certs->server) << QStringLiteral("--tls-only")));
    check(server, {
                      {"", "login", 2, "takes TLS only closes plain clients"},
                      {"--ca|@CA", "users|list", 0, ""},
                  });
    ASSERT_TRUE(waitFor([&] { return server.log().contains("opened in the clear"); }, 5000));
    waitFor([] { return false; }, 200);
    EXPECT_EQ(server.log().count("opened in the clear"), 1) << server.log().constData();
}

TEST_F(LanTls, ATlsClientOfAServerWithoutCertificateIsToldAtOnce)
{
    Server server;
    ASSERT_TRUE(server.start());
    QElapsedTimer t;
    t.start();
    check(server, {{"--ca|@CA", "login", 6, "TLS with"}});
    EXPECT_LT(t.elapsed(), 5000) << "refused at once, not after the client's time-out";
    EXPECT_TRUE(waitFor([&] { return server.log().contains("has no certificate"); }, 5000));
}

// Two connections stall, one before its first byte and one inside its
// handshake; a TLS client logs in meanwhile, and both are closed after the
// time-out of one second.
TEST_F(LanTls, StalledConnectionsAreClosedAfterTheTimeOutAndHoldUpNoOne)
{
    Server server;
    ASSERT_TRUE(server.start(serving(certs->server)
                             << QStringLiteral("--handshake-timeout") << QStringLiteral("1")));
    QTcpSocket silent, halfway;
    silent.connectToHost(QHostAddress::LocalHost, server.port());
    halfway.connectToHost(QHostAddress::LocalHost, server.port());
    ASSERT_TRUE(waitFor([&] {
        return silent.state() == QAbstractSocket::ConnectedState &&
               halfway.state() == QAbstractSocket::ConnectedState;
    }));
    halfway.write(QByteArray::fromHex("16030100")); // the start of a handshake record
    check(server, {{"--ca|@CA", "login", 0, ""}});
    EXPECT_TRUE(waitFor(
        [&] {
            return silent.state() == QAbstractSocket::UnconnectedState &&
                   halfway.state() == QAbstractSocket::UnconnectedState;
        },
        5000));
    EXPECT_TRUE(waitFor([&] {
        return server.log().contains("sent nothing in 1 s") &&
               server.log().contains("did not finish its TLS handshake in 1 s");
    }));
}

// Connections that hold their first byte back take at most 64 places per
// address: the 65th is closed at once, and the places are free again once
// those go.
TEST_F(LanTls, ConnectionsWaitingForTheirFirstByteAreBoundedPerAddress)
{
    constexpr int kPerAddress = 64; // Listener::kMaxArrivalsPerAddress
    Server server;
    ASSERT_TRUE(server.start(serving(certs->server)));
    std::vector<std::unique_ptr<QTcpSocket>> silent;
    for (int i = 0; i <= kPerAddress; ++i) {
        silent.push_back(std::make_unique<QTcpSocket>());
        silent.back()->connectToHost(QHostAddress::LocalHost, server.port());
    }
    const auto closed = [&] {
        int n = 0;
        for (const auto& s : silent) n += s->state() == QAbstractSocket::UnconnectedState;
        return n;
    };
    ASSERT_TRUE(waitFor([&] { return closed() >= 1; }, 5000));
    waitFor([] { return false; }, 300);
    EXPECT_EQ(closed(), 1);
    EXPECT_TRUE(waitFor([&] { return server.log().contains("too many connections opening"); }));
    check(server, {{"--ca|@CA", "login", 6, "closed"}}); // the same address: no place yet
    silent.clear();
    check(server, {{"--ca|@CA", "login", 0, ""}});

    // Stopped while connections wait: they go with the server, nothing leaks.
    QTcpSocket waiting;
    waiting.connectToHost(QHostAddress::LocalHost, server.port());
    ASSERT_TRUE(waitFor([&] { return waiting.state() == QAbstractSocket::ConnectedState; }));
    EXPECT_EQ(server.terminate(), 0);
}

TEST_F(LanTls, ACertificateOrKeyThatCannotServeStopsTheStart)
{
    const QString dir = certs->dir.path();
    const QString garbage = QDir(dir).filePath(QStringLiteral("garbage.pem"));
    QFile g(garbage);
    ASSERT_TRUE(g.open(QIODevice::WriteOnly));
    g.write("not a PEM file\n");
    g.close();
    const QString locked = QDir(dir).filePath(QStringLiteral("locked.key"));
    ASSERT_TRUE(tlscerts::passphraseProtected(certs->server, locked));
    const QString missing = QDir(dir).filePath(QStringLiteral("missing.crt"));
    const QString cert = certs->server.cert;
    const QString key = certs->server.key;
    const QString tlsCert = QStringLiteral("--tls-cert");
    const QString tlsKey = QStringLiteral("--tls-key");

    const struct
    {
        QStringList options;
        const char* err;
    } rows[] = {
        {{tlsCert, missing, tlsKey, key}, "cannot read"},
        {{tlsCert, key, tlsKey, key}, "holds no PEM certificate"},
        {{tlsCert, cert, tlsKey, garbage}, "holds no PEM private key"},
        {{tlsCert, cert, tlsKey, locked}, "passphrase"},
        {{tlsCert, cert, tlsKey, certs->stranger.key}, "does not work with the certificate"},
        {{tlsCert, cert}, "needs both"},
        {{QStringLiteral("--tls-only")}, "needs both"},
        {{tlsCert, cert, tlsKey, key, QStringLiteral("--handshake-timeout"), QStringLiteral("0")},
         "--handshake-timeout"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.options.join(QLatin1Char(' ')).toStdString());
        QTemporaryDir data;
        QProcess p;
        p.start(QStringLiteral(KZLAN_SERVER),
                QStringList{QStringLiteral("--listen"), QStringLiteral("127.0.0.1"),
                            QStringLiteral("--port"), QStringLiteral("0"), QStringLiteral("--db"),
                            data.filePath(QStringLiteral("kzlan.sqlite"))} +
                    row.options);
        ASSERT_TRUE(p.waitForFinished(15000));
        EXPECT_EQ(p.exitCode(), 1);
        const QByteArray err = p.readAllStandardError();
        EXPECT_TRUE(err.contains(row.err)) << err.constData();
        EXPECT_EQ(err.count('\n'), 1) << "one line says what is wrong";
        EXPECT_FALSE(QFile::exists(data.filePath(QStringLiteral("kzlan.sqlite"))))
            << "checked before the database is touched";
    }
}

} // namespace
