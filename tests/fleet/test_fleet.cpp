// kzfleet as a user runs it: against a real kzlan-server on loopback (the
// reports acknowledged, the same seed replaying the same reports, a server
// killed and restarted under it), against a peer of the test's own that
// uses the machines' panel and sends them files, and its command line.
#include "eventloop.h"
#include "latency.h"
#include "tlscerts.h"

#include "kzconnection.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>

#include <csignal>
#include <functional>
#include <memory>

namespace {

using kztest::waitFor;

const QString kPassword = QStringLiteral("first-Admin-pw");

/// A port nobody listens on now, for a server that must come back on it.
quint16 freePort()
{
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost, 0);
    return probe.serverPort();
}

/// A kzlan-server on 127.0.0.1 and a fixed port, its database in a
/// directory that outlives a restart.
class Server
{
public:
    explicit Server(quint16 port) : port_(port) {}
    ~Server()
    {
        if (proc_ && proc_->state() == QProcess::Running) kill9();
    }

    bool start(const QStringList& options = {})
    {
        proc_ = std::make_unique<QProcess>();
        proc_->setProcessChannelMode(QProcess::ForwardedErrorChannel);
        proc_->start(
            QStringLiteral(KZLAN_SERVER),
            QStringList{QStringLiteral("--listen"), QStringLiteral("127.0.0.1"),
                        QStringLiteral("--port"), QString::number(port_), QStringLiteral("--db"),
                        dir_.filePath(QStringLiteral("kzlan.sqlite")), QStringLiteral("--storage"),
                        dir_.filePath(QStringLiteral("storage")),
                        QStringLiteral("--admin-password"), kPassword} +
                options);
        QByteArray out;
        return waitFor(
                   [&] {
                       out += proc_->readAllStandardOutput();
                       return out.contains("listening on") ||
                              proc_->state() == QProcess::NotRunning;
                   },
                   15000) &&
               out.contains("listening on");
    }
    void kill9()
    {
        ::kill(pid_t(proc_->processId()), SIGKILL);
        proc_->waitForFinished(5000);
    }
    quint16 port() const { return port_; }

private:
    QTemporaryDir dir_;
    std::unique_ptr<QProcess> proc_;
    quint16 port_;
};

/// kzfleet, started without waiting.
std::unique_ptr<QProcess> startFleet(quint16 port, const QStringList& args)
{
    auto p = std::make_unique<QProcess>();
    p->start(QStringLiteral(KZFLEET),
             QStringList{QStringLiteral("--port"), QString::number(port),
                         QStringLiteral("--password"), kPassword, QStringLiteral("--json")} +
                 args);
    return p;
}

/// Waits for kzfleet's end (the event loop runs meanwhile) and reads its summary.
QJsonObject summaryOf(QProcess& p, int* exitCode = nullptr)
{
    waitFor([&] { return p.state() == QProcess::NotRunning; }, 60000);
    EXPECT_EQ(p.state(), QProcess::NotRunning) << "kzfleet hung";
    if (exitCode) *exitCode = p.exitCode();
    const QByteArray out = p.readAllStandardOutput();
    const QJsonObject json = QJsonDocument::fromJson(out).object();
    EXPECT_FALSE(json.isEmpty()) << out.constData();
    return json;
}

QJsonObject runFleet(quint16 port, const QStringList& args, int* exitCode = nullptr)
{
    auto p = startFleet(port, args);
    return summaryOf(*p, exitCode);
}

double num(const QJsonObject& o, const char* key) { return o.value(QLatin1String(key)).toDouble(); }

} // namespace

// -- against kzlan-server -----------------------------------------------------------

TEST(Fleet, EveryReportIsAcknowledged)
{
    Server server(freePort());
    ASSERT_TRUE(server.start());
    int rc = -1;
    const QJsonObject s =
        runFleet(server.port(),
                 {QStringLiteral("--machines"), QStringLiteral("8"), QStringLiteral("--rate"),
                  QStringLiteral("4"), QStringLiteral("--duration"), QStringLiteral("2")},
                 &rc);
    EXPECT_EQ(rc, 0);
    EXPECT_EQ(num(s, "logins"), 8);
    // Two seconds at four a second: about 64 reports, each answered.
    EXPECT_GE(num(s, "reports_sent"), 40);
    EXPECT_EQ(num(s, "reports_acknowledged"), num(s, "reports_sent"));
    EXPECT_EQ(num(s, "reports_lost"), 0);
    EXPECT_EQ(num(s, "errors"), 0);
    EXPECT_GT(num(s, "other_reports_sent"), num(s, "reports_sent")); // a state with each
    const QJsonObject latency = s.value(QStringLiteral("latency_ms")).toObject();
    EXPECT_GT(num(latency, "p50"), 0);
    EXPECT_LE(num(latency, "p50"), num(latency, "p99"));
    EXPECT_LE(num(latency, "p99"), num(latency, "max"));
}

