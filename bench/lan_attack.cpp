// kzlan-attack: attacks a kzlan-server over loopback and prints, per attack,
// the server's peak resident memory and the longest time a probe client
// (logged in, asking for the price table again and again from a thread of
// its own) waited for an answer meanwhile. Each attack starts a server of
// its own on 127.0.0.1 with a fresh database, and is bounded in time.
//
//   kzlan-attack PATH/TO/kzlan-server [nonreader|prelogin|close|lock|pushes ...]
#include "kzconnection.h"
#include "lanwire.h"

#include <QAtomicInt>
#include <QCoreApplication>
#include <QCryptographicHash>
#include <QElapsedTimer>
#include <QFile>
#include <QHostAddress>
#include <QProcess>
#include <QRegularExpression>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QThread>
#include <QTimer>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <memory>
#include <vector>

#include <unistd.h>

namespace {

const QString kPassword = QStringLiteral("attack-pw");

using lan::framesOf;
using lan::idle;
using lan::waitFor;

QByteArray md5(const QByteArray& b) { return QCryptographicHash::hash(b, QCryptographicHash::Md5); }

/// A server process of its own, in a directory of its own.
struct ServerProcess
{
    QTemporaryDir dir;
    QProcess proc;
    quint16 port = 0;

    QString database() const { return dir.filePath(QStringLiteral("kz.sqlite")); }

    bool start(const QString& binary)
    {
        proc.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        proc.start(binary,
                   {QStringLiteral("--listen"), QStringLiteral("127.0.0.1"),
                    QStringLiteral("--port"), QStringLiteral("0"), QStringLiteral("--db"),
                    database(), QStringLiteral("--storage"), dir.filePath(QStringLiteral("files")),
                    QStringLiteral("--admin-password"), kPassword});
        const QRegularExpression listening(QStringLiteral("listening on [^:]+:(\\d+)"));
        QByteArray out;
        return waitFor(
            [&] {
                out += proc.readAllStandardOutput();
                const auto m = listening.match(QString::fromUtf8(out));
                if (m.hasMatch()) port = quint16(m.captured(1).toUInt());
                return port != 0;
            },
            10000);
    }
    /// The processor time the server used so far (user and system), in ms.
    double cpuMs() const
    {
        QFile f(QStringLiteral("/proc/%1/stat").arg(proc.processId()));
        if (!f.open(QIODevice::ReadOnly)) return -1;
        const QByteArray stat = f.readAll();
        // After the name in brackets: state is field 3, utime 14, stime 15.
        const QList<QByteArray> fields = stat.mid(stat.lastIndexOf(')') + 2).split(' ');
        if (fields.size() < 13) return -1;
        return (fields[11].toDouble() + fields[12].toDouble()) * 1000.0 / ::sysconf(_SC_CLK_TCK);
    }
    /// VmHWM: the peak resident memory in KiB.
    long peakKiB() const
    {
        QFile f(QStringLiteral("/proc/%1/status").arg(proc.processId()));
        if (!f.open(QIODevice::ReadOnly)) return -1;
        for (const QByteArray& line : f.readAll().split('\n'))
            if (line.startsWith("VmHWM:")) return line.mid(6).trimmed().split(' ')[0].toLong();
        return -1;
    }
    ~ServerProcess()
    {
        proc.terminate();
        if (!proc.waitForFinished(5000)) proc.kill();
        proc.waitForFinished(2000);
    }
};

/// A logged-in client on the library, in the attack's thread.
struct Client
{
    QTcpSocket socket;
    KZConnection conn{&socket};
    KZProtocolResolver& r = *conn.resolver();
    bool loggedIn = false;
    int answers = 0;
    int userLists = 0;

