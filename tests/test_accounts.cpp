// Accounts and session: users, groups, operators and permissions, logout.
// One row per message direction, then what a row cannot show: the grouped
// listings, the permission word, and hand-built or cut payloads.
#include "rows.h"

using namespace kztest;
using R = KZProtocolResolver;
using kz::GroupMap;

namespace {

const QString a = QStringLiteral("a"), b = QStringLiteral("b"), c = QStringLiteral("c"),
              d = QStringLiteral("d"), e = QStringLiteral("e"), f = QStringLiteral("f"),
              x = QStringLiteral("x"), none;
const QStringList ab{a, b};

user_info user(const QString& name, const QString& lv1, const QString& lv2)
{
    user_info u;
    u.name = name;
    u.lv1Group = lv1;
    u.lv2Group = lv2;
    return u;
}

// The fields of a permission word by name, bit 0 first.
std::vector<unsigned> fieldsOf(const fctp_user2_power& p)
{
    return {p.flag0,  p.flag1,  p.flag2,  p.flag3,  p.flag4,  p.flag5,  p.flag6,
            p.flag7,  p.flag8,  p.flag9,  p.flag10, p.flag11, p.flag12, p.flag13,
            p.flag14, p.flag15, p.flag16, p.flag17, p.flag18, p.upper};
}

} // namespace

