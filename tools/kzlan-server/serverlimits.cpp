// The limits' options: name, help, range and the field each one sets.
#include "serverlimits.h"

#include <QCommandLineParser>

namespace {

struct Limit
{
    const char* name;
    const char* help; ///< "%1" is the default
    const char* unit;
    qint64 min;
    qint64 max;
    qint64 ServerLimits::*wide = nullptr;
    int ServerLimits::*narrow = nullptr;
};

const Limit kLimits[] = {
    {"idle-timeout",
     "Disconnect a logged-in client that sends nothing for this many seconds "
     "(default %1; 0: never).",
     "S", 0, 365 * 24 * 3600, nullptr, &ServerLimits::idleTimeoutS},
    {"max-in-flight",
     "Requests of one client being worked on at once; more wait in the network "
     "(default %1).",
     "N", 1, 1024, nullptr, &ServerLimits::maxInFlight},
    {"db-busy-timeout",
     "Milliseconds a write waits for another process's lock on the SQLite "
     "file before the request is refused (default %1).",
     "MS", 0, 60000, nullptr, &ServerLimits::dbBusyTimeoutMs},
    {"auth-queue", "Logins waiting for their password check, in all (default %1).", "N", 1, 100000,
     nullptr, &ServerLimits::authQueue},
    {"auth-queue-per-address",
     "Logins waiting for their password check from one address "
     "(default %1).",
     "N", 1, 100000, nullptr, &ServerLimits::authQueuePerAddress},
    {"event-log-rows",
     "Rows the event log keeps, the oldest going first (default %1; 0: no "
     "cap).",
     "N", 0, 1000000000, nullptr, &ServerLimits::eventLogRows},
    {"event-log-days", "Days the event log keeps a row (default %1; 0: no limit).", "DAYS", 0,
     100000, nullptr, &ServerLimits::eventLogDays},
    {"user-quota-mib", "MiB of stored files one user may have sent (default %1; 0: no quota).",
     "MIB", 0, qint64(1) << 40, &ServerLimits::userQuotaMiB, nullptr},
    {"user-quota-files", "Stored files one user may have sent (default %1; 0: no quota).", "N", 0,
     100000000, nullptr, &ServerLimits::userQuotaFiles},
    {"machine-quota-mib", "MiB of stored files one machine may hold (default %1; 0: no quota).",
     "MIB", 0, qint64(1) << 40, &ServerLimits::machineQuotaMiB, nullptr},
    {"machine-quota-files", "Stored files one machine may hold (default %1; 0: no quota).", "N", 0,
     100000000, nullptr, &ServerLimits::machineQuotaFiles},
};

qint64 valueOf(const ServerLimits& l, const Limit& e) { return e.wide ? l.*e.wide : l.*e.narrow; }

} // namespace

LimitOptions::LimitOptions(QCommandLineParser& cli) : cli_(cli)
{
    const ServerLimits defaults;
    for (const Limit& e : kLimits) {
        const QString value = QString::number(valueOf(defaults, e));
        options_.append(QCommandLineOption(QLatin1String(e.name), QLatin1String(e.help).arg(value),
                                           QLatin1String(e.unit), value));
        cli.addOption(options_.last());
    }
}

bool LimitOptions::read(ServerLimits* limits, QString* error) const
{
    for (int i = 0; i < options_.size(); ++i) {
        const Limit& e = kLimits[i];
        bool ok = false;
        const qint64 v = cli_.value(options_[i]).toLongLong(&ok);
        if (!ok || v < e.min || v > e.max) {
            *error = QStringLiteral("--%1 takes a number from %2 to %3")
                         .arg(QLatin1String(e.name))
                         .arg(e.min)
                         .arg(e.max);
            return false;
        }
        if (e.wide)
            limits->*e.wide = v;
        else
            limits->*e.narrow = int(v);
    }
    return true;
}
