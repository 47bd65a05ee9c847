// Users: every message through two resolvers, the exact bytes where a fault
// made alike in encoder and decoder would pass a round trip (flag order and
// inversion, the grouped user list), and decoding of hand-built and cut
// payloads.
#include "callback_log.h"

#include <climits>
#include <functional>

using namespace kztest;
using R = KZProtocolResolver;

namespace {

using Users =
    Catchers<&R::setLanAddUserCB, &R::setLanAddUserResultCB, &R::setLanDeleteUserCB,
             &R::setLanDeleteUserResultCB, &R::setLanUpdateClientCB, &R::setLanUpdateClientResultCB,
             &R::setLanUpdateUserPermissionCB, &R::setLanUpdateUserPermissionResultCB,
             &R::setLanUpdateUserGroupPermissionCB, &R::setLanUpdateUserGroupPermissionResultCB,
             &R::setLanUserInfoCB>;

const QString kName = QStringLiteral("alice"), kText2 = QString::fromUtf8("Zo\xC3\xAB"),
              kText3 = QStringLiteral("t3"), kLv1 = QStringLiteral("Plant A"),
              kLv2 = QStringLiteral("Line 1"), kEmpty;
const QStringList kNames{QStringLiteral("a"), QString(), QStringLiteral("c")};
const QMap<QString, QStringList> kGroups{
    {QStringLiteral("B"), {}}, {QStringLiteral("A"), {QStringLiteral("x"), QStringLiteral("y")}}};

user_info user(const QString& name, const QString& lv1, const QString& lv2,
               const QString& text2 = QString())
{
    user_info u;
    u.name = name;
    u.text2 = text2;
    u.lv1Group = lv1;
    u.lv2Group = lv2;
    return u;
}

user_info fullUser()
{
    user_info u = user(kName, kLv1, kLv2, kText2);
    u.text3 = kText3;
    u.permission = -5;
    u.flag = true;
    u.groupPermission = kGroups;
    return u;
}

} // namespace

TEST(Users, EveryMessageRoundTrips)
{
    const user_info u = fullUser();
    for (bool flag : {true, false}) {
        roundTrip<Users, &R::setLanAddUserCB, &R::setLanAddUserResultCB>(
            "AddUser", [&](R& r) { r.lanAddUser(kName, kText2, kText3, kLv1, kLv2, flag); }, kName,
            kText2, kText3, kLv1, kLv2, flag);
    }
    roundTrip<Users, &R::setLanAddUserResultCB, &R::setLanAddUserCB>(
        "AddUserResult", [&](R& r) { r.lanAddUserResult(u); }, u);
    roundTrip<Users, &R::setLanDeleteUserCB, &R::setLanDeleteUserResultCB>(
        "DeleteUser", [&](R& r) { r.lanDeleteUser(kNames); }, kNames);
    roundTrip<Users, &R::setLanDeleteUserResultCB, &R::setLanDeleteUserCB>(
        "DeleteUserResponse", [&](R& r) { r.lanDeleteUserResponse(false, kNames); }, false, kNames);
    const QString s[6] = {QStringLiteral("s1"), QStringLiteral("s2"), QStringLiteral("s3"),
                          QStringLiteral("s4"), QStringLiteral("s5"), QStringLiteral("s6")};
    roundTrip<Users, &R::setLanUpdateClientCB, &R::setLanUpdateClientResultCB>(
        "UpdateClient",
        [&](R& r) { r.lanUpdateClient(s[0], s[1], s[2], s[3], s[4], s[5], false, true); }, s[0],
        s[1], s[2], s[3], s[4], s[5], false, true);
    for (const auto& f : {std::make_tuple(true, false, true), std::make_tuple(false, true, true)}) {
        const bool ok = std::get<0>(f), b1 = std::get<1>(f), b2 = std::get<2>(f);
        roundTrip<Users, &R::setLanUpdateClientResultCB, &R::setLanUpdateClientCB>(
            "UpdateClientResponse",
            [&](R& r) {
                r.lanUpdateClientResponse(ok, s[0], s[1], s[2], s[3], s[4], s[5], b1, b2);
            },
            ok, s[0], s[1], s[2], s[3], s[4], s[5], b1, b2);
    }
    roundTrip<Users, &R::setLanUpdateUserPermissionCB, &R::setLanUpdateUserPermissionResultCB>(
        "UpdateUserPermission", [&](R& r) { r.lanUpdateUserPermission(kName, INT_MIN); }, kName,
        INT_MIN);
    roundTrip<Users, &R::setLanUpdateUserPermissionResultCB, &R::setLanUpdateUserPermissionCB>(
        "UpdateUserPermissionResponse",
        [&](R& r) { r.lanUpdateUserPermissionResponse(true, kName, 0x7FFFFFFF); }, true, kName,
        0x7FFFFFFF);
    roundTrip<Users, &R::setLanUpdateUserGroupPermissionCB,
              &R::setLanUpdateUserGroupPermissionResultCB>(
        "UpdateUserGroupPermission", [&](R& r) { r.lanUpdateUserGroupPermission(kName, kGroups); },
        kName, kGroups);
    roundTrip<Users, &R::setLanUpdateUserGroupPermissionResultCB,
              &R::setLanUpdateUserGroupPermissionCB>(
        "UpdateUserGroupPermissionResponse",
        [&](R& r) { r.lanUpdateUserGroupPermissionResponse(false, kName, kGroups); }, false, kName,
        kGroups);
    // The list comes back flat, group by group, every record with its groups.
    const QList<user_info> users{fullUser(), user(QStringLiteral("b"), kLv1, kLv2),
                                 user(QStringLiteral("c"), QString(), QString())};
    roundTrip<Users, &R::setLanUserInfoCB, nullptr>(
        "UserInfo", [&](R& r) { r.lanUserInfo(users); }, users);
    roundTrip<Users, &R::setLanUserInfoCB, nullptr>(
        "UserInfo empty", [&](R& r) { r.lanUserInfo({}); }, QList<user_info>());
}