    explicit Client(quint16 port)
    {
        QObject::connect(&conn, &KZConnection::loginResult,
                         [this](bool ok, int, bool, bool) { loggedIn = ok; });
        QObject::connect(&conn, &KZConnection::userInfo,
                         [this](const QList<user_info>&) { ++userLists; });
        socket.connectToHost(QHostAddress::LocalHost, port);
    }
    bool login()
    {
        if (!socket.waitForConnected(5000)) return false;
        r.lanLogin(QStringLiteral("admin"), kPassword);
        return waitFor([&] { return loggedIn; }, 20000);
    }
};

/// The probe: in a thread of its own, asks for the price table as soon as
/// the last answer came, and keeps the longest wait.
class Probe : public QThread
{
public:
    explicit Probe(quint16 port) : port_(port) {}
    QAtomicInt longestMs{0};
    QAtomicInt ready{0};
    QAtomicInt stop{0};

protected:
    void run() override
    {
        Client c(port_);
        if (!c.login()) return;
        QElapsedTimer asked;
        bool waiting = false;
        QObject::connect(&c.conn, &KZConnection::loadFilePriceResult, [&] { waiting = false; });
        ready = 1;
        QElapsedTimer pace;
        while (!stop.loadRelaxed()) {
            if (!waiting && (!pace.isValid() || pace.elapsed() >= 10)) {
                c.r.lanLoadFilePrice();
                asked.start();
                pace.start();
                waiting = true;
            }
            if (waiting && asked.elapsed() > longestMs.loadRelaxed())
                longestMs = int(asked.elapsed());
            QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
            c.socket.waitForReadyRead(5);
        }
    }

private:
    quint16 port_;
};

// -- the attacks -------------------------------------------------------------------

// Point 5: a logged-in client sends 2000 requests with large answers and
// reads none of them.
void nonReader(const ServerProcess& s)
{
    QTcpSocket flood;
    flood.setReadBufferSize(1);
    flood.connectToHost(QHostAddress::LocalHost, s.port);
    flood.waitForConnected(5000);
    flood.write(
        framesOf([](KZProtocolResolver& r) { r.lanLogin(QStringLiteral("admin"), kPassword); }));
    idle(1000);
    flood.write(framesOf([](KZProtocolResolver& r) {
        for (int i = 0; i < 2000; ++i)
            r.lanQueryMacStatistic(QStringLiteral("KZ-1"), QStringLiteral("2024-01-01"),
                                   QStringLiteral("2024-12-31"), QString());
    }));
    idle(8000);
}

// Point 6: 40 connections that never log in, each sending 8 MiB of a large
// frame.
void preLogin(const ServerProcess& s)
{
    const QByteArray data(8 * 1024 * 1024, 'x');
    const QByteArray frames =
        framesOf([&](KZProtocolResolver& r) {
            r.lanMacTsfFileContent(1, 0, 0, data.size(), QByteArray(16, '\0'), data);
        }).chopped(2000);
    std::vector<std::unique_ptr<QTcpSocket>> strangers;
    for (int i = 0; i < 40; ++i) {
        strangers.push_back(std::make_unique<QTcpSocket>());
        strangers.back()->connectToHost(QHostAddress::LocalHost, s.port);
        strangers.back()->write(frames);
    }
    idle(6000);
}

// Point 9: a 256 MiB upload sent whole, then closed (write-out and MD5).
void closeUpload(const ServerProcess& s)
{
    Client c(s.port);
    if (!c.login()) return;
    constexpr int kChunk = 64 * 1024, kChunks = 4096;
    QByteArray chunk(kChunk, '\0');
    for (int i = 0; i < kChunk; ++i) chunk[i] = char(i * 31);
    QCryptographicHash whole(QCryptographicHash::Md5);
    for (int i = 0; i < kChunks; ++i) whole.addData(chunk);
    int task = 0, acked = 0;
    bool ended = false;
    QObject::connect(&c.conn, &KZConnection::macTsfFileAddTaskUi,
                     [&](bool, const QString&, const QString&, int n, const QString&,
                         const QString&, const QString&) { task = n; });
    QObject::connect(&c.conn, &KZConnection::macTsfFileContentResult, [&](int, int) { ++acked; });
    QObject::connect(&c.conn, &KZConnection::macTsfFileEnd,
                     [&](int, const QString&, bool) { ended = true; });
    c.r.lanMacTsfFileAddTask(true, QStringLiteral("KZ-1"), QStringLiteral("job"),
                             QStringLiteral("/"), true, {QStringLiteral("big.dst")});
    c.r.lanMacTsfFileTaskBegin(kChunk * kChunks, whole.result());
    if (!waitFor([&] { return task != 0; }, 5000)) return;
    const QByteArray digest = md5(chunk);
    for (int i = 0; i < kChunks; ++i) {
        c.r.lanMacTsfFileContent(task, i, i * kChunk, kChunk, digest, chunk);
        waitFor([&] { return c.socket.bytesToWrite() < 4 * 1024 * 1024; }, 10000);
    }
    waitFor([&] { return acked == kChunks; }, 60000);
    c.r.lanMacTsfFileClose(task, kChunks, whole.result());
    waitFor([&] { return ended; }, 60000);
    idle(200);
}

// Point 9: another process holds the SQLite write lock for 3 s while an
// administrator changes a permission three times.
void heldLock(const ServerProcess& s)
{
    Client c(s.port);
    if (!c.login()) return;
    int answered = 0;
    QObject::connect(&c.conn, &KZConnection::updateUserPermissionResult,
                     [&](bool, const QString&, int) { ++answered; });
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), "lock");
        db.setDatabaseName(s.database());
        db.open();
        QSqlQuery q(db);
        q.exec(QStringLiteral("BEGIN IMMEDIATE"));
        for (int i = 0; i < 3; ++i) c.r.lanUpdateUserPermission(QStringLiteral("admin"), -1);
        idle(3000);
        q.exec(QStringLiteral("ROLLBACK"));
        db.close();
    }
    QSqlDatabase::removeDatabase(QStringLiteral("lock"));
    waitFor([&] { return answered == 3; }, 30000);
}