TEST(Accounts, Messages)
{
    user_info stored = user(a, d, e);
    stored.text2 = b;
    stored.text3 = c;
    stored.permission = 2;
    stored.groupPermission = {{a, {b}}};
    const operator_user op{x, b, none, none, none, false, true};
    const QMap<QString, fctp_user2_power> powers{{x, fctp_user2_power(2)},
                                                 {a, fctp_user2_power(0x80000001)}};
    const QVariantList row{a, 5, true};
    checkRows({
        KZ_ROW(lanLogout(7), "07 00 00 00", LanLogoutCB, 7),
        // users
        KZ_ROW(lanAddUser(a, b, c, d, e, true), "61 00 62 00 63 00 64 00 65 00 00", LanAddUserCB, a,
               b, c, d, e, true),
        KZ_ROW(lanAddUserResult(stored),
               "61 00 62 00 63 00 64 00 65 00 01 02 00 00 00 01 00 61 00 01 00 62 00",
               LanAddUserResultCB, stored),
        KZ_ROW(lanDeleteUser(ab), "02 00 61 00 62 00", LanDeleteUserCB, ab),
        KZ_ROW(lanDeleteUserResponse(false, ab), "02 00 61 00 62 00 01", LanDeleteUserResultCB,
               false, ab),
        KZ_ROW(lanUpdateClient(a, b, c, d, e, f, false, true),
               "61 00 62 00 63 00 64 00 65 00 66 00 01 00", LanUpdateClientCB, a, b, c, d, e, f,
               false, true),
        KZ_ROW(lanUpdateClientResponse(true, a, b, c, d, e, f, false, true),
               "61 00 62 00 63 00 64 00 65 00 66 00 01 00 00", LanUpdateClientResultCB, true, a, b,
               c, d, e, f, false, true),
        KZ_ROW(lanUpdateUserPermission(a, 0x01020304), "61 00 04 03 02 01",
               LanUpdateUserPermissionCB, a, 0x01020304),
        KZ_ROW(lanUpdateUserPermissionResponse(false, a, -2), "61 00 fe ff ff ff 01",
               LanUpdateUserPermissionResultCB, false, a, -2),
        KZ_ROW(lanUpdateUserGroupPermission(a, {{b, {c}}}), "61 00 01 00 62 00 01 00 63 00",
               LanUpdateUserGroupPermissionCB, a, GroupMap{{b, {c}}}),
        KZ_ROW(lanUpdateUserGroupPermissionResponse(true, a, {}), "61 00 00 00 00",
               LanUpdateUserGroupPermissionResultCB, true, a, GroupMap()),
        KZ_ROW(lanUserInfo({user(a, d, e)}),
               "01 00 64 00 01 00 65 00 01 00 61 00 00 00 01 00 00 00 00 00 00", LanUserInfoCB,
               QList<user_info>{user(a, d, e)}),
        // groups
        KZ_ROW(lanAddGroup({b, a}, {{a, {c}}}), "02 00 62 00 00 00 61 00 01 00 63 00",
               LanAddGroupCB, QStringList{b, a}, GroupMap{{a, {c}}, {b, {}}}),
        KZ_ROW(lanAddGroupResponse(), "", LanAddGroupResultCB),
        KZ_ROW(lanRemoveLv1GroupResponse(a), "61 00", LanRemoveLv1GroupResultCB, a),
        KZ_ROW(lanRemoveLv2GroupResponse(a, b), "61 00 62 00", LanRemoveLv2GroupResultCB, a, b),
        KZ_ROW(lanUpdateLv1GroupResponse(a, b), "61 00 62 00", LanUpdateLv1GroupResultCB, a, b),
        KZ_ROW(lanUpdateLv2GroupResponse(a, b, c), "61 00 62 00 63 00", LanUpdateLv2GroupResultCB,
               a, b, c),
        KZ_ROW(lanSortGroupResponse(a, ab), "61 00 02 00 61 00 62 00", LanSortGroupResultCB, a, ab),
        KZ_ROW(lanSortItem(a, b, {c}), "61 00 62 00 01 00 63 00", LanSortItemCB, a, b,
               QStringList{c}),
        KZ_ROW(lanSortItemResponse(false, a, b, {c}), "61 00 62 00 01 00 63 00 01",
               LanSortItemResultCB, false, a, b, QStringList{c}),
        KZ_ROW(lanMoveUserToGroup(ab, c, d), "02 00 61 00 62 00 63 00 64 00", LanMoveUserToGroupCB,
               ab, c, d),
        KZ_ROW(lanMoveUserToGroupResponse(true, ab, c, d), "02 00 61 00 62 00 63 00 64 00 00",
               LanMoveUserToGroupResultCB, true, ab, c, d),
        KZ_ROW(lanMoveMacToGroup(ab, c, d), "02 00 61 00 62 00 63 00 64 00", LanMoveMacToGroupCB,
               ab, c, d),
        KZ_ROW(lanMoveMacToGroupResponse(false, ab, c, d), "02 00 61 00 62 00 63 00 64 00 01",
               LanMoveMacToGroupResultCB, false, ab, c, d),
        KZ_ROW(lanMoveOperatorToGroup(ab, c, d), "02 00 61 00 62 00 63 00 64 00",
               LanMoveOperatorToGroupCB, ab, c, d),
        KZ_ROW(lanMoveOperatorToGroupResponse(true, ab, c, d), "02 00 61 00 62 00 63 00 64 00 00",
               LanMoveOperatorToGroupResultCB, true, ab, c, d),
        // operators: ok ahead of the two flags in AddOperatorUser's reply, last in UpdateOperator's
        KZ_ROW(lanAddOperatorUser(a, b, c, d, e), "61 00 62 00 63 00 64 00 65 00",
               LanAddOperatorUserCB, a, b, c, d, e),
        KZ_ROW(lanAddOperatorUserResponse(true, a, b, c, d, e, true, false),
               "61 00 62 00 63 00 64 00 65 00 00 00 01", LanAddOperatorUserResultCB, true, a, b, c,
               d, e, true, false),
        // Rows travel as five texts, missing items empty.
        KZ_ROW(lanAddOperatorUsers({QVariant(row)}), "01 00 61 00 35 00 74 72 75 65 00 00 00",
               LanAddOperatorUsersCB,
               QList<QVariant>{
                   QVariantList{a, QStringLiteral("5"), QStringLiteral("true"), none, none}}),
        KZ_ROW(lanAddOperatorUsersResponse(false, {}), "00 00 01", LanAddOperatorUsersResultCB,
               false, QList<QVariant>()),
        KZ_ROW(lanUpdateOperator(a, b, c, d, e, false, true), "61 00 62 00 63 00 64 00 65 00 01 00",
               LanUpdateOperatorCB, a, b, c, d, e, false, true),
        KZ_ROW(lanUpdateOperatorResponse(true, a, b, c, d, e, true, false),
               "61 00 62 00 63 00 64 00 65 00 00 01 00", LanUpdateOperatorResultCB, true, a, b, c,
               d, e, true, false),
        KZ_ROW(lanUpdateOperatorUserLoginResponse(a, false), "61 00 01",
               LanUpdateOperatorUserLoginResultCB, a, false),
        KZ_ROW(lanDeleteOperatorUser(ab), "02 00 61 00 62 00", LanDeleteOperatorUserCB, ab),
        KZ_ROW(lanDeleteOperatorUserResponse(true, ab), "02 00 61 00 62 00 00",
               LanDeleteOperatorUserResultCB, true, ab),
        // The list's name replaces the record's own; keys not in the list are not sent.
        KZ_ROW(lanOperatorUserInfo({x}, {{x, op}, {a, op}}), "01 00 78 00 62 00 00 00 00 01 00",
               LanOperatorUserInfoCB, QStringList{x}, QMap<QString, operator_user>{{x, op}}),
        // permissions
        KZ_ROW(lanQueryPermission(ab), "02 00 61 00 62 00", LanQueryPermissionCB, ab),
        KZ_ROW(lanQueryPermissionResult({{a, b, c, fctp_user2_power(0x01020304)}}),
               "01 00 61 00 62 00 63 00 04 03 02 01", LanQueryPermissionResultCB,
               QList<mac_user_power>{{a, b, c, fctp_user2_power(0x01020304)}}),
        KZ_ROW(lanAddPermission({a}, b, 0x0007FFFF), "01 00 61 00 62 00 ff ff 07 00",
               LanAddPermissionCB, QStringList{a}, b, 0x0007FFFFu),
        KZ_ROW(lanEditPermission({{a, {b}}}, c, 0xFFF80000),
               "01 00 61 00 01 00 62 00 63 00 00 00 f8 ff", LanEditPermissionCB, GroupMap{{a, {b}}},
               c, 0xFFF80000u),
        KZ_ROW(lanDelPermission({}), "00 00", LanDelPermissionCB, GroupMap()),
        // One form only: sent with the request flag, taken under either flag.
        KZ_ROW(lanSetPermissionResult(true, b, powers),
               "02 00 61 00 01 00 00 80 78 00 02 00 00 00 62 00 00", LanSetPermissionResultCB, true,
               b, powers)
            .otherFlag(Cb::LanSetPermissionResultCB),
    });
}

