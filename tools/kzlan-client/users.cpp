// login and the users sub-commands. An account carries its full name as its
// second string and, when it is added, its password as the third; the server
// stores only a hash of it and lists the third string empty.
#include "commands.h"
#include "output.h"

namespace {

QJsonObject jsonOf(const user_info& u)
{
    return QJsonObject{{QStringLiteral("name"), u.name},
                       {QStringLiteral("group"), u.lv1Group + QLatin1Char('/') + u.lv2Group},
                       {QStringLiteral("lv1Group"), u.lv1Group},
                       {QStringLiteral("lv2Group"), u.lv2Group},
                       {QStringLiteral("permission"), u.permission},
                       {QStringLiteral("flag"), u.flag},
                       {QStringLiteral("fullName"), u.text2},
                       {QStringLiteral("groupPermission"), ::jsonOf(u.groupPermission)}};
}

/// "LV1/LV2" split at its first slash; false if there is none.
bool splitGroup(const QString& both, QString* lv1, QString* lv2)
{
    const int slash = both.indexOf(QLatin1Char('/'));
    if (slash <= 0 || slash + 1 >= both.size()) return false;
    *lv1 = both.left(slash);
    *lv2 = both.mid(slash + 1);
    return true;
}

} // namespace

int cmdLogin(Session& s, Args& a)
{
    QStringList rest;
    if (!a.positionals(&rest) || !rest.isEmpty()) return usageError();
    if (int rc = s.open()) return rc;
    s.close();
    return report(s, true,
                  QStringLiteral("logged in to %1:%2 as %3")
                      .arg(s.options().host)
                      .arg(s.options().port)
                      .arg(s.options().user),
                  QString(), {{QStringLiteral("user"), s.options().user}});
}

int cmdUsersList(Session& s, Args& a)
{
    QStringList rest;
    if (!a.positionals(&rest) || !rest.isEmpty()) return usageError();
    if (int rc = s.open()) return rc;
    // The server sends the list after the login.
    if (int rc = s.run({}, [&s] { return s.haveUsers; })) return rc;
    QJsonArray rows;
    for (const user_info& u : s.users) rows.append(jsonOf(u));
    if (s.options().json)
        printJson(rows);
    else
        printRows({QStringLiteral("name"), QStringLiteral("group"), QStringLiteral("permission"),
                   QStringLiteral("flag"), QStringLiteral("fullName")},
                  rows);
    s.close();
    return ExitOk;
}

int cmdUsersAdd(Session& s, Args& a)
{
    const QString password = a.option(QStringLiteral("password"));
    const QString group = a.option(QStringLiteral("group"), QStringLiteral("Default/Default"));
    const QString fullName = a.option(QStringLiteral("full-name"));
    const bool flag = a.flag(QStringLiteral("flag"));
    QStringList rest;
    QString lv1, lv2;
    if (!a.positionals(&rest) || rest.size() != 1) return usageError();
    if (password.isEmpty()) return usageError(QStringLiteral("a new user needs a --password"));
    if (!splitGroup(group, &lv1, &lv2)) return usageError(QStringLiteral("--group is LV1/LV2"));
    const QString name = rest[0];
    if (int rc = s.open()) return rc;
    auto* reply = s.client().addUser(name, fullName, password, lv1, lv2, flag);
    if (int rc = s.await(reply)) return rc;
    const user_info added = reply->values().user;
    s.close();
    // The reply is the record as stored; another name (an empty one) means no.
    return report(
        s, added.name == name,
        QStringLiteral("added user %1 to %2/%3").arg(name, added.lv1Group, added.lv2Group),
        QStringLiteral("the server refused to add user %1").arg(name),
        {{QStringLiteral("user"), jsonOf(added)}});
}

int cmdUsersDelete(Session& s, Args& a)
{
    QStringList names;
    if (!a.positionals(&names) || names.isEmpty()) return usageError();
    if (int rc = s.open()) return rc;
    auto* reply = s.client().deleteUser(names);
    if (int rc = s.await(reply)) return rc;
    const bool ok = reply->values().ok;
    const QStringList done = reply->values().names;
    s.close();
    const QString list = names.join(QStringLiteral(", "));
    return report(s, ok, QStringLiteral("deleted %1").arg(list),
                  QStringLiteral("the server refused to delete %1").arg(list),
                  {{QStringLiteral("names"), QJsonArray::fromStringList(done)}});
}

int cmdUsersMove(Session& s, Args& a)
{
    const QString to = a.option(QStringLiteral("to"));
    QStringList names;
    QString lv1, lv2;
    if (!a.positionals(&names) || names.isEmpty() || to.isEmpty()) return usageError();
    if (!splitGroup(to, &lv1, &lv2)) return usageError(QStringLiteral("--to is LV1/LV2"));
    if (int rc = s.open()) return rc;
    auto* reply = s.client().moveUserToGroup(names, lv1, lv2);
    if (int rc = s.await(reply)) return rc;
    const bool ok = reply->values().ok;
    s.close();
    const QString list = names.join(QStringLiteral(", "));
    return report(s, ok, QStringLiteral("moved %1 to %2/%3").arg(list, lv1, lv2),
                  QStringLiteral("the server refused to move %1 to %2/%3").arg(list, lv1, lv2),
                  {{QStringLiteral("names"), QJsonArray::fromStringList(names)},
                   {QStringLiteral("lv1Group"), lv1},
                   {QStringLiteral("lv2Group"), lv2}});
}
