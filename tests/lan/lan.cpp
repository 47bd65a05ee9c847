#include "lan.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QHostAddress>

#include <csignal>
#include <cstdio>
#include <cstdlib>

namespace lan {

const QString kAdminPassword = QStringLiteral("first-Admin-pw");

Server::Server() = default;

Server::~Server()
{
    if (running()) terminate();
    // A failing test shows the end of what the server logged.
    if (::testing::Test::HasFailure() && !log().isEmpty()) {
        const QList<QByteArray> lines = log().split('\n');
        std::fprintf(stderr, "--- kzlan-server log, last lines ---\n%s\n--- end ---\n",
                     lines.mid(qMax(0, int(lines.size()) - 40)).join('\n').constData());
    }
}

bool Server::start(const QStringList& options)
{
    proc_ = std::make_unique<QProcess>();
    proc_->start(QStringLiteral(KZLAN_SERVER),
                 QStringList{QStringLiteral("--listen"), QStringLiteral("127.0.0.1"),
                             QStringLiteral("--port"), QStringLiteral("0"), QStringLiteral("--db"),
                             database(), QStringLiteral("--storage"), storage(),
                             QStringLiteral("--admin-password"), kAdminPassword} +
                     options);
    // "kzlan-server listening on 127.0.0.1:PORT", maybe after other lines.
    const QByteArray prefix = "kzlan-server listening on ";
    QElapsedTimer t;
    t.start();
    while (t.elapsed() < 15000 && proc_->state() != QProcess::NotRunning) {
        if (!proc_->canReadLine()) {
            proc_->waitForReadyRead(100);
            continue;
        }
        const QByteArray line = proc_->readLine().trimmed();
        if (!line.startsWith(prefix)) continue;
        port_ = quint16(line.mid(line.lastIndexOf(':') + 1).toUInt());
        return port_ != 0;
    }
    ADD_FAILURE() << "kzlan-server did not start: " << log().constData();
    return false;
}

void Server::kill9()
{
    ::kill(pid_t(pid()), SIGKILL);
    proc_->waitForFinished(5000);
}

int Server::terminate()
{
    proc_->terminate();
    if (!proc_->waitForFinished(10000)) {
        proc_->kill();
        proc_->waitForFinished(5000);
        return -1;
    }
    return proc_->exitStatus() == QProcess::NormalExit ? proc_->exitCode() : -1;
}

long Server::rssKiB() const
{
    QFile f(QStringLiteral("/proc/%1/status").arg(pid()));
    if (!f.open(QIODevice::ReadOnly)) return -1;
    for (const QByteArray& line : f.readAll().split('\n'))
        if (line.startsWith("VmRSS:")) return line.mid(6).trimmed().split(' ').value(0).toLong();
    return -1;
}

QByteArray Server::log()
{
    if (proc_) log_ += proc_->readAllStandardError();
    return log_;
}

std::unique_ptr<QProcess> startClient(const Server& server, const QStringList& args)
{
    auto p = std::make_unique<QProcess>();
    p->start(QStringLiteral(KZLAN_CLIENT),
             QStringList{QStringLiteral("--port"), QString::number(server.port()),
                         QStringLiteral("--password"), kAdminPassword} +
                 args);
    return p;
}

Outcome client(const Server& server, const QStringList& args) { return client(server, {}, args); }

Outcome client(const Server& server, const QStringList& options, const QStringList& args)
{
    auto p = startClient(server, options + args);
    Outcome r;
    if (!p->waitForFinished(30000)) {
        p->kill();
        p->waitForFinished();
        ADD_FAILURE() << "kzlan-client hung: " << args.join(QLatin1Char(' ')).toStdString();
    }
    r.code = p->exitStatus() == QProcess::NormalExit ? p->exitCode() : -1;
    r.out = p->readAllStandardOutput();
    r.err = p->readAllStandardError();
    return r;
}

Peer::Peer()
{
    conn.setDevice(&socket);
    QObject::connect(&conn, &KZConnection::userInfo, [this](const QList<user_info>& list) {
        users = list;
        ++userLists;
    });
    QObject::connect(&conn, &KZConnection::macInfo, [this](const QList<mac_info>& list) {
        macs = list;
        ++macLists;
    });
}

bool Peer::connectTo(const Server& server)
{
    socket.connectToHost(QHostAddress::LocalHost, server.port());
    return waitFor([this] { return socket.state() == QAbstractSocket::ConnectedState; });
}

bool Peer::login(const QString& user, const QString& password)
{
    int verdict = -1;
    const auto c = QObject::connect(&conn, &KZConnection::loginResult,
                                    [&verdict](bool ok, int, bool, bool) { verdict = ok; });
    lan.lanLogin(user, password);
    waitFor([&verdict] { return verdict >= 0; });
    QObject::disconnect(c);
    return verdict == 1;
}

} // namespace lan