TEST(Accounts, UserListGroupsInFirstAppearanceOrder)
{
    const QString A = QStringLiteral("A"), B = QStringLiteral("B"), y = QStringLiteral("y"),
                  z = QStringLiteral("z"), u1 = QStringLiteral("u1");
    // A/x, B/y, A/z interleave; a second u1 in A/x is dropped (the first wins),
    // u1 in B/y is another group pair and stays.
    user_info dup = user(u1, A, x);
    dup.text2 = QStringLiteral("dup");
    const QList<user_info> in{user(u1, A, x), user(QStringLiteral("u2"), B, y),
                              user(QStringLiteral("u3"), A, z), dup, user(u1, B, y)};
    const char* entry = "00 00 01 00 00 00 00 00 00"; // text2, text3, flag false, i32 0, no groups
    const QString expected =
        QStringLiteral("02 00 41 00 02 00 78 00 01 00 75 31 00 %1 7a 00 01 00 75 33 "
                       "00 %1 42 00 01 00 79 00 02 00 75 32 00 %1 75 31 00 %1")
            .arg(QString::fromLatin1(entry));
    const QByteArray body = sentBody([&](R& r) { r.lanUserInfo(in); });
    EXPECT_EQ(hex(body.mid(4, body.size() - 5)), expected);
    EXPECT_EQ(dispatchBody(body),
              calls({arrives<Cb::LanUserInfoCB>(QList<user_info>{in[0], in[2], in[1], in[4]})}));
}