TEST(Fleet, TheSameSeedReplaysTheSameReports)
{
    Server server(freePort());
    ASSERT_TRUE(server.start());
    const auto digestOf = [&](const char* seed) {
        const QJsonObject s = runFleet(
            server.port(),
            {QStringLiteral("--machines"), QStringLiteral("4"), QStringLiteral("--rate"),
             QStringLiteral("10"), QStringLiteral("--duration"), QStringLiteral("1"),
             QStringLiteral("--digest-reports"), QStringLiteral("5"), QStringLiteral("--start"),
             QStringLiteral("2026-01-05"), QStringLiteral("--seed"), QLatin1String(seed)});
        return s.value(QStringLiteral("reports_digest")).toString();
    };
    const QString first = digestOf("7");
    ASSERT_EQ(first.size(), 64) << "every machine makes its first five reports";
    EXPECT_EQ(digestOf("7"), first);
    EXPECT_NE(digestOf("8"), first);
}

TEST(Fleet, MachinesComeBackAfterTheServerIsKilled)
{
    Server server(freePort());
    ASSERT_TRUE(server.start());
    auto fleet = startFleet(server.port(), {QStringLiteral("--machines"), QStringLiteral("5"),
                                            QStringLiteral("--rate"), QStringLiteral("5"),
                                            QStringLiteral("--duration"), QStringLiteral("6")});
    // A second after every machine has logged in, the server goes.
    QByteArray said;
    ASSERT_TRUE(waitFor(
        [&] {
            said += fleet->readAllStandardError();
            return said.contains("5 machines logged in");
        },
        20000))
        << said.constData();
    kztest::spin(1000);
    server.kill9();
    kztest::spin(500);
    ASSERT_TRUE(server.start());
    int rc = -1;
    const QJsonObject s = summaryOf(*fleet, &rc);
    EXPECT_EQ(rc, 2) << "connections were lost";
    EXPECT_EQ(num(s, "reconnects"), 5);
    EXPECT_EQ(num(s.value(QStringLiteral("error_kinds")).toObject(), "disconnects"), 5);
    // Every report sent was answered or lost with its connection, and the
    // answers went on after the restart: before it came at most 25 a second
    // over the ramp and the second after it (a margin of one more).
    EXPECT_EQ(num(s, "reports_acknowledged") + num(s, "reports_lost"), num(s, "reports_sent"));
    EXPECT_GT(num(s, "reports_acknowledged"), 25 * (num(s, "ramp_seconds") + 2));
}

TEST(Fleet, AMachineSendingGarbageCostsTheOthersNothing)
{
    // Beside a well-behaved fleet, machines that send random bytes, negative
    // counts, dates in the year 9999 and work logs of 2000 entries.
    Server server(freePort());
    ASSERT_TRUE(server.start());
    auto bad = startFleet(
        server.port(),
        {QStringLiteral("--machines"), QStringLiteral("4"), QStringLiteral("--prefix"),
         QStringLiteral("BAD"), QStringLiteral("--rate"), QStringLiteral("5"),
         QStringLiteral("--duration"), QStringLiteral("3"), QStringLiteral("--garbage"),
         QStringLiteral("3"), QStringLiteral("--impossible"), QStringLiteral("--worklog-entries"),
         QStringLiteral("2000"), QStringLiteral("--digest-reports"), QStringLiteral("0")});
    int rc = -1;
    const QJsonObject good =
        runFleet(server.port(),
                 {QStringLiteral("--machines"), QStringLiteral("4"), QStringLiteral("--rate"),
                  QStringLiteral("5"), QStringLiteral("--duration"), QStringLiteral("2")},
                 &rc);
    EXPECT_EQ(rc, 0);
    EXPECT_EQ(num(good, "errors"), 0);
    EXPECT_EQ(num(good, "reports_lost"), 0);
    EXPECT_GT(num(good, "reports_acknowledged"), 4 * 5);
    const QJsonObject attack = summaryOf(*bad);
    EXPECT_GT(num(attack, "garbage_sent"), 0);
    EXPECT_GT(num(attack, "reports_sent"), 0);
}

