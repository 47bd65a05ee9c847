// Accounts steps: once logged in, the client adds a user, moves it to another
// group and sets its permission; the server keeps its user list, answers each
// request and then pushes the whole list.
#include "demo.h"

#include <QStringList>

namespace {

// The server's user list.
QList<user_info> g_users = [] {
    user_info admin;
    admin.name = QStringLiteral("admin");
    admin.text2 = QStringLiteral("Administrator");
    admin.permission = 0xFF;
    admin.lv1Group = QStringLiteral("Head office");
    admin.lv2Group = QStringLiteral("IT");
    admin.groupPermission = {{QStringLiteral("Plant A"), {QStringLiteral("Line 1")}}};
    return QList<user_info>{admin};
}();

const QString kUser = QStringLiteral("carol");

user_info* findUser(const QString& name)
{
    for (user_info& u : g_users)
        if (u.name == name) return &u;
    return nullptr;
}

QString describe(const user_info& u)
{
    return QStringLiteral("%1 (%2) in %3/%4 permission=%5 flag=%6")
        .arg(u.name, u.text2, u.lv1Group, u.lv2Group)
        .arg(u.permission)
        .arg(u.flag);
}

// --- server side ---

void onAddUser(void* ctx, const QString& name, const QString& text2, const QString& text3,
               const QString& lv1Group, const QString& lv2Group, bool flag)
{
    Peer& p = peer(ctx);
    p.handled(QStringLiteral("AddUser name=%1 text2=%2 group=%3/%4 flag=%5")
                  .arg(name, text2, lv1Group, lv2Group)
                  .arg(flag));
    user_info u;
    u.name = name;
    u.text2 = text2;
    u.text3 = text3;
    u.flag = flag;
    u.lv1Group = lv1Group;
    u.lv2Group = lv2Group;
    g_users.append(u);
    p.resolver.lanAddUserResult(u);
    p.sent(QStringLiteral("AddUserResult %1").arg(describe(u)));
}

void onMoveUserToGroup(void* ctx, const QStringList& names, const QString& lv1, const QString& lv2)
{
    Peer& p = peer(ctx);
    p.handled(QStringLiteral("MoveUserToGroup names=%1 to %2/%3")
                  .arg(names.join(QLatin1Char(',')), lv1, lv2));
    bool ok = true;
    for (const QString& name : names) {
        user_info* u = findUser(name);
        ok = ok && u;
        if (u) {
            u->lv1Group = lv1;
            u->lv2Group = lv2;
        }
    }
    p.resolver.lanMoveUserToGroupResponse(ok, names, lv1, lv2);
    p.sent(QStringLiteral("MoveUserToGroupResponse ok=%1").arg(ok));
}

void onUpdateUserPermission(void* ctx, const QString& name, int permission)
{
    Peer& p = peer(ctx);
    p.handled(
        QStringLiteral("UpdateUserPermission name=%1 permission=%2").arg(name).arg(permission));
    user_info* u = findUser(name);
    if (u) u->permission = permission;
    p.resolver.lanUpdateUserPermissionResponse(u != nullptr, name, permission);
    p.sent(QStringLiteral("UpdateUserPermissionResponse ok=%1").arg(u != nullptr));
    // The change is pushed to the client as the full list.
    p.resolver.lanUserInfo(g_users);
    p.sent(QStringLiteral("UserInfo users=%1").arg(g_users.size()));
}

// --- client side ---

void onAddUserResult(void* ctx, const user_info& user)
{
    Peer& p = peer(ctx);
    p.handled(QStringLiteral("AddUserResult %1").arg(describe(user)));
    if (user.name != kUser) return p.demo->fail(QStringLiteral("added the wrong user"));
    p.demo->next();
}

void onMoveUserToGroupResult(void* ctx, bool ok, const QStringList& names, const QString& lv1,
                             const QString& lv2)
{
    Peer& p = peer(ctx);
    p.handled(QStringLiteral("MoveUserToGroupResponse ok=%1 names=%2 to %3/%4")
                  .arg(ok)
                  .arg(names.join(QLatin1Char(',')), lv1, lv2));
    if (!ok) return p.demo->fail(QStringLiteral("move refused"));
    p.demo->next();
}

void onUpdateUserPermissionResult(void* ctx, bool ok, const QString& name, int permission)
{
    Peer& p = peer(ctx);
    p.handled(QStringLiteral("UpdateUserPermissionResponse ok=%1 name=%2 permission=%3")
                  .arg(ok)
                  .arg(name)
                  .arg(permission));
    if (!ok) p.demo->fail(QStringLiteral("permission refused"));
    // The next step waits for the list the server pushes.
}

void onUserInfo(void* ctx, const QList<user_info>& users)
{
    Peer& p = peer(ctx);
    p.handled(QStringLiteral("UserInfo users=%1").arg(users.size()));
    for (const user_info& u : users) p.handled(QStringLiteral("  %1").arg(describe(u)));
    p.demo->next();
}

} // namespace

void addAccountsSteps(Demo& demo)
{
    KZProtocolResolver& server = demo.server.resolver;
    server.setLanAddUserCB(&onAddUser);
    server.setLanMoveUserToGroupCB(&onMoveUserToGroup);
    server.setLanUpdateUserPermissionCB(&onUpdateUserPermission);
    KZProtocolResolver& client = demo.client.resolver;
    client.setLanAddUserResultCB(&onAddUserResult);
    client.setLanMoveUserToGroupResultCB(&onMoveUserToGroupResult);
    client.setLanUpdateUserPermissionResultCB(&onUpdateUserPermissionResult);
    client.setLanUserInfoCB(&onUserInfo);

    // Before the logout, which stays the last step.
    demo.steps.insert(demo.steps.size() - 1, [&demo] {
        demo.client.sent(QStringLiteral("AddUser name=%1 to Plant A/Line 1").arg(kUser));
        demo.client.resolver.lanAddUser(kUser, QStringLiteral("Carol Meyer"),
                                        QStringLiteral("carol@plant-a"), QStringLiteral("Plant A"),
                                        QStringLiteral("Line 1"), true);
    });
    demo.steps.insert(demo.steps.size() - 1, [&demo] {
        demo.client.sent(QStringLiteral("MoveUserToGroup names=%1 to Plant B/Line 3").arg(kUser));
        demo.client.resolver.lanMoveUserToGroup({kUser}, QStringLiteral("Plant B"),
                                                QStringLiteral("Line 3"));
    });
    demo.steps.insert(demo.steps.size() - 1, [&demo] {
        demo.client.sent(QStringLiteral("UpdateUserPermission name=%1 permission=15").arg(kUser));
        demo.client.resolver.lanUpdateUserPermission(kUser, 15);
    });
}
