// Users: adding, deleting and editing accounts, their permission value and
// visible groups, and the user list in its group tree.
#include "grouping.h"
#include "kzprotocolresolver_p.h"

using namespace kz;

namespace {

// Where a user's two group names travel: in the record itself, or in the
// group tree around it (the listing).
enum class GroupNames { InRecord, InTree };

// user_info: strz name, strz text2, strz text3, [strz lv1Group, strz lv2Group,]
//            flag8 flag, i32 permission, groupmap groupPermission
void writeUser(Payload& p, const user_info& u, GroupNames g)
{
    p << strz{u.name} << strz{u.text2} << strz{u.text3};
    if (g == GroupNames::InRecord) p << strz{u.lv1Group} << strz{u.lv2Group};
    p << flag8{u.flag} << i32{u.permission} << groupmap{u.groupPermission};
}

user_info readUser(Reader& r, GroupNames g)
{
    user_info u;
    u.name = r.strz();
    u.text2 = r.strz();
    u.text3 = r.strz();
    if (g == GroupNames::InRecord) {
        u.lv1Group = r.strz();
        u.lv2Group = r.strz();
    }
    u.flag = r.flag8();
    u.permission = r.i32();
    u.groupPermission = r.groupmap();
    return u;
}

// The common part of both UpdateClient payloads.
Payload clientPayload(const QString& s1, const QString& s2, const QString& s3, const QString& s4,
                      const QString& s5, const QString& s6, bool b1, bool b2)
{
    Payload p;
    p << strz{s1} << strz{s2} << strz{s3} << strz{s4} << strz{s5} << strz{s6} << flag8{b1}
      << flag8{b2};
    return p;
}

} // namespace

// AddUser: request strz name, text2, text3, lv1Group, lv2Group, flag8 flag
//          reply   user_info with its group names (no success flag)
void KZProtocolResolver::lanAddUser(const QString& name, const QString& text2, const QString& text3,
                                    const QString& lv1Group, const QString& lv2Group, bool flag)
{
    d->send(Method::AddUser, Request,
            Payload() << strz{name} << strz{text2} << strz{text3} << strz{lv1Group}
                      << strz{lv2Group} << flag8{flag});
}

void KZProtocolResolver::lanAddUserResult(const user_info& user)
{
    Payload p;
    writeUser(p, user, GroupNames::InRecord);
    d->send(Method::AddUser, Reply, p);
}

void KZProtocolResolverPrivate::decodeAddUser(uchar flag, Reader& r)
{
    if (flag == Reply) return fire(cb.onLanAddUserResultCB, readUser(r, GroupNames::InRecord));
    if (flag != Request) return;
    const QString name = r.strz();
    const QString text2 = r.strz();
    const QString text3 = r.strz();
    const QString lv1Group = r.strz();
    const QString lv2Group = r.strz();
    const bool userFlag = r.flag8();
    fire(cb.onLanAddUserCB, name, text2, text3, lv1Group, lv2Group, userFlag);
}

// DeleteUser: request strlist names | reply strlist names, flag8 ok
void KZProtocolResolver::lanDeleteUser(const QStringList& names)
{
    d->send(Method::DeleteUser, Request, Payload() << strlist{names});
}

void KZProtocolResolver::lanDeleteUserResponse(bool ok, const QStringList& names)
{
    d->send(Method::DeleteUser, Reply, Payload() << strlist{names} << flag8{ok});
}

void KZProtocolResolverPrivate::decodeDeleteUser(uchar flag, Reader& r)
{
    const QStringList names = r.strlist();
    if (flag == Request)
        fire(cb.onLanDeleteUserCB, names);
    else if (flag == Reply) {
        const bool ok = r.flag8();
        fire(cb.onLanDeleteUserResultCB, ok, names);
    }
}

// UpdateClient: request strz s1..s6, flag8 b1, flag8 b2 | reply the same, flag8 ok
void KZProtocolResolver::lanUpdateClient(const QString& s1, const QString& s2, const QString& s3,
                                         const QString& s4, const QString& s5, const QString& s6,
                                         bool b1, bool b2)
{
    d->send(Method::UpdateClient, Request, clientPayload(s1, s2, s3, s4, s5, s6, b1, b2));
}