TEST(Fleet, MachinesReportOverTls)
{
    // A server that takes TLS only: machines that trust its certificate
    // report; machines that trust only the system's authorities never log in.
    QTemporaryDir certs;
    const tlscerts::Identity id = tlscerts::selfSigned(
        certs.path(), QStringLiteral("localhost"), QStringLiteral("DNS:localhost,IP:127.0.0.1"));
    ASSERT_FALSE(id.cert.isEmpty());
    Server server(freePort());
    ASSERT_TRUE(server.start({QStringLiteral("--tls-cert"), id.cert, QStringLiteral("--tls-key"),
                              id.key, QStringLiteral("--tls-only")}));
    const QStringList fleet{QStringLiteral("--machines"),      QStringLiteral("3"),
                            QStringLiteral("--rate"),          QStringLiteral("5"),
                            QStringLiteral("--duration"),      QStringLiteral("1"),
                            QStringLiteral("--login-timeout"), QStringLiteral("2")};
    int rc = -1;
    const QJsonObject trusted =
        runFleet(server.port(), fleet + QStringList{QStringLiteral("--ca"), id.cert}, &rc);
    EXPECT_EQ(rc, 0);
    EXPECT_EQ(num(trusted, "logins"), 3);
    EXPECT_GT(num(trusted, "reports_acknowledged"), 0);
    EXPECT_EQ(num(trusted, "reports_acknowledged"), num(trusted, "reports_sent"));
    const QJsonObject strangers =
        runFleet(server.port(), fleet + QStringList{QStringLiteral("--tls")}, &rc);
    EXPECT_EQ(rc, 3);
    EXPECT_EQ(num(strangers, "logins"), 0);
}

// -- the panel and file transfers, from a peer of the test's own -------------------

namespace {

/// The far end of one simulated machine's connection: it accepts the
/// login, the entry and the reports, and drives the panel and transfers.
struct Peer
{
    QTcpServer listener;
    QTcpSocket* socket = nullptr;
    KZConnection conn;
    KZProtocolResolver& lan = *conn.resolver();
    bool loggedIn = false;

    Peer()
    {
        listener.listen(QHostAddress::LocalHost, 0);
        QObject::connect(&listener, &QTcpServer::newConnection, [this] {
            socket = listener.nextPendingConnection();
            conn.setDevice(socket);
        });
        QObject::connect(&conn, &KZConnection::login, [this](const QString& user, const QString&) {
            loggedIn = user == QLatin1String("admin");
            lan.lanLoginResult(loggedIn, loggedIn ? 0 : 2, true);
        });
        QObject::connect(&conn, &KZConnection::macInfo,
                         [this](const QList<mac_info>&) { lan.lanMacInfoResponse(); });
        QObject::connect(&conn, &KZConnection::macWorkLog, [this] { lan.lanMacWorkLogResponse(); });
    }
};

QByteArray md5(const QByteArray& b) { return QCryptographicHash::hash(b, QCryptographicHash::Md5); }

} // namespace

