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
                later(
                    c, [password] { return Passwords::hash(password); },
                    [=](const PasswordHash& hash) {
                        if (!storage_.addUser(u, hash)) return refuse();
                        record(c, QString(), QStringLiteral("user added"), name);
                        r->lanAddUserResult(shown(*storage_.user(name)));
                        pushUsers(c);
                    });
            });
    connect(k, &KZConnection::deleteUser, c, [=](const QStringList& names) {
        // The administrator account stays, and so does one administrator at
        // least: without them nobody could log in to repair the server.
        bool ok = allowed(c, "DeleteUser") && !names.contains(QStringLiteral("admin"));
        if (ok) {
            Storage::Transaction t(storage_);
            ok = storage_.deleteUsers(names) && storage_.administratorCount() > 0 && t.commit();
        }
        if (ok) record(c, QString(), QStringLiteral("users deleted"), names.join(QLatin1Char(',')));
        r->lanDeleteUserResponse(ok, names);
        if (!ok) return;
        endSessions(names, nullptr);
        pushUsers(c);
    });
    // UpdateClient: name, text2, new password (empty: unchanged), lv1, lv2,
    // (unused), flag, (unused). A user who is not an administrator changes
    // only their own full name and password: groups and flag as stored.
    // A new password ends the account's other sessions.
    connect(k, &KZConnection::updateClient, c,
            [=](const QString& name, const QString& text2, const QString& password,
                const QString& lv1, const QString& lv2, const QString& s6, bool flag, bool b2) {
                bool ok =
                    allowed(c, "UpdateClient") && ownOrAdmin(c, name, "UpdateClient") &&
                    acceptable(c, "UpdateClient",
                               Texts::isText(text2) && password.size() <= Texts::kMaxPassword &&
                                   Texts::isOptionalName(lv1) && Texts::isOptionalName(lv2));
                if (ok && !c->admin) {
                    const user_info now = storage_.user(name).value_or(user_info());
                    ok = now.lv1Group == lv1 && now.lv2Group == lv2 && now.flag == flag;
                }
                const auto update = [=](bool ok, const PasswordHash& hash) {
                    if (ok) {
                        Storage::Transaction t(storage_);
                        ok = storage_.updateUser(userOf(name, text2, lv1, lv2, flag)) &&
                             (hash.isNull() || storage_.setPassword(name, hash)) && t.commit();
                    }
                    if (ok) record(c, QString(), QStringLiteral("user updated"), name);
                    r->lanUpdateClientResponse(ok, name, text2, QString(), lv1, lv2, s6, flag, b2);
                    if (!ok) return;
                    if (!hash.isNull()) endSessions({name}, name == c->user ? c : nullptr);
                    pushUsers(c);
                };
                if (!ok || password.isEmpty())
                    return later(
                        c, [] { return 0; }, [update, ok](int) { update(ok, PasswordHash()); });
                later(
                    c, [password] { return Passwords::hash(password); },
                    [update](const PasswordHash& hash) { update(true, hash); });
            });
    connect(k, &KZConnection::updateUserPermission, c, [=](const QString& name, int permission) {
        bool ok = allowed(c, "UpdateUserPermission");
        if (ok) {
            Storage::Transaction t(storage_);
            ok = storage_.setUserPermission(name, permission) &&
                 storage_.administratorCount() > 0 && t.commit();
        }
        r->lanUpdateUserPermissionResponse(ok, name, permission);
        if (!ok) return;
        record(c, QString(), QStringLiteral("permission set"),
               QStringLiteral("%1: %2").arg(name).arg(permission));
        refreshRights(name, permission);
        pushUsers(c);
    });
    connect(k, &KZConnection::updateUserGroupPermission, c,
            [=](const QString& name, const QMap<QString, QStringList>& groups) {
                const bool ok = allowed(c, "UpdateUserGroupPermission") &&
                                storage_.setUserGroupPermission(name, groups);
                r->lanUpdateUserGroupPermissionResponse(ok, name, groups);
                if (ok) pushUsers(c);
            });

    // -- groups --------------------------------------------------------------
    connect(k, &KZConnection::addGroup, c,
            [=](const QStringList& lv1Names, const QMap<QString, QStringList>& lv2ByLv1) {
                if (!allowed(c, "AddGroup")) return; // the reply has no flag to say no
                bool names = Texts::areNames(lv1Names) && lv2ByLv1.size() <= Texts::kMaxItems;
                for (const QStringList& lv2 : lv2ByLv1) names = names && Texts::areNames(lv2);
                if (!acceptable(c, "AddGroup", names)) return;
                if (storage_.addGroups(lv1Names, lv2ByLv1))
                    record(c, QString(), QStringLiteral("groups added"),
                           lv1Names.join(QLatin1Char(',')));
                r->lanAddGroupResponse();
            });
    connect(k, &KZConnection::sortItem, c,
            [=](const QString& lv1, const QString& lv2, const QStringList& items) {
                const bool ok = allowed(c, "SortItem") && storage_.sortItems(lv1, lv2, items);
                r->lanSortItemResponse(ok, lv1, lv2, items);
                if (ok) {
                    pushUsers(c);
                    pushMachines(c);
                }
            });
    connect(k, &KZConnection::moveUserToGroup, c,
            [=](const QStringList& names, const QString& lv1, const QString& lv2) {
                const bool ok = allowed(c, "MoveUserToGroup") &&
                                acceptable(c, "MoveUserToGroup", validMove(names, lv1, lv2)) &&
                                storage_.moveUsers(names, lv1, lv2);
                if (ok)
                    record(
                        c, QString(), QStringLiteral("users moved"),
                        QStringLiteral("%1 to %2/%3").arg(names.join(QLatin1Char(',')), lv1, lv2));
                r->lanMoveUserToGroupResponse(ok, names, lv1, lv2);
                if (ok) pushUsers(c);
            });
    connect(k, &KZConnection::moveOperatorToGroup, c,
            [=](const QStringList& names, const QString& lv1, const QString& lv2) {
                const bool ok = allowed(c, "MoveOperatorToGroup") &&
                                acceptable(c, "MoveOperatorToGroup", validMove(names, lv1, lv2)) &&
                                storage_.moveOperators(names, lv1, lv2);
                r->lanMoveOperatorToGroupResponse(ok, names, lv1, lv2);
                if (ok) pushOperators(c);
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
                const bool ok =
                    allowed(c, "AddOperatorUser") &&
                    acceptable(c, "AddOperatorUser", validOperator(s1, s2, s3, s4, s5)) &&
                    storage_.addOperator(operatorOf(s1, s2, s3, s4, s5, false, false));
                r->lanAddOperatorUserResponse(ok, s1, s2, s3, s4, s5, false, false);
                if (ok) pushOperators(c);
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
        if (ok) {
            Storage::Transaction t(storage_);
            for (const QVariant& row : rows) {
                const QList<QVariant> v = row.toList();
                ok = ok && storage_.addOperator(operatorOf(
                               v.value(0).toString(), v.value(1).toString(), v.value(2).toString(),
                               v.value(3).toString(), v.value(4).toString(), false, false));
            }
            ok = ok && t.commit();
        }
        r->lanAddOperatorUsersResponse(ok, rows);
        if (ok) pushOperators(c);
    });
    connect(k, &KZConnection::updateOperator, c,
            [=](const QString& s1, const QString& s2, const QString& s3, const QString& s4,
                const QString& s5, bool a, bool b) {
                const bool ok =
                    allowed(c, "UpdateOperator") &&
                    acceptable(c, "UpdateOperator", validOperator(s1, s2, s3, s4, s5)) &&
                    storage_.updateOperator(operatorOf(s1, s2, s3, s4, s5, a, b));
                r->lanUpdateOperatorResponse(ok, s1, s2, s3, s4, s5, a, b);
                if (ok) pushOperators(c);
            });
    connect(k, &KZConnection::deleteOperatorUser, c, [=](const QStringList& names) {
        const bool ok = allowed(c, "DeleteOperatorUser") && storage_.deleteOperators(names);
        r->lanDeleteOperatorUserResponse(ok, names);
        if (ok) pushOperators(c);
    });

    // -- permissions -------------------------------------------------------------
    // Entries are (user, first-level group or machine, second-level group).
    // Add, edit and delete answer with the user's permissions as they now
    // are; a refusal with none.
    const auto answerSet = [=](bool ok, const QString& target) {
        QMap<QString, fctp_user2_power> powers;
        if (ok)
            for (const mac_user_power& e : storage_.permissions({target}))
                powers.insert(e.key3.isEmpty() ? e.key2 : e.key2 + QLatin1Char('/') + e.key3,
                              e.power);
        r->lanSetPermissionResult(ok, target, powers);
    };
    // A user who is not an administrator reads their own entries only.
    connect(k, &KZConnection::queryPermission, c, [=](const QStringList& keys) {
        const bool ok = allowed(c, "QueryPermission") &&
                        (c->admin || keys == QStringList{c->user} ||
                         ownOrAdmin(c, keys.join(QLatin1Char(',')), "QueryPermission"));
        r->lanQueryPermissionResult(ok ? storage_.permissions(keys) : QList<mac_user_power>());
    });
    connect(k, &KZConnection::addPermission, c,
            [=](const QStringList& keys, const QString& target, unsigned int power) {
                bool ok = allowed(c, "AddPermission") && !target.isEmpty();
                if (ok) {
                    Storage::Transaction t(storage_);
                    for (const QString& key : keys)
                        ok = ok && storage_.setPermission(target, key, QString(), power);
                    ok = ok && t.commit();
                }
                answerSet(ok, target);
            });
    connect(
        k, &KZConnection::editPermission, c,
        [=](const QMap<QString, QStringList>& scope, const QString& target, unsigned int power) {
            bool ok = allowed(c, "EditPermission") && !target.isEmpty();
            if (ok) {
                Storage::Transaction t(storage_);
                for (auto it = scope.cbegin(); it != scope.cend(); ++it) {
                    if (it->isEmpty())
                        ok = ok && storage_.setPermission(target, it.key(), QString(), power);
                    for (const QString& lv2 : *it)
                        ok = ok && storage_.setPermission(target, it.key(), lv2, power);
                }
                ok = ok && t.commit();
            }
            answerSet(ok, target);
        });
    connect(k, &KZConnection::delPermission, c, [=](const QMap<QString, QStringList>& scope) {
        bool ok = allowed(c, "DelPermission");
        if (ok) {
            Storage::Transaction t(storage_);
            for (auto it = scope.cbegin(); it != scope.cend(); ++it) {
                if (it->isEmpty()) ok = ok && storage_.deletePermissions(it.key(), QString());
                for (const QString& lv2 : *it) ok = ok && storage_.deletePermissions(it.key(), lv2);
            }
            ok = ok && t.commit();
        }
        answerSet(ok, QString());
    });
}