void KZProtocolResolver::lanUpdateClientResponse(bool ok, const QString& s1, const QString& s2,
                                                 const QString& s3, const QString& s4,
                                                 const QString& s5, const QString& s6, bool b1,
                                                 bool b2)
{
    d->send(Method::UpdateClient, Reply,
            clientPayload(s1, s2, s3, s4, s5, s6, b1, b2) << flag8{ok});
}

void KZProtocolResolverPrivate::decodeUpdateClient(uchar flag, Reader& r)
{
    QString s[6];
    for (QString& one : s) one = r.strz();
    const bool b1 = r.flag8();
    const bool b2 = r.flag8();
    if (flag == Request)
        fire(cb.onLanUpdateClientCB, s[0], s[1], s[2], s[3], s[4], s[5], b1, b2);
    else if (flag == Reply) {
        const bool ok = r.flag8();
        fire(cb.onLanUpdateClientResultCB, ok, s[0], s[1], s[2], s[3], s[4], s[5], b1, b2);
    }
}

// UpdateUserPermission: request strz name, i32 permission | reply the same, flag8 ok
void KZProtocolResolver::lanUpdateUserPermission(const QString& name, int permission)
{
    d->send(Method::UpdateUserPermission, Request, Payload() << strz{name} << i32{permission});
}

void KZProtocolResolver::lanUpdateUserPermissionResponse(bool ok, const QString& name,
                                                         int permission)
{
    d->send(Method::UpdateUserPermission, Reply,
            Payload() << strz{name} << i32{permission} << flag8{ok});
}

void KZProtocolResolverPrivate::decodeUpdateUserPermission(uchar flag, Reader& r)
{
    const QString name = r.strz();
    const int permission = r.i32();
    if (flag == Request)
        fire(cb.onLanUpdateUserPermissionCB, name, permission);
    else if (flag == Reply) {
        const bool ok = r.flag8();
        fire(cb.onLanUpdateUserPermissionResultCB, ok, name, permission);
    }
}

// UpdateUserGroupPermission: request strz name, groupmap groups | reply the same, flag8 ok
void KZProtocolResolver::lanUpdateUserGroupPermission(const QString& name,
                                                      const QMap<QString, QStringList>& groups)
{
    d->send(Method::UpdateUserGroupPermission, Request,
            Payload() << strz{name} << groupmap{groups});
}

void KZProtocolResolver::lanUpdateUserGroupPermissionResponse(
    bool ok, const QString& name, const QMap<QString, QStringList>& groups)
{
    d->send(Method::UpdateUserGroupPermission, Reply,
            Payload() << strz{name} << groupmap{groups} << flag8{ok});
}

void KZProtocolResolverPrivate::decodeUpdateUserGroupPermission(uchar flag, Reader& r)
{
    const QString name = r.strz();
    const QMap<QString, QStringList> groups = r.groupmap();
    if (flag == Request)
        fire(cb.onLanUpdateUserGroupPermissionCB, name, groups);
    else if (flag == Reply) {
        const bool ok = r.flag8();
        fire(cb.onLanUpdateUserGroupPermissionResultCB, ok, name, groups);
    }
}

// UserInfo: request u16 n1 { strz lv1, u16 n2 { strz lv2, u16 n3 { user_info
//           without its group names } } } (no reply)
void KZProtocolResolver::lanUserInfo(const QList<user_info>& users)
{
    Payload p(2 + 48 * users.size());
    writeGroupTree(p, users, &user_info::lv1Group, &user_info::lv2Group, &user_info::name,
                   [](Payload& out, const user_info& u) { writeUser(out, u, GroupNames::InTree); });
    d->send(Method::UserInfo, Request, p);
}

void KZProtocolResolverPrivate::decodeUserInfo(uchar flag, Reader& r)
{
    if (flag != Request) return;
    QList<user_info> users;
    r.forEach(r.count16(), [&] {
        const QString lv1 = r.strz();
        r.forEach(r.count16(), [&] {
            const QString lv2 = r.strz();
            r.forEach(r.count16(), [&] {
                users.append(readUser(r, GroupNames::InTree));
                users.last().lv1Group = lv1;
                users.last().lv2Group = lv2;
            });
        });
    });
    fire(cb.onLanUserInfoCB, users);
}