// Point 9: 5000 users, 100 clients logged in and reading, an administrator
// adds 10 users (each change pushes the user list to the others).
void pushes(const ServerProcess& s)
{
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), "fill");
        db.setDatabaseName(s.database());
        db.open();
        db.transaction();
        QSqlQuery q(db);
        q.prepare(QStringLiteral("INSERT INTO users VALUES (?, ?, '', 0, 0, 'Plant', 'Hall',"
                                 " '{}', ?, '00', '00', 1)"));
        for (int i = 0; i < 5000; ++i) {
            q.addBindValue(QStringLiteral("user%1").arg(i));
            q.addBindValue(QStringLiteral("Full Name of User %1").arg(i));
            q.addBindValue(i + 1);
            q.exec();
        }
        db.commit();
        db.close();
    }
    QSqlDatabase::removeDatabase(QStringLiteral("fill"));
    std::vector<std::unique_ptr<Client>> clients;
    // In groups of ten, as a server takes a limited number of logins from
    // one address at once.
    for (int i = 0; i < 100; ++i) {
        clients.push_back(std::make_unique<Client>(s.port));
        clients.back()->r.lanLogin(QStringLiteral("admin"), kPassword);
        if (i % 10 == 9)
            waitFor(
                [&] {
                    for (const auto& c : clients)
                        if (!c->loggedIn) return false;
                    return true;
                },
                60000);
    }
    int in = 0;
    for (const auto& c : clients) in += c->loggedIn;
    if (in < 100) std::fprintf(stderr, "kzlan-attack: %d of 100 clients logged in\n", in);
    idle(1000);
    Client admin(s.port);
    if (!admin.login()) return;
    int added = 0;
    QObject::connect(&admin.conn, &KZConnection::addUserResult, [&](const user_info&) { ++added; });
    // Each change, from the request until every client has a list made after
    // it, and the server's processor time over the ten.
    const double cpuBefore = s.cpuMs();
    QElapsedTimer all;
    all.start();
    qint64 slowest = 0;
    for (int i = 0; i < 10; ++i) {
        std::vector<int> before;
        for (const auto& c : clients) before.push_back(c->userLists);
        QElapsedTimer one;
        one.start();
        admin.r.lanAddUser(QStringLiteral("new%1").arg(i), QString(), QStringLiteral("pw"),
                           QString(), QString(), false);
        waitFor(
            [&] {
                for (size_t k = 0; k < clients.size(); ++k)
                    if (clients[k]->loggedIn && clients[k]->userLists == before[k]) return false;
                return added > i;
            },
            20000);
        slowest = std::max(slowest, one.elapsed());
    }
    std::fprintf(stderr,
                 "kzlan-attack: 10 AddUser pushed to 100 clients in %lld ms (slowest %lld ms), "
                 "server CPU %.0f ms\n",
                 static_cast<long long>(all.elapsed()), static_cast<long long>(slowest),
                 s.cpuMs() - cpuBefore);
    idle(2000);
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments().mid(1);
    if (args.isEmpty()) {
        std::fprintf(stderr, "usage: kzlan-attack PATH/TO/kzlan-server "
                             "[nonreader|prelogin|close|lock|pushes ...]\n");
        return 2;
    }
    const std::vector<std::pair<QString, void (*)(const ServerProcess&)>> attacks = {
        {QStringLiteral("nonreader"), nonReader}, {QStringLiteral("prelogin"), preLogin},
        {QStringLiteral("close"), closeUpload},   {QStringLiteral("lock"), heldLock},
        {QStringLiteral("pushes"), pushes},
    };
    std::printf("%-10s %14s %18s\n", "attack", "peak RSS MiB", "longest stall ms");
    for (const auto& [name, attack] : attacks) {
        if (args.size() > 1 && !args.mid(1).contains(name)) continue;
        ServerProcess server;
        if (!server.start(args[0])) {
            std::fprintf(stderr, "kzlan-attack: the server did not start\n");
            return 1;
        }
        Probe probe(server.port);
        probe.start();
        waitFor([&] { return probe.ready.loadRelaxed() != 0; }, 20000);
        attack(server);
        const long peak = server.peakKiB();
        probe.stop = 1;
        probe.wait();
        std::printf("%-10s %14.1f %18d\n", qPrintable(name), peak / 1024.0,
                    probe.longestMs.loadRelaxed());
        std::fflush(stdout);
    }
    return 0;
}
