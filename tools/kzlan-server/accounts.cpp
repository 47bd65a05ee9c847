// Users, groups, operators and permissions.
#include "server_p.h"
#include "texts.h"

namespace {

// What the lists show of a user: never the password (text3).
user_info shown(user_info u)
{
    u.text3.clear();
    return u;
}

// Names to move into a group: the names and the group's two levels.
bool validMove(const QStringList& names, const QString& lv1, const QString& lv2)
{
    return Texts::areNames(names) && Texts::isOptionalName(lv1) && Texts::isOptionalName(lv2);
}

// Runs `change` in a transaction that is committed only if an
// administrator is left after it: without one nobody could log in to
// repair the server.
template <typename Change>
bool keepingAnAdministrator(Storage& s, Change change)
{
    Storage::Transaction t(s);
    return change() && s.administratorCount() > 0 && t.commit();
}

} // namespace

void Server::attachAccounts(Client* c)
{
    KZConnection* k = c->conn;
    KZProtocolResolver* r = c->r;

    // -- users ---------------------------------------------------------------
    // The account as AddUser and UpdateClient carry it (the password apart).
    const auto userOf = [](const QString& name, const QString& text2, const QString& lv1,
                           const QString& lv2, bool flag) {
        user_info u;
        u.name = name;
        u.text2 = text2;
        u.lv1Group = lv1;
        u.lv2Group = lv2;
        u.flag = flag;
        return u;
    };
    connect(k, &KZConnection::addUser, c,
            [=](const QString& name, const QString& text2, const QString& password,
                const QString& lv1, const QString& lv2, bool flag) {
                const user_info u = userOf(name, text2, lv1, lv2, flag);
                // The reply has no success flag: a refused user comes back
                // with an empty name.
                const auto refuse = [=] {
                    qCInfo(lcServer).noquote()
                        << c->peer << "could not add the user" << Texts::forLog(name);
                    r->lanAddUserResult(user_info());
                };
                if (!allowed(c, "AddUser") ||
                    !acceptable(c, "AddUser",
                                Texts::isName(name) && Texts::isText(text2) &&
                                    password.size() <= Texts::kMaxPassword &&
                                    Texts::isOptionalName(lv1) && Texts::isOptionalName(lv2)) ||
                    password.isEmpty())
                    return later(
                        c, [] { return 0; }, [refuse](int) { refuse(); });
                stored(
                    c, [password] { return Passwords::hash(password); },
                    [u](Storage& s, const PasswordHash& hash) {
                        return s.addUser(u, hash) ? s.user(u.name) : std::nullopt;
                    },
                    [=](const std::optional<user_info>& added) {
                        if (!added) return refuse();
                        record(c, QString(), QStringLiteral("user added"), name);
                        r->lanAddUserResult(shown(*added));
                        pushUsers(c);
                    });
            });
    connect(k, &KZConnection::deleteUser, c, [=](const QStringList& names) {
        // The administrator account stays, and so does one administrator at
        // least: without them nobody could log in to repair the server.
        const bool may = allowed(c, "DeleteUser") && !names.contains(QStringLiteral("admin"));
        stored(
            c,
            [may, names](Storage& s) {
                return may && keepingAnAdministrator(s, [&] { return s.deleteUsers(names); });
            },
            [=](bool ok) {
                if (ok)
                    record(c, QString(), QStringLiteral("users deleted"),
                           names.join(QLatin1Char(',')));
                r->lanDeleteUserResponse(ok, names);
                if (!ok) return;
                endSessions(names, nullptr);
                pushUsers(c);
            });
    });
    // UpdateClient: name, text2, new password (empty: unchanged), lv1, lv2,
    // (unused), flag, (unused). A user who is not an administrator changes
    // only their own full name and password: groups and flag as stored.
    // A new password ends the account's other sessions.
    connect(k, &KZConnection::updateClient, c,
            [=](const QString& name, const QString& text2, const QString& password,
                const QString& lv1, const QString& lv2, const QString& s6, bool flag, bool b2) {
                const bool may =
                    allowed(c, "UpdateClient") && ownOrAdmin(c, name, "UpdateClient") &&
                    acceptable(c, "UpdateClient",
                               Texts::isText(text2) && password.size() <= Texts::kMaxPassword &&
                                   Texts::isOptionalName(lv1) && Texts::isOptionalName(lv2));
                const bool admin = c->admin;
                // The new password's hash when there is one, then the change;
                // the new hash comes back when the change went through.
                stored(
                    c,
                    [may, password] {
                        return may && !password.isEmpty() ? Passwords::hash(password)
                                                          : PasswordHash();
                    },
                    [=](Storage& s, const PasswordHash& hash) {
                        std::optional<PasswordHash> changed;
                        if (!may) return changed;
                        Storage::Transaction t(s);
                        const user_info now = s.user(name).value_or(user_info());
                        const bool sameGroups =
                            now.lv1Group == lv1 && now.lv2Group == lv2 && now.flag == flag;
                        if ((admin || sameGroups) &&
                            s.updateUser(userOf(name, text2, lv1, lv2, flag)) &&
                            (hash.isNull() || s.setPassword(name, hash)) && t.commit())
                            changed = hash;
                        return changed;
                    },
                    [=](const std::optional<PasswordHash>& changed) {
                        if (changed) record(c, QString(), QStringLiteral("user updated"), name);
                        r->lanUpdateClientResponse(bool(changed), name, text2, QString(), lv1, lv2,
                                                   s6, flag, b2);
                        if (!changed) return;
                        if (!changed->isNull()) endSessions({name}, name == c->user ? c : nullptr);
                        pushUsers(c);
                    });
            });
    connect(k, &KZConnection::updateUserPermission, c, [=](const QString& name, int permission) {
        const bool may = allowed(c, "UpdateUserPermission");
        stored(
            c,
            [may, name, permission](Storage& s) {
                return may && keepingAnAdministrator(
                                  s, [&] { return s.setUserPermission(name, permission); });
            },
            [=](bool ok) {
                r->lanUpdateUserPermissionResponse(ok, name, permission);
                if (!ok) return;
                record(c, QString(), QStringLiteral("permission set"),
                       QStringLiteral("%1: %2").arg(name).arg(permission));
                refreshRights(name, permission);
                pushUsers(c);
            });
    });
    connect(k, &KZConnection::updateUserGroupPermission, c,
            [=](const QString& name, const QMap<QString, QStringList>& groups) {
                const bool may = allowed(c, "UpdateUserGroupPermission");
                stored(
                    c,
                    [may, name, groups](Storage& s) {
                        return may && s.setUserGroupPermission(name, groups);
                    },
                    [=](bool ok) {
                        r->lanUpdateUserGroupPermissionResponse(ok, name, groups);
                        if (ok) pushUsers(c);
                    });
            });

    // -- groups --------------------------------------------------------------
    connect(k, &KZConnection::addGroup, c,
            [=](const QStringList& lv1Names, const QMap<QString, QStringList>& lv2ByLv1) {
                if (!allowed(c, "AddGroup")) return; // the reply has no flag to say no
                bool names = Texts::areNames(lv1Names) && lv2ByLv1.size() <= Texts::kMaxItems;
                for (const QStringList& lv2 : lv2ByLv1) names = names && Texts::areNames(lv2);
                if (!acceptable(c, "AddGroup", names)) return;
                stored(
                    c, [=](Storage& s) { return s.addGroups(lv1Names, lv2ByLv1); },
                    [=](bool ok) {
                        if (ok)
                            record(c, QString(), QStringLiteral("groups added"),
                                   lv1Names.join(QLatin1Char(',')));
                        r->lanAddGroupResponse();
                    });
            });
    connect(k, &KZConnection::sortItem, c,
            [=](const QString& lv1, const QString& lv2, const QStringList& items) {
                const bool may = allowed(c, "SortItem");
                stored(
                    c, [=](Storage& s) { return may && s.sortItems(lv1, lv2, items); },
                    [=](bool ok) {
                        r->lanSortItemResponse(ok, lv1, lv2, items);
                        if (ok) push(PushUsers | PushMachines, c);
                    });
            });
    connect(k, &KZConnection::moveUserToGroup, c,
            [=](const QStringList& names, const QString& lv1, const QString& lv2) {
                const bool may = allowed(c, "MoveUserToGroup") &&
                                 acceptable(c, "MoveUserToGroup", validMove(names, lv1, lv2));
                stored(
                    c, [=](Storage& s) { return may && s.moveUsers(names, lv1, lv2); },
                    [=](bool ok) {
                        if (ok)
                            record(c, QString(), QStringLiteral("users moved"),
                                   QStringLiteral("%1 to %2/%3")
                                       .arg(names.join(QLatin1Char(',')), lv1, lv2));
                        r->lanMoveUserToGroupResponse(ok, names, lv1, lv2);
                        if (ok) pushUsers(c);
                    });
            });
    connect(k, &KZConnection::moveOperatorToGroup, c,
            [=](const QStringList& names, const QString& lv1, const QString& lv2) {
                const bool may = allowed(c, "MoveOperatorToGroup") &&
                                 acceptable(c, "MoveOperatorToGroup", validMove(names, lv1, lv2));
                stored(
                    c, [=](Storage& s) { return may && s.moveOperators(names, lv1, lv2); },
                    [=](bool ok) {
                        r->lanMoveOperatorToGroupResponse(ok, names, lv1, lv2);
                        if (ok) pushOperators(c);
                    });
            });

    // -- operators -------------------------------------------------------------
    const auto operatorOf = [](const QString& s1, const QString& s2, const QString& s3,
                               const QString& s4, const QString& s5, bool a, bool b) {
        operator_user op;
        op.name = s1;
        op.text2 = s2;
        op.text3 = s3;
        op.text4 = s4;
        op.text5 = s5;
        op.flagA = a;
        op.flagB = b;
        return op;
    };
    // An operator: a name and four texts.
    const auto validOperator = [](const QString& s1, const QString& s2, const QString& s3,
                                  const QString& s4, const QString& s5) {
        return Texts::isName(s1) && Texts::isText(s2) && Texts::isText(s3) && Texts::isText(s4) &&
               Texts::isText(s5);
    };
    connect(k, &KZConnection::addOperatorUser, c,
            [=](const QString& s1, const QString& s2, const QString& s3, const QString& s4,
                const QString& s5) {
                const bool may =
                    allowed(c, "AddOperatorUser") &&
                    acceptable(c, "AddOperatorUser", validOperator(s1, s2, s3, s4, s5));
                const operator_user op = operatorOf(s1, s2, s3, s4, s5, false, false);
                stored(
                    c, [may, op](Storage& s) { return may && s.addOperator(op); },
                    [=](bool ok) {
                        r->lanAddOperatorUserResponse(ok, s1, s2, s3, s4, s5, false, false);
                        if (ok) pushOperators(c);
                    });
            });
    connect(k, &KZConnection::addOperatorUsers, c, [=](const QList<QVariant>& rows) {
        bool ok = allowed(c, "AddOperatorUsers");
        bool valid = rows.size() <= Texts::kMaxItems;
        for (const QVariant& row : rows) {
            const QList<QVariant> v = row.toList();
            valid = valid && validOperator(v.value(0).toString(), v.value(1).toString(),
                                           v.value(2).toString(), v.value(3).toString(),
                                           v.value(4).toString());
        }
        ok = ok && acceptable(c, "AddOperatorUsers", valid);
        QList<operator_user> ops;
        for (const QVariant& row : ok ? rows : QList<QVariant>()) {
            const QList<QVariant> v = row.toList();
            ops.append(operatorOf(v.value(0).toString(), v.value(1).toString(),
                                  v.value(2).toString(), v.value(3).toString(),
                                  v.value(4).toString(), false, false));
        }
        stored(
            c,
            [ok, ops](Storage& s) {
                if (!ok) return false;
                Storage::Transaction t(s);
                for (const operator_user& op : ops)
                    if (!s.addOperator(op)) return false;
                return t.commit();
            },
            [=](bool ok) {
                r->lanAddOperatorUsersResponse(ok, rows);
                if (ok) pushOperators(c);
            });
    });
    connect(k, &KZConnection::updateOperator, c,
            [=](const QString& s1, const QString& s2, const QString& s3, const QString& s4,
                const QString& s5, bool a, bool b) {
                const bool may = allowed(c, "UpdateOperator") &&
                                 acceptable(c, "UpdateOperator", validOperator(s1, s2, s3, s4, s5));
                const operator_user op = operatorOf(s1, s2, s3, s4, s5, a, b);
                stored(
                    c, [may, op](Storage& s) { return may && s.updateOperator(op); },
                    [=](bool ok) {
                        r->lanUpdateOperatorResponse(ok, s1, s2, s3, s4, s5, a, b);
                        if (ok) pushOperators(c);
                    });
            });
    connect(k, &KZConnection::deleteOperatorUser, c, [=](const QStringList& names) {
        const bool may = allowed(c, "DeleteOperatorUser");
        stored(
            c, [may, names](Storage& s) { return may && s.deleteOperators(names); },
            [=](bool ok) {
                r->lanDeleteOperatorUserResponse(ok, names);
                if (ok) pushOperators(c);
            });
    });

    // -- permissions -------------------------------------------------------------
    // Entries are (user, first-level group or machine, second-level group).
    // Add, edit and delete answer with the user's permissions as they now
    // are; a refusal with none.
    const auto setPermissions = [=](const QString& target, auto change) {
        stored(
            c,
            [target, change](Storage& s) {
                std::optional<QList<mac_user_power>> now;
                Storage::Transaction t(s);
                if (change(s) && t.commit()) now = s.permissions({target});
                return now;
            },
            [=](const std::optional<QList<mac_user_power>>& now) {
                QMap<QString, fctp_user2_power> powers;
                for (const mac_user_power& e : now.value_or(QList<mac_user_power>()))
                    powers.insert(e.key3.isEmpty() ? e.key2 : e.key2 + QLatin1Char('/') + e.key3,
                                  e.power);
                r->lanSetPermissionResult(bool(now), target, powers);
            });
    };
    // A user who is not an administrator reads their own entries only.
    connect(k, &KZConnection::queryPermission, c, [=](const QStringList& keys) {
        const bool ok = allowed(c, "QueryPermission") &&
                        (c->admin || keys == QStringList{c->user} ||
                         ownOrAdmin(c, keys.join(QLatin1Char(',')), "QueryPermission"));
        lookUp(
            c, "QueryPermission", ok, [keys](Storage& s) { return s.permissions(keys); },
            [r](const QList<mac_user_power>& entries) { r->lanQueryPermissionResult(entries); });
    });
    connect(k, &KZConnection::addPermission, c,
            [=](const QStringList& keys, const QString& target, unsigned int power) {
                const bool may = allowed(c, "AddPermission") && !target.isEmpty();
                setPermissions(target, [=](Storage& s) {
                    bool ok = may;
                    for (const QString& key : keys)
                        ok = ok && s.setPermission(target, key, QString(), power);
                    return ok;
                });
            });
    connect(
        k, &KZConnection::editPermission, c,
        [=](const QMap<QString, QStringList>& scope, const QString& target, unsigned int power) {
            const bool may = allowed(c, "EditPermission") && !target.isEmpty();
            setPermissions(target, [=](Storage& s) {
                bool ok = may;
                for (auto it = scope.cbegin(); it != scope.cend(); ++it) {
                    if (it->isEmpty())
                        ok = ok && s.setPermission(target, it.key(), QString(), power);
                    for (const QString& lv2 : *it)
                        ok = ok && s.setPermission(target, it.key(), lv2, power);
                }
                return ok;
            });
        });
    connect(k, &KZConnection::delPermission, c, [=](const QMap<QString, QStringList>& scope) {
        const bool may = allowed(c, "DelPermission");
        setPermissions(QString(), [=](Storage& s) {
            bool ok = may;
            for (auto it = scope.cbegin(); it != scope.cend(); ++it) {
                if (it->isEmpty()) ok = ok && s.deletePermissions(it.key(), QString());
                for (const QString& lv2 : *it) ok = ok && s.deletePermissions(it.key(), lv2);
            }
            return ok;
        });
    });
}