TEST(Fleet, AMachineAnswersThePanelAndTakesFiles)
{
    Peer peer;
    QTemporaryDir store;
    auto fleet =
        startFleet(peer.listener.serverPort(),
                   {QStringLiteral("--machines"), QStringLiteral("1"), QStringLiteral("--duration"),
                    QStringLiteral("3"), QStringLiteral("--store"), store.path()});
    ASSERT_TRUE(waitFor([&] { return peer.loggedIn; }, 10000));
    const QString mac = QStringLiteral("SIM-0001");

    // The panel: remote mode, its size, page 0 and its screen; a touch on the
    // right half turns to page 1.
    struct Mode
    {
        bool ok = false;
        QString mac;
        int a = 0, b = 0, c = 0;
        bool seen = false;
    } mode;
    QList<unsigned> pages;
    QList<QByteArray> screens;
    QObject::connect(
        &peer.conn, &KZConnection::remoteSetModeResult,
        [&](bool ok, const QString& m, int a, int b, int c) { mode = {ok, m, a, b, c, true}; });
    QObject::connect(&peer.conn, &KZConnection::remoteUpdatePageResult,
                     [&](const QString&, unsigned page) { pages.append(page); });
    QObject::connect(&peer.conn, &KZConnection::remoteUpdateScreenResult,
                     [&](const QString&, const QByteArray& data) { screens.append(data); });
    peer.lan.lanRemoteSetMode(mac, 1);
    ASSERT_TRUE(waitFor([&] { return screens.size() == 1; }, 5000));
    EXPECT_TRUE(mode.ok);
    EXPECT_EQ(mode.mac, mac);
    EXPECT_EQ(mode.a, 1);
    EXPECT_EQ(mode.b, 160);
    EXPECT_EQ(mode.c, 120);
    const QByteArray header = QByteArrayLiteral("P5\n160 120\n255\n");
    EXPECT_TRUE(screens[0].startsWith(header));
    EXPECT_EQ(screens[0].size(), header.size() + 160 * 120);
    peer.lan.lanRemoteScreenTouch(mac, 1, 120, 60);
    ASSERT_TRUE(waitFor([&] { return screens.size() == 2; }, 5000));
    EXPECT_EQ(pages, (QList<unsigned>{0, 1}));
    EXPECT_NE(screens[1], screens[0]);
    // Another machine's panel is refused.
    peer.lan.lanRemoteSetMode(QStringLiteral("SIM-0002"), 1);
    ASSERT_TRUE(waitFor([&] { return !mode.ok && mode.mac == QLatin1String("SIM-0002"); }, 5000));

    // Two transfers: one whole, one whose closing digest is wrong.
    struct Ends
    {
        int task = 0;
        QString name;
        bool ok = false;
        int count = 0;
    } end;
    int task = 0, chunkSize = 0, acked = -2;
    QObject::connect(&peer.conn, &KZConnection::macTsfFileAddTaskUi,
                     [&](bool ok, const QString&, const QString&, int n, const QString&,
                         const QString&, const QString&) { task = ok ? n : -1; });
    QObject::connect(&peer.conn, &KZConnection::macTsfFileBeginResult,
                     [&](int, int status, int chunk) { chunkSize = status == 0 ? chunk : -1; });
    QObject::connect(&peer.conn, &KZConnection::macTsfFileContentResult,
                     [&](int, int bytes) { acked = bytes; });
    QObject::connect(&peer.conn, &KZConnection::macTsfFileEnd,
                     [&](int n, const QString& name, bool ok) {
                         end = {n, name, ok, end.count + 1};
                     });
    const auto send = [&](const QString& name, const QByteArray& file, const QByteArray& closing) {
        task = 0;
        chunkSize = 0;
        peer.lan.lanMacTsfFileAddTask(true, mac, QStringLiteral("t-") + name,
                                      QStringLiteral("/jobs"), true, {name});
        if (!waitFor([&] { return task != 0; }, 5000) || task < 0) return false;
        peer.lan.lanMacTsfFileTaskStart();
        peer.lan.lanMacTsfFileTaskBegin(file.size(), md5(file));
        if (!waitFor([&] { return chunkSize != 0; }, 5000) || chunkSize < 0) return false;
        for (int offset = 0, chunk = 0; offset < file.size(); offset += chunkSize, ++chunk) {
            const QByteArray part = file.mid(offset, chunkSize);
            acked = -2;
            peer.lan.lanMacTsfFileContent(task, chunk, offset, part.size(), md5(part), part);
            if (!waitFor([&] { return acked != -2; }, 5000) || acked != offset + part.size())
                return false;
        }
        const int ends = end.count;
        peer.lan.lanMacTsfFileClose(task, 0, closing);
        return waitFor([&] { return end.count > ends; }, 5000);
    };
    QByteArray file(150 * 1000, Qt::Uninitialized);
    for (int i = 0; i < file.size(); ++i) file[i] = char(i * 7 + i / 251);
    ASSERT_TRUE(send(QStringLiteral("job.dst"), file, md5(file)));
    EXPECT_TRUE(end.ok);
    EXPECT_EQ(end.task, task);
    EXPECT_EQ(end.name, QStringLiteral("job.dst"));
    QFile kept(QDir(store.path()).filePath(mac + QStringLiteral("/job.dst")));
    ASSERT_TRUE(kept.open(QIODevice::ReadOnly));
    EXPECT_EQ(kept.readAll(), file);
    ASSERT_TRUE(send(QStringLiteral("bad.dst"), file, md5("something else")));
    EXPECT_FALSE(end.ok);
    EXPECT_FALSE(QFile::exists(QDir(store.path()).filePath(mac + QStringLiteral("/bad.dst"))));
    EXPECT_FALSE(QFile::exists(QDir(store.path()).filePath(mac + QStringLiteral("/bad.dst.part"))));

    const QJsonObject s = summaryOf(*fleet);
    EXPECT_EQ(num(s, "panel_requests"), 3);
    EXPECT_EQ(num(s, "transfers_done"), 1);
    EXPECT_EQ(num(s.value(QStringLiteral("error_kinds")).toObject(), "transfers_failed"), 1);
    EXPECT_GT(num(s, "reports_acknowledged"), 0);
}

