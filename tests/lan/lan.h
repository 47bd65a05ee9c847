// The pair over loopback: a kzlan-server of its own per test (fresh database,
// any free port), kzlan-client runs against it, and in-process clients on
// the library for what the command line does not cover.
#ifndef KZ_TESTS_LAN_H
#define KZ_TESTS_LAN_H

#include "kzconnection.h"
#include "lanwire.h"

#include <QByteArray>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTcpSocket>
#include <QTemporaryDir>

#include <functional>
#include <memory>

namespace lan {

extern const QString kAdminPassword;

/// A kzlan-server process on 127.0.0.1, its database and storage in a
/// directory of its own that outlives restarts.
class Server
{
public:
    Server();
    ~Server();

    /// Starts the server (with `options` added to the test's own) and reads
    /// its port from the listening line.
    bool start(const QStringList& options = {});
    /// SIGKILL: no chance to finish anything.
    void kill9();
    /// SIGTERM and the exit code (-1 if it did not exit cleanly).
    int terminate();

    quint16 port() const { return port_; }
    qint64 pid() const { return proc_ ? proc_->processId() : 0; }
    bool running() const { return proc_ && proc_->state() == QProcess::Running; }
    /// Resident memory in KiB, from /proc/<pid>/status.
    long rssKiB() const;
    /// Where received files go.
    QString storage() const { return dir_.filePath(QStringLiteral("storage")); }
    QString database() const { return dir_.filePath(QStringLiteral("kzlan.sqlite")); }
    /// What the server wrote on stderr so far.
    QByteArray log();

private:
    QTemporaryDir dir_;
    std::unique_ptr<QProcess> proc_;
    QByteArray log_;
    quint16 port_ = 0;
};

/// What one kzlan-client run did.
struct Outcome
{
    int code = -1;
    QByteArray out;
    QByteArray err;
};

/// Runs kzlan-client against `server` as admin with `args` and waits for it.
Outcome client(const Server& server, const QStringList& args);
/// The same with other global options in front (--user, --password, ...).
Outcome client(const Server& server, const QStringList& options, const QStringList& args);
/// Starts kzlan-client without waiting; the caller owns the process.
std::unique_ptr<QProcess> startClient(const Server& server, const QStringList& args);

/// An in-process client: a KZConnection on a socket to the server.
class Peer
{
public:
    Peer();
    bool connectTo(const Server& server);
    /// Logs in; true if the server said yes.
    bool login(const QString& user = QStringLiteral("admin"),
               const QString& password = kAdminPassword);

    QTcpSocket socket;
    KZConnection conn;
    KZProtocolResolver& lan = *conn.resolver();
    /// The lists the server pushed, as last received.
    QList<user_info> users;
    int userLists = 0;
    QList<mac_info> macs;
    int macLists = 0;
};

} // namespace lan

#endif
