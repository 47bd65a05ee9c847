// What a plant may tune of the server's limits: the values, their defaults,
// and the command-line options that set them (one table, so that a
// configuration file keyed by the long option names sets them too).
#ifndef KZLAN_SERVER_SERVERLIMITS_H
#define KZLAN_SERVER_SERVERLIMITS_H

#include <QCommandLineOption>
#include <QList>
#include <QString>
#include <QtGlobal>

class QCommandLineParser;

/// The tunable limits of a server. The defaults suit a plant of a few
/// hundred clients; 0 turns a quota, cap or time-out off where it says so.
struct ServerLimits
{
    /// A logged-in client that sends nothing for this long is disconnected
    /// (0: never).
    int idleTimeoutS = 30 * 60;
    /// Requests of one client whose answer is being worked out off the event
    /// loop; at the limit its further requests wait in the network.
    int maxInFlight = 16;
    /// How long a write waits for another process's lock on the SQLite file
    /// before the request is refused.
    int dbBusyTimeoutMs = 200;
    /// Logins waiting for their password check, in all and from one address
    /// (as many as the connections one address may have before login);
    /// beyond them a login is refused without a check.
    int authQueue = 256;
    int authQueuePerAddress = 64;
    /// Rows the event log keeps at most, and days it keeps them (0: no cap).
    int eventLogRows = 100000;
    int eventLogDays = 365;
    /// Stored files per user and per machine: bytes and count (0: no quota).
    qint64 userQuotaMiB = 10240;
    int userQuotaFiles = 10000;
    qint64 machineQuotaMiB = 10240;
    int machineQuotaFiles = 10000;
};

/// The command-line options of ServerLimits.
class LimitOptions
{
public:
    /// Adds one option per limit (--idle-timeout, --max-in-flight, ...), each
    /// with its default in its help text.
    explicit LimitOptions(QCommandLineParser& cli);
    /// After cli.process(): the limits given, the defaults for the others.
    /// False with `*error` set when a value is not a number in its range.
    bool read(ServerLimits* limits, QString* error) const;

private:
    QCommandLineParser& cli_;
    QList<QCommandLineOption> options_; ///< in the order of the table in serverlimits.cpp
};

#endif