// -- the command line and the latency figures -------------------------------------

TEST(Fleet, BadValuesAreNamed)
{
    struct Row
    {
        QStringList args;
        const char* named;
    };
    const Row rows[] = {
        {{QStringLiteral("--machines"), QStringLiteral("0")}, "--machines: 0"},
        {{QStringLiteral("--machines"), QStringLiteral("20001")}, "--machines: 20001"},
        {{QStringLiteral("--rate"), QStringLiteral("fast")}, "--rate: fast"},
        {{QStringLiteral("--rate=-1")}, "--rate: -1"},
        {{QStringLiteral("--rate"), QStringLiteral("501")}, "--rate: 501"},
        {{QStringLiteral("--port"), QStringLiteral("65536")}, "--port: 65536"},
        {{QStringLiteral("--start"), QStringLiteral("2026-02-30")}, "--start: 2026-02-30"},
        {{QStringLiteral("--worklog-entries"), QStringLiteral("65536")},
         "--worklog-entries: 65536"},
        {{QStringLiteral("--seed")}, "--seed needs a value"},
        {{QStringLiteral("--frobnicate")}, "unknown option --frobnicate"},
    };
    for (const Row& row : rows) {
        QProcess p;
        p.start(QStringLiteral(KZFLEET), row.args);
        ASSERT_TRUE(p.waitForFinished(10000));
        EXPECT_EQ(p.exitCode(), 1) << row.named;
        EXPECT_TRUE(p.readAllStandardError().contains(row.named)) << row.named;
        EXPECT_TRUE(p.readAllStandardOutput().isEmpty()) << row.named;
    }
}

TEST(Fleet, NoLoginEndsTheRun)
{
    // Nobody listens, then a server that refuses the password: the run ends
    // after the login time-out with exit code 3, and says why.
    Server server(freePort());
    const QStringList args{QStringLiteral("--machines"), QStringLiteral("3"),
                           QStringLiteral("--login-timeout"), QStringLiteral("1")};
    int rc = -1;
    QJsonObject s = runFleet(server.port(), args, &rc);
    EXPECT_EQ(rc, 3);
    EXPECT_EQ(num(s, "logins"), 0);
    EXPECT_GE(num(s.value(QStringLiteral("error_kinds")).toObject(), "connect_failures"), 3);
    ASSERT_TRUE(server.start());
    auto p = startFleet(server.port(),
                        args + QStringList{QStringLiteral("--password"), QStringLiteral("wrong")});
    s = summaryOf(*p, &rc);
    EXPECT_EQ(rc, 3);
    EXPECT_GE(num(s.value(QStringLiteral("error_kinds")).toObject(), "logins_refused"), 1);
}

TEST(Latency, PercentilesAreWithinOnePercent)
{
    struct Row
    {
        double fraction;
        double expectMs;
    };
    // 1 ms to 1000 ms, one sample each: the p-th percentile is p × 1000 ms.
    Latency l;
    for (int ms = 1000; ms >= 1; --ms) l.add(qint64(ms) * 1000);
    const Row rows[] = {{0.5, 500}, {0.9, 900}, {0.99, 990}, {0.001, 1}, {1.0, 1000}};
    for (const Row& row : rows)
        EXPECT_NEAR(l.percentileMs(row.fraction), row.expectMs, row.expectMs * 0.01)
            << row.fraction;
    EXPECT_EQ(l.count(), 1000u);
    EXPECT_DOUBLE_EQ(l.maxMs(), 1000);
    // A sample beyond the last bucket still counts, at its own value.
    l.add(3600LL * 1000 * 1000);
    EXPECT_DOUBLE_EQ(l.percentileMs(1.0), 3600 * 1000);
    l.clear();
    EXPECT_EQ(l.percentileMs(0.5), 0);
}

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
