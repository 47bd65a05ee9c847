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
    r.label("name");
    u.name = r.strz();
    r.label("text2");
    u.text2 = r.strz();
    r.label("text3");
    u.text3 = r.strz();
    if (g == GroupNames::InRecord) {
        r.label("lv1Group");
        u.lv1Group = r.strz();
        r.label("lv2Group");
        u.lv2Group = r.strz();
    }
    r.label("flag");
    u.flag = r.flag8();
    r.label("permission");
    u.permission = r.i32();
    r.label("groupPermission");
    u.groupPermission = r.groupmap();
    return u;
}

// user_info with its group names, as AddUser's reply carries it.
void writeUserInRecord(Payload& p, const user_info& u) { writeUser(p, u, GroupNames::InRecord); }
user_info readUserInRecord(Reader& r) { return readUser(r, GroupNames::InRecord); }
using userInRecord = record<user_info, writeUserInRecord, readUserInRecord>;

// AddUser request: strz name, text2, text3, lv1Group, lv2Group, flag8 flag
struct AddUser : Layout<strz, strz, strz, strz, strz, flag8>
{
    static constexpr const char* names[] = {"name",     "text2",    "text3",
                                            "lv1Group", "lv2Group", "flag"};
};

// AddUser reply: user_info with its group names (no success flag)
struct AddUserResult : Layout<userInRecord>
{
    static constexpr const char* names[] = {"user"};
};

// UpdateClient request: strz s1..s6, flag8 b1, flag8 b2; the reply adds flag8 ok
struct UpdateClient : Layout<strz, strz, strz, strz, strz, strz, flag8, flag8>
{
    static constexpr const char* names[] = {"s1", "s2", "s3", "s4", "s5", "s6", "b1", "b2"};
};

// UpdateUserPermission request: strz name, i32 permission; the reply adds flag8 ok
struct UpdateUserPermission : Layout<strz, i32>
{
    static constexpr const char* names[] = {"name", "permission"};
};

// UpdateUserGroupPermission request: strz name, groupmap groups; the reply adds flag8 ok
struct UpdateUserGroupPermission : Layout<strz, groupmap>
{
    static constexpr const char* names[] = {"name", "groups"};
};

} // namespace

void KZProtocolResolver::lanAddUser(const QString& name, const QString& text2, const QString& text3,
                                    const QString& lv1Group, const QString& lv2Group, bool flag)
{
    d->send<AddUser>(Method::AddUser, Request, name, text2, text3, lv1Group, lv2Group, flag);
}

void KZProtocolResolver::lanAddUserResult(const user_info& user)
{
    d->send<AddUserResult>(Method::AddUser, Reply, user);
}

void KZProtocolResolverPrivate::decodeAddUser(uchar flag, Reader& r)
{
    route<AddUser, AddUserResult>(flag, r, cb.onLanAddUserCB, cb.onLanAddUserResultCB);
}

// DeleteUser: request Names | reply WithOk<Names>
void KZProtocolResolver::lanDeleteUser(const QStringList& names)
{
    d->send<Names>(Method::DeleteUser, Request, names);
}

void KZProtocolResolver::lanDeleteUserResponse(bool ok, const QStringList& names)
{
    d->send<WithOk<Names>>(Method::DeleteUser, Reply, ok, names);
}

void KZProtocolResolverPrivate::decodeDeleteUser(uchar flag, Reader& r)
{
    route<Names, WithOk<Names>>(flag, r, cb.onLanDeleteUserCB, cb.onLanDeleteUserResultCB);
}

void KZProtocolResolver::lanUpdateClient(const QString& s1, const QString& s2, const QString& s3,
                                         const QString& s4, const QString& s5, const QString& s6,
                                         bool b1, bool b2)
{
    d->send<UpdateClient>(Method::UpdateClient, Request, s1, s2, s3, s4, s5, s6, b1, b2);
}

void KZProtocolResolver::lanUpdateClientResponse(bool ok, const QString& s1, const QString& s2,
                                                 const QString& s3, const QString& s4,
                                                 const QString& s5, const QString& s6, bool b1,
                                                 bool b2)
{
    d->send<WithOk<UpdateClient>>(Method::UpdateClient, Reply, ok, s1, s2, s3, s4, s5, s6, b1, b2);
}

void KZProtocolResolverPrivate::decodeUpdateClient(uchar flag, Reader& r)
{
    route<UpdateClient, WithOk<UpdateClient>>(flag, r, cb.onLanUpdateClientCB,
                                              cb.onLanUpdateClientResultCB);
}

void KZProtocolResolver::lanUpdateUserPermission(const QString& name, int permission)
{
    d->send<UpdateUserPermission>(Method::UpdateUserPermission, Request, name, permission);
}

void KZProtocolResolver::lanUpdateUserPermissionResponse(bool ok, const QString& name,
                                                         int permission)
{
    d->send<WithOk<UpdateUserPermission>>(Method::UpdateUserPermission, Reply, ok, name,
                                          permission);
}

void KZProtocolResolverPrivate::decodeUpdateUserPermission(uchar flag, Reader& r)
{
    route<UpdateUserPermission, WithOk<UpdateUserPermission>>(
        flag, r, cb.onLanUpdateUserPermissionCB, cb.onLanUpdateUserPermissionResultCB);
}

void KZProtocolResolver::lanUpdateUserGroupPermission(const QString& name,
                                                      const QMap<QString, QStringList>& groups)
{
    d->send<UpdateUserGroupPermission>(Method::UpdateUserGroupPermission, Request, name, groups);
}

void KZProtocolResolver::lanUpdateUserGroupPermissionResponse(
    bool ok, const QString& name, const QMap<QString, QStringList>& groups)
{
    d->send<WithOk<UpdateUserGroupPermission>>(Method::UpdateUserGroupPermission, Reply, ok, name,
                                               groups);
}

void KZProtocolResolverPrivate::decodeUpdateUserGroupPermission(uchar flag, Reader& r)
{
    route<UpdateUserGroupPermission, WithOk<UpdateUserGroupPermission>>(
        flag, r, cb.onLanUpdateUserGroupPermissionCB, cb.onLanUpdateUserGroupPermissionResultCB);
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
    r.label("lv1Count");
    r.forEach(r.count16(), [&] {
        r.label("lv1");
        const QString lv1 = r.strz();
        r.label("lv2Count");
        r.forEach(r.count16(), [&] {
            r.label("lv2");
            const QString lv2 = r.strz();
            r.label("userCount");
            r.forEach(r.count16(), [&] {
                users.append(readUser(r, GroupNames::InTree));
                users.last().lv1Group = lv1;
                users.last().lv2Group = lv2;
            });
        });
    });
    fire(cb.onLanUserInfoCB, users);
}