TEST(Accounts, PermissionWordFieldsSitAtTheirBits)
{
    for (int bit = 0; bit < 32; ++bit) {
        const fctp_user2_power p(1u << bit);
        EXPECT_EQ(p.word(), 1u << bit) << bit;
        std::vector<unsigned> expected(20, 0);
        expected[size_t(qMin(bit, 19))] = bit < 19 ? 1 : 1u << (bit - 19);
        EXPECT_EQ(fieldsOf(p), expected) << bit;
    }
}

TEST(Accounts, DecodesHandBuiltAndCutPayloads)
{
    user_info first = user(QStringLiteral("u1"), QStringLiteral("A"), x);
    first.flag = true;
    first.permission = 7;
    // A flag past the end of the data reads as false.
    const user_info cut = user(QStringLiteral("u"), QStringLiteral("A"), x);
    const QByteArray listed = unhex("00 11 35 00 01 00 41 00 01 00 78 00 03 00"
                                    "75 31 00 00 00 00 07 00 00 00 00 00 75");
    const struct
    {
        const char* body;
        Call arrival;
    } cases[] = {
        // A reply's ok is true only for a 0 byte.
        {"01 11 1b 00 01 00 61 00 02 00",
         arrives<Cb::LanDeleteUserResultCB>(false, QStringList{a})},
        {"01 11 1f 00 78 00 ff 00", arrives<Cb::LanUpdateOperatorUserLoginResultCB>(x, false)},
        {"01 11 16 00 61 00 62 00 00 00 05 00",
         arrives<Cb::LanSortItemResultCB>(false, a, b, QStringList())},
        // A negative count is an empty list; the message still arrives.
        {"00 11 35 00 ff ff 00", arrives<Cb::LanUserInfoCB>(QList<user_info>())},
        {"00 11 14 10 00 80 74 00 01",
         arrives<Cb::LanSetPermissionResultCB>(false, QStringLiteral("t"),
                                               QMap<QString, fctp_user2_power>())},
        // A permission cut after two of its four bytes reads as 0.
        {"00 11 18 00 6e 00 05 00", arrives<Cb::LanUpdateUserPermissionCB>(QStringLiteral("n"), 0)},
        // Lists stop where the data stops, with missing texts empty and flags false.
        {"00 11 10 00 03 00 41 00 02 00 78 00 79 00 42 00 05",
         arrives<Cb::LanAddGroupCB>(
             QStringList{QStringLiteral("A"), QStringLiteral("B")},
             GroupMap{{QStringLiteral("A"), {x, QStringLiteral("y")}}, {QStringLiteral("B"), {}}})},
        {"00 11 39 00 05 00 41 00 42",
         arrives<Cb::LanMoveOperatorToGroupCB>(
             QStringList{QStringLiteral("A"), QStringLiteral("B")}, none, none)},
        {"00 11 36 00 02 00 78 00 62",
         arrives<Cb::LanOperatorUserInfoCB>(
             QStringList{x}, QMap<QString, operator_user>{{x, operator_user{x, b, none, none, none,
                                                                            false, false}}})},
        {"01 11 10 10 05 00 61 00 62 00 63 00 ff ff ff ff 64 00 00 00 07",
         arrives<Cb::LanQueryPermissionResultCB>(QList<mac_user_power>{
             {a, b, c, fctp_user2_power(0xFFFFFFFF)}, {d, none, none, fctp_user2_power(0)}})},
    };
    for (const auto& t : cases)
        EXPECT_EQ(dispatchBody(unhex(t.body)), calls({t.arrival})) << t.body;
    EXPECT_EQ(dispatchBody(listed),
              calls({arrives<Cb::LanUserInfoCB>(QList<user_info>{first, cut})}));
    EXPECT_EQ(dispatchBody(listed.left(listed.size() - 1)),
              calls({arrives<Cb::LanUserInfoCB>(QList<user_info>{first})}));
}
