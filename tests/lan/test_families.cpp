// The families that kzlan-client has no sub-command for, through the
// library against the real server: groups, machines, operators,
// permissions, plans, workshop plans, planned stops and work time, OEE
// figures, the rest of the users and prices. Each row sends one request and
// checks the message that answers it; the rows run in order on one server,
// so later rows see what earlier ones stored. A second client, logged in
// beside, must receive the lists the server pushes after a change.
#include "lan.h"

#include <gtest/gtest.h>

#include <QDate>
#include <QSignalSpy>

#include <functional>
#include <memory>

using namespace lan;

namespace {

using Args = QList<QVariant>;

struct Exchange
{
    const char* what;
    std::function<void(KZProtocolResolver&)> send;
    std::function<QSignalSpy*(KZConnection*)> answer; ///< the signal that answers it
    std::function<bool(const Args&)> check;
};

#define ANSWER(signal) [](KZConnection* c) { return new QSignalSpy(c, &KZConnection::signal); }

template <class T>
T at(const Args& a, int i)
{
    return a.value(i).value<T>();
}

mac_info machine(const char* mac, const char* lv1, const char* lv2)
{
    mac_info m;
    m.mac = QString::fromLatin1(mac);
    m.text2 = QStringLiteral("embroidery");
    m.code = 3;
    m.text4 = QStringLiteral("v2.1");
    m.lv1Group = QString::fromLatin1(lv1);
    m.lv2Group = QString::fromLatin1(lv2);
    m.value7 = 12;
    return m;
}

const QString kDate = QStringLiteral("2024-03-05");
const QString kHall1 = QStringLiteral("Hall 1"), kLineA = QStringLiteral("Line A");
const QString kMac = QStringLiteral("KZ-0001");

/// A plan row as the server sends it: date, file, machine, quantity, n, author.
QStringList planRow(const Args& a, int listAt, int row)
{
    QStringList out;
    for (const QVariant& v : at<QList<QVariant>>(a, listAt).value(row).toList())
        out << v.toString();
    return out;
}

} // namespace