TEST(Users, PayloadBytes)
{
    const QString n = QStringLiteral("n"), a = QStringLiteral("a"), b = QStringLiteral("b");
    const struct
    {
        std::function<void(R&)> send;
        const char* bytes;
    } cases[] = {
        {[&](R& r) { r.lanAddUser(n, kEmpty, kEmpty, a, b, true); }, "6e 00 00 00 61 00 62 00 00"},
        {[&](R& r) { r.lanAddUser(n, kEmpty, kEmpty, a, b, false); }, "6e 00 00 00 61 00 62 00 01"},
        {[&](R& r) { r.lanDeleteUserResponse(true, {}); }, "00 00 00"},
        {[&](R& r) { r.lanDeleteUserResponse(false, {n}); }, "01 00 6e 00 01"},
        {[&](R& r) { r.lanUpdateUserPermissionResponse(true, n, 0x01020304); },
         "6e 00 04 03 02 01 00"},
        {[&](R& r) { r.lanUpdateClientResponse(true, n, n, n, n, n, n, false, true); },
         "6e 00 6e 00 6e 00 6e 00 6e 00 6e 00 01 00 00"},
        {[&](R& r) {
             r.lanUpdateUserGroupPermissionResponse(true, n, {{a, {b}}});
         },
         "6e 00 01 00 61 00 01 00 62 00 00"},
        // The record as stored: groups inline, then flag, permission, group map; no ok.
        {[&](R& r) {
             user_info u = user(n, a, b);
             u.permission = 2;
             u.groupPermission = {{a, {}}};
             r.lanAddUserResult(u);
         },
         "6e 00 00 00 61 00 62 00 01 02 00 00 00 01 00 61 00 00 00"},
    };
    for (const auto& c : cases) EXPECT_EQ(payloadHex(c.send), QString::fromLatin1(c.bytes));
}

TEST(Users, UserInfoGroupsInFirstAppearanceOrder)
{
    const QString A = QStringLiteral("A"), B = QStringLiteral("B"), x = QStringLiteral("x"),
                  y = QStringLiteral("y"), z = QStringLiteral("z");
    // A/x, B/y, A/z interleave; a second u1 in A/x is dropped (the first wins),
    // u1 in B/y is another group pair and stays.
    const QList<user_info> in{user(QStringLiteral("u1"), A, x), user(QStringLiteral("u2"), B, y),
                              user(QStringLiteral("u3"), A, z),
                              user(QStringLiteral("u1"), A, x, QStringLiteral("dup")),
                              user(QStringLiteral("u1"), B, y)};
    const char* entry = "00 00 01 00 00 00 00 00 00"; // text2, text3, flag false, i32 0, no groups
    const QString expected =
        QStringLiteral("02 00 41 00 02 00 78 00 01 00 75 31 00 %1 7a 00 01 00 75 33 "
                       "00 %1 42 00 01 00 79 00 02 00 75 32 00 %1 75 31 00 %1")
            .arg(QString::fromLatin1(entry));
    EXPECT_EQ(payloadHex([&](R& r) { r.lanUserInfo(in); }), expected);
    EXPECT_EQ(payloadHex([&](R& r) { r.lanUserInfo({}); }), QStringLiteral("00 00"));

    CallLog log;
    Wire w(&log);
    Users::attach(w.receiver);
    w.sender.lanUserInfo(in);
    w.deliver();
    expectOnly<&R::setLanUserInfoCB>(log, QList<user_info>{in[0], in[2], in[1], in[4]});
}

TEST(Users, DecodesHandBuiltAndCutPayloads)
{
    // A reply's ok is true only for a 0 byte.
    expectOnly<&R::setLanDeleteUserResultCB>(
        dispatchBytes<Users>(unhex("01 11 1b 00 01 00 61 00 02 00")), false,
        QStringList{QStringLiteral("a")});
    // A negative count is an empty list; the message still arrives.
    expectOnly<&R::setLanUserInfoCB>(dispatchBytes<Users>(unhex("00 11 35 00 ff ff 00")),
                                     QList<user_info>());
    // The list stops where the data stops: three users announced, the second cut in its name.
    const QByteArray listed = unhex("00 11 35 00 01 00 41 00 01 00 78 00 03 00"
                                    "75 31 00 00 00 00 07 00 00 00 00 00"
                                    "75");
    user_info first = user(QStringLiteral("u1"), QStringLiteral("A"), QStringLiteral("x"));
    first.flag = true;
    first.permission = 7;
    // A flag past the end of the data reads as false.
    user_info cut = user(QStringLiteral("u"), QStringLiteral("A"), QStringLiteral("x"));
    cut.flag = false;
    expectOnly<&R::setLanUserInfoCB>(dispatchBytes<Users>(listed), QList<user_info>{first, cut});
    expectOnly<&R::setLanUserInfoCB>(dispatchBytes<Users>(listed.left(listed.size() - 1)),
                                     QList<user_info>{first});
    // A permission cut after two of its four bytes reads as 0.
    expectOnly<&R::setLanUpdateUserPermissionCB>(
        dispatchBytes<Users>(unhex("00 11 18 00 6e 00 05 00")), QStringLiteral("n"), 0);
}
