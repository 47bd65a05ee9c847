// kzlan-client's sub-commands: one function each, grouped by subject in
// users.cpp, fleet.cpp and files.cpp.
#ifndef KZLAN_CLIENT_COMMANDS_H
#define KZLAN_CLIENT_COMMANDS_H

#include "session.h"

#include <QJsonObject>
#include <QStringList>

/// A sub-command's arguments: its options (`--name value`, `--flag`) are
/// taken out by name, what remains are its positional arguments.
class Args
{
public:
    explicit Args(QStringList words) : words_(std::move(words)) {}
    /// The value of `--name VALUE`, or `fallback`; false in `ok` if the value
    /// is missing.
    QString option(const QString& name, const QString& fallback = QString());
    /// Whether `--name` is there.
    bool flag(const QString& name);
    /// The remaining words; false if one of them is an unknown option or an
    /// option lacked its value.
    bool positionals(QStringList* out) const;

private:
    QStringList words_;
    bool bad_ = false;
};

using CommandFn = int (*)(Session&, Args&);

struct Command
{
    const char* name;  ///< "users add"
    const char* args;  ///< "NAME [--group LV1/LV2] …"
    const char* about; ///< one line for --help
    CommandFn run;
};

/// Prints the outcome of a change: `done` on stdout if `ok`, `refused` as the
/// error line if not; with --json, `json` and "ok" on stdout either way.
/// Returns ExitOk or ExitRefused.
int report(const Session& s, bool ok, const QString& done, const QString& refused,
           QJsonObject json);

/// Prints the usage line of the sub-command being run and returns ExitUsage.
int usageError(const QString& why = QString());

int cmdLogin(Session& s, Args& a);
int cmdUsersList(Session& s, Args& a);
int cmdUsersAdd(Session& s, Args& a);
int cmdUsersDelete(Session& s, Args& a);
int cmdUsersMove(Session& s, Args& a);
int cmdMachinesList(Session& s, Args& a);
int cmdPlans(Session& s, Args& a);
int cmdLogs(Session& s, Args& a);
int cmdPricesList(Session& s, Args& a);
int cmdPricesSet(Session& s, Args& a);
int cmdSend(Session& s, Args& a);

#endif