TEST(LanFamilies, EveryStoredFamilyThroughTheLibrary)
{
    Server server;
    ASSERT_TRUE(server.start());

    // Before the login every request is refused.
    Peer stranger;
    ASSERT_TRUE(stranger.connectTo(server));
    QSignalSpy refused(&stranger.conn, &KZConnection::deleteUserResult);
    stranger.lan.lanDeleteUser({QStringLiteral("admin")});
    ASSERT_TRUE(waitFor([&] { return refused.count() > 0; }));
    EXPECT_FALSE(refused.first().value(0).toBool());

    Peer peer, observer;
    ASSERT_TRUE(peer.connectTo(server) && observer.connectTo(server));
    ASSERT_TRUE(peer.login() && observer.login());
    QSignalSpy newMacs(&observer.conn, &KZConnection::addNewMacResult);
    QSignalSpy operatorLists(&observer.conn, &KZConnection::operatorUserInfo);
    ASSERT_TRUE(waitFor([&] { return observer.userLists > 0 && observer.macLists > 0; }));
    const int userListsBefore = observer.userLists, macListsBefore = observer.macLists;

    int shutId = 0;
    const KZProtocolResolver::StopMap lunch{
        {1, {QStringLiteral("12:00"), QStringLiteral("12:30"), 0.5}}};
    const Exchange rows[] = {
        // groups
        {"AddGroup",
         [](KZProtocolResolver& r) {
             r.lanAddGroup({kHall1, QStringLiteral("Hall 2")},
                           {{kHall1, {kLineA, QStringLiteral("Line B")}}});
         },
         ANSWER(addGroupResult), [](const Args&) { return true; }},
        // machines: registered by a MacInfo, then edited, moved, deleted
        {"MacInfo",
         [](KZProtocolResolver& r) {
             r.lanMacInfo(
                 {machine("KZ-0001", "Hall 1", "Line A"), machine("KZ-0002", "Hall 1", "Line B")});
         },
         ANSWER(macInfoResult), [](const Args&) { return true; }},
        {"EditMac", [](KZProtocolResolver& r) { r.lanEditMac(kMac, QStringLiteral("Tajima 6")); },
         ANSWER(macInfo),
         [](const Args& a) {
             const QList<mac_info> macs = at<QList<mac_info>>(a, 0);
             return macs.size() == 2 && macs.value(0).mac == kMac &&
                    macs.value(0).text2 == QStringLiteral("Tajima 6") && macs.value(0).code == 3;
         }},
        {"MoveMacToGroup",
         [](KZProtocolResolver& r) {
             r.lanMoveMacToGroup({QStringLiteral("KZ-0002")}, QStringLiteral("Hall 2"),
                                 QStringLiteral("Line C"));
         },
         ANSWER(moveMacToGroupResult), [](const Args& a) { return a[0].toBool(); }},
        {"DeleteMac", [](KZProtocolResolver& r) { r.lanDeleteMac({QStringLiteral("KZ-0002")}); },
         ANSWER(deleteMacResult), [](const Args& a) { return a[0].toBool(); }},
        {"DeleteMac unknown",
         [](KZProtocolResolver& r) { r.lanDeleteMac({QStringLiteral("KZ-9")}); },
         ANSWER(deleteMacResult), [](const Args& a) { return !a[0].toBool(); }},
        // users beyond the command line
        {"AddUser",
         [](KZProtocolResolver& r) {
             r.lanAddUser(QStringLiteral("bob"), QStringLiteral("Bob Baker"),
                          QStringLiteral("pw-1"), kHall1, kLineA, true);
         },
         ANSWER(addUserResult),
         [](const Args& a) {
             const user_info u = at<user_info>(a, 0);
             return u.name == QStringLiteral("bob") && u.flag && u.text3.isEmpty();
         }},
        {"AddUser taken",
         [](KZProtocolResolver& r) {
             r.lanAddUser(QStringLiteral("bob"), QString(), QStringLiteral("x"), kHall1, kLineA,
                          false);
         },
         ANSWER(addUserResult), [](const Args& a) { return at<user_info>(a, 0).name.isEmpty(); }},
        {"UpdateUserPermission",
         [](KZProtocolResolver& r) { r.lanUpdateUserPermission(QStringLiteral("bob"), 15); },
         ANSWER(updateUserPermissionResult), [](const Args& a) { return a[0].toBool(); }},
        {"UpdateUserGroupPermission",
         [](KZProtocolResolver& r) {
             r.lanUpdateUserGroupPermission(QStringLiteral("bob"), {{kHall1, {kLineA}}});
         },
         ANSWER(updateUserGroupPermissionResult), [](const Args& a) { return a[0].toBool(); }},
        {"UpdateClient (new password)",
         [](KZProtocolResolver& r) {
             r.lanUpdateClient(QStringLiteral("bob"), QStringLiteral("Bob Baker"),
                               QStringLiteral("pw-2"), kHall1, kLineA, QString(), true, false);
         },
         ANSWER(updateClientResult), [](const Args& a) { return a[0].toBool(); }},
        // operators
        {"AddOperatorUser",
         [](KZProtocolResolver& r) {
             r.lanAddOperatorUser(QStringLiteral("op-7"), QStringLiteral("Olga"),
                                  QStringLiteral("early"), QStringLiteral("4711"), QString());
         },
         ANSWER(addOperatorUserResult), [](const Args& a) { return a[0].toBool(); }},
        {"UpdateOperator",
         [](KZProtocolResolver& r) {
             r.lanUpdateOperator(QStringLiteral("op-7"), QStringLiteral("Olga"),
                                 QStringLiteral("late"), QStringLiteral("4711"), QString(), true,
                                 false);
         },
         ANSWER(updateOperatorResult), [](const Args& a) { return a[0].toBool(); }},
        {"MoveOperatorToGroup",
         [](KZProtocolResolver& r) {
             r.lanMoveOperatorToGroup({QStringLiteral("op-7")}, kHall1, kLineA);
         },
         ANSWER(moveOperatorToGroupResult), [](const Args& a) { return a[0].toBool(); }},
        // permissions: (user, group) entries, answered with the user's entries
        {"AddPermission",
         [](KZProtocolResolver& r) { r.lanAddPermission({kHall1}, QStringLiteral("bob"), 0x7); },
         ANSWER(setPermissionResult),
         [](const Args& a) {
             const auto powers = at<QMap<QString, fctp_user2_power>>(a, 2);
             return a[0].toBool() && powers.value(kHall1).word() == 0x7;
         }},
        {"EditPermission",
         [](KZProtocolResolver& r) {
             r.lanEditPermission({{kHall1, {kLineA}}}, QStringLiteral("bob"), 0xFFF80001u);
         },
         ANSWER(setPermissionResult),
         [](const Args& a) {
             const auto powers = at<QMap<QString, fctp_user2_power>>(a, 2);
             return a[0].toBool() &&
                    powers.value(kHall1 + QStringLiteral("/Line A")).word() == 0xFFF80001u;
         }},
        {"QueryPermission",
         [](KZProtocolResolver& r) { r.lanQueryPermission({QStringLiteral("bob")}); },
         ANSWER(queryPermissionResult),
         [](const Args& a) { return at<QList<mac_user_power>>(a, 0).size() == 2; }},
        {"DelPermission",
         [](KZProtocolResolver& r) {
             r.lanDelPermission({{kHall1, {}}});
         },
         ANSWER(setPermissionResult), [](const Args& a) { return a[0].toBool(); }},
        // production plans: add, edit and delete answer with the date's plans
        {"AddPlan",
         [](KZProtocolResolver& r) {
             r.lanAddPlan(kDate, QStringLiteral("rose.dst"), {{kMac, 120}}, 1);
         },
         ANSWER(getDatePlanResult),
         [](const Args& a) {
             return a[0].toString() == kDate &&
                    planRow(a, 1, 0) == QStringList{kDate,
                                                    QStringLiteral("rose.dst"),
                                                    kMac,
                                                    QStringLiteral("120"),
                                                    QStringLiteral("1"),
                                                    QStringLiteral("admin")};
         }},
        {"EditPlan",
         [](KZProtocolResolver& r) {
             r.lanEditPlan(kDate, QStringLiteral("rose.dst"), kMac, 150, 2);
         },
         ANSWER(getDatePlanResult),
         [](const Args& a) { return planRow(a, 1, 0).value(3) == QStringLiteral("150"); }},
        {"InitPlan", [](KZProtocolResolver& r) { r.lanInitPlan(); }, ANSWER(initPlanResult),
         [](const Args& a) {
             return at<QStringList>(a, 0) == QStringList{kDate} &&
                    at<QList<QVariant>>(a, 1).size() == 1;
         }},
        // planned stops and work time, and the OEE figures built on them
        {"AddPlanShutItem",
         [&lunch](KZProtocolResolver& r) {
             r.lanAddPlanShutItem(kDate, QStringLiteral("lunch"), lunch, {kMac});
         },
         ANSWER(addPlanShutItemResult),
         [&shutId](const Args& a) {
             shutId = a[2].toInt();
             return a[0].toBool() && a[1].toBool() && shutId > 0;
         }},
        {"EditPlanWorkTime",
         [](KZProtocolResolver& r) {
             r.lanEditPlanWorkTime(kDate, {{1, oee_worktime_item{7.5, QStringLiteral("08:00"),
                                                                 QStringLiteral("16:00")}}});
         },
         ANSWER(editPlanWorkTimeResult), [](const Args& a) { return a[0].toBool(); }},
        {"QueryDateOEEData",
         [](KZProtocolResolver& r) {
             const QDate d = QDate::fromString(kDate, Qt::ISODate);
             r.lanQueryDateOEEData(d, d.addDays(1), 0);
         },
         ANSWER(queryDateOEEDataResult),
         [](const Args& a) {
             const QList<QVariant> days = at<QList<QVariant>>(a, 1);
             const QVariantList first = days.value(0).toList();
             return days.size() == 2 && first.value(4).toInt() == 150 &&
                    first.value(5).toDouble() == 7.5;
         }},
        {"DelPlanShutItem",
         [&shutId](KZProtocolResolver& r) { r.lanDelPlanShutItem(QString::number(shutId)); },
         ANSWER(delPlanShutItemResult), [](const Args& a) { return a[0].toBool(); }},
        {"DelPlanShutItem again",
         [&shutId](KZProtocolResolver& r) { r.lanDelPlanShutItem(QString::number(shutId)); },
         ANSWER(delPlanShutItemResult), [](const Args& a) { return !a[0].toBool(); }},
        {"DelPlan",
         [](KZProtocolResolver& r) { r.lanDelPlan(kDate, QStringLiteral("rose.dst"), kMac); },
         ANSWER(getDatePlanResult),
         [](const Args& a) { return at<QList<QVariant>>(a, 1).isEmpty(); }},
        // workshop plans
        {"WorkshopAddPlan",
         [](KZProtocolResolver& r) {
             r.lanWorkshopAddPlan(QStringLiteral("W1"), QStringLiteral("caps"), kDate, {{kMac, 40}},
                                  3);
         },
         ANSWER(workshopQueryPlanResult),
         [](const Args& a) { return at<QList<QVariant>>(a, 1).size() == 1; }},
        // prices beyond set and list
        {"AddFilePrices",
         [](KZProtocolResolver& r) {
             r.lanAddFilePrices(
                 {{QStringLiteral("rose.dst"), 12.5}, {QStringLiteral("lily.dst"), 8}});
         },
         ANSWER(addFilePricesResult), [](const Args& a) { return a[0].toBool(); }},
        {"UpdateFilePrice",
         [](KZProtocolResolver& r) {
             r.lanUpdateFilePrice(QStringLiteral("rose.dst"), QStringLiteral("12.5"),
                                  QStringLiteral("13"));
         },
         ANSWER(updateFilePriceResult), [](const Args& a) { return a[0].toBool(); }},
        {"UpdateFilePrice stale",
         [](KZProtocolResolver& r) {
             r.lanUpdateFilePrice(QStringLiteral("rose.dst"), QStringLiteral("12.5"),
                                  QStringLiteral("14"));
         },
         ANSWER(updateFilePriceResult), [](const Args& a) { return !a[0].toBool(); }},
        {"DeleteFilePrice",
         [](KZProtocolResolver& r) { r.lanDeleteFilePrice({QStringLiteral("lily.dst")}); },
         ANSWER(deleteFilePriceResult), [](const Args& a) { return a[0].toBool(); }},
        {"QueryFilePrice",
         [](KZProtocolResolver& r) {
             r.lanQueryFilePrice(QString(), QString(), QString(),
                                 {QStringLiteral("rose.dst"), QStringLiteral("lily.dst")});
         },
         ANSWER(queryFilePriceResult),
         [](const Args& a) { return a[0].toString() == QStringLiteral("13"); }},
        // and the operator goes again
        {"DeleteOperatorUser",
         [](KZProtocolResolver& r) { r.lanDeleteOperatorUser({QStringLiteral("op-7")}); },
         ANSWER(deleteOperatorUserResult), [](const Args& a) { return a[0].toBool(); }},
    };
    for (const Exchange& x : rows) {
        SCOPED_TRACE(x.what);
        std::unique_ptr<QSignalSpy> spy(x.answer(&peer.conn));
        x.send(peer.lan);
        ASSERT_TRUE(waitFor([&] { return spy->count() > 0; })) << "no answer to " << x.what;
        EXPECT_TRUE(x.check(spy->first())) << x.what;
    }

    // The observer was told of every change to users, machines and operators.
    EXPECT_TRUE(waitFor([&] {
        return observer.userLists > userListsBefore && observer.macLists > macListsBefore &&
               operatorLists.count() >= 3 && newMacs.count() == 2;
    })) << observer.userLists
        << " " << observer.macLists << " " << operatorLists.count() << " " << newMacs.count();
    QStringList names;
    for (const user_info& u : observer.users) names << u.name;
    EXPECT_TRUE(names.contains(QStringLiteral("bob")));

    // The new password holds, the old one no longer.
    Peer bob;
    ASSERT_TRUE(bob.connectTo(server));
    EXPECT_TRUE(bob.login(QStringLiteral("bob"), QStringLiteral("pw-2")));
    Peer old;
    ASSERT_TRUE(old.connectTo(server));
    EXPECT_FALSE(old.login(QStringLiteral("bob"), QStringLiteral("pw-1")));
}
