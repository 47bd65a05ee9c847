// The server's storage on SQLite, or on PostgreSQL with KZ_TEST_DB: the
// migration from an older schema, each family's tables, transactions, and
// passwords kept only as salted hashes.
#include "storage.h"
#include "testdb.h"

#include <gtest/gtest.h>

#include <QDateTime>
#include <QFile>

namespace {

class LanStorage : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(dir.isValid());
        location = freshDatabase(dir);
        QString error;
        ASSERT_TRUE(s.open(location, &error)) << qPrintable(error);
    }

    user_info userNamed(const QString& name, const QString& lv1 = QStringLiteral("plant"),
                        const QString& lv2 = QStringLiteral("hall 1"))
    {
        user_info u;
        u.name = name;
        u.text2 = name.toUpper();
        u.lv1Group = lv1;
        u.lv2Group = lv2;
        return u;
    }

    QStringList userNames()
    {
        QStringList names;
        for (const user_info& u : s.users()) names.append(u.name);
        return names;
    }

    QTemporaryDir dir;
    QString location;
    Storage s;
};

TEST_F(LanStorage, MigratesAnOlderSchemaAndKeepsItsData)
{
    s.close();
    location = freshDatabase(dir, QStringLiteral("old.sqlite"));
    Storage old;
    QString error;
    ASSERT_TRUE(old.open(location, &error, 1)) << qPrintable(error);
    EXPECT_EQ(old.schemaVersion(), 1);
    ASSERT_TRUE(
        old.addUser(userNamed(QStringLiteral("anna")), Passwords::hash(QStringLiteral("pw"))));
    EXPECT_FALSE(
        old.addEvent(QString(), QStringLiteral("login"), QStringLiteral("anna"), QString()))
        << "version 1 has no event log";
    old.close();

    ASSERT_TRUE(s.open(location, &error)) << qPrintable(error);
    EXPECT_EQ(s.schemaVersion(), Storage::kSchemaVersion);
    EXPECT_EQ(userNames(), QStringList{QStringLiteral("anna")});
    EXPECT_TRUE(Passwords::verify(QStringLiteral("pw"), s.passwordOf(QStringLiteral("anna"))));
    EXPECT_TRUE(s.addEvent(QString(), QStringLiteral("login"), QStringLiteral("anna"), QString()));
    // Opening again migrates nothing and loses nothing.
    s.close();
    ASSERT_TRUE(s.open(location, &error)) << qPrintable(error);
    EXPECT_EQ(s.events(QString(), QString(), QString()).size(), 1);

    // A database newer than the server is refused, not damaged.
    s.close();
    ASSERT_TRUE(
        rawExec(location, {QStringLiteral("INSERT INTO schema_version (version) VALUES (99)")}));
    EXPECT_FALSE(s.open(location, &error));
    EXPECT_TRUE(error.contains(QLatin1String("99"))) << qPrintable(error);
}

TEST_F(LanStorage, Users)
{
    ASSERT_TRUE(s.addUser(userNamed(QStringLiteral("bert")), Passwords::hash(QStringLiteral("b"))));
    ASSERT_TRUE(s.addUser(userNamed(QStringLiteral("anna")), Passwords::hash(QStringLiteral("a"))));
    EXPECT_FALSE(s.addUser(userNamed(QStringLiteral("anna")), Passwords::hash(QStringLiteral("x"))))
        << "names are unique";
    EXPECT_FALSE(s.addUser(userNamed(QString()), Passwords::hash(QStringLiteral("x"))));
    EXPECT_EQ(userNames(), (QStringList{QStringLiteral("anna"), QStringLiteral("bert")}));

    user_info anna = userNamed(QStringLiteral("anna"), QStringLiteral("office"), QString());
    anna.text2 = QStringLiteral("Anna K.");
    anna.flag = true;
    EXPECT_TRUE(s.updateUser(anna));
    EXPECT_TRUE(s.setUserPermission(QStringLiteral("anna"), 0x1234));
    const QMap<QString, QStringList> visible{{QStringLiteral("plant"), {QStringLiteral("hall 1")}}};
    EXPECT_TRUE(s.setUserGroupPermission(QStringLiteral("anna"), visible));
    const user_info stored = *s.user(QStringLiteral("anna"));
    EXPECT_EQ(stored.text2, QStringLiteral("Anna K."));
    EXPECT_TRUE(stored.flag);
    EXPECT_EQ(stored.lv1Group, QStringLiteral("office"));
    EXPECT_EQ(stored.permission, 0x1234);
    EXPECT_EQ(stored.groupPermission, visible);
    EXPECT_FALSE(s.setUserPermission(QStringLiteral("nobody"), 1));

    EXPECT_TRUE(s.moveUsers({QStringLiteral("anna"), QStringLiteral("bert")},
                            QStringLiteral("site"), QStringLiteral("b2")));
    EXPECT_EQ(s.user(QStringLiteral("bert"))->lv2Group, QStringLiteral("b2"));
    EXPECT_FALSE(s.moveUsers({QStringLiteral("anna"), QStringLiteral("nobody")},
                             QStringLiteral("x"), QStringLiteral("y")));
    EXPECT_EQ(s.user(QStringLiteral("anna"))->lv1Group, QStringLiteral("site")) << "all or nothing";

    EXPECT_FALSE(s.deleteUsers({QStringLiteral("anna"), QStringLiteral("nobody")}));
    EXPECT_EQ(s.userCount(), 2) << "all or nothing";
    EXPECT_TRUE(s.deleteUsers({QStringLiteral("anna")}));
    EXPECT_EQ(userNames(), QStringList{QStringLiteral("bert")});
}

TEST_F(LanStorage, PasswordsAreSaltedHashesAndAWrongNameLooksLikeAWrongPassword)
{
    const QString secret = QStringLiteral("correct-horse-7");
    ASSERT_TRUE(s.addUser(userNamed(QStringLiteral("anna")), Passwords::hash(secret)));
    ASSERT_TRUE(s.addUser(userNamed(QStringLiteral("bert")), Passwords::hash(secret)));

    QStringList rows;
    ASSERT_TRUE(rawExec(location, {QStringLiteral("SELECT * FROM users")}, &rows));
    ASSERT_EQ(rows.size(), 2);
    for (const QString& row : rows) EXPECT_FALSE(row.contains(secret)) << qPrintable(row);
    if (!usingPostgres()) {
        for (const QString& file : {location, location + QStringLiteral("-wal")}) {
            QFile f(file);
            if (!f.open(QIODevice::ReadOnly)) continue;
            EXPECT_FALSE(f.readAll().contains(secret.toUtf8()));
        }
    }
    const PasswordHash a = s.passwordOf(QStringLiteral("anna"));
    const PasswordHash b = s.passwordOf(QStringLiteral("bert"));
    EXPECT_NE(a.salt, b.salt);
    EXPECT_NE(a.hash, b.hash) << "the same password, salted differently";
    EXPECT_EQ(a.iterations, Passwords::kIterations);

    EXPECT_TRUE(Passwords::verify(secret, a));
    EXPECT_FALSE(Passwords::verify(secret + QLatin1Char('x'), a));
    EXPECT_FALSE(Passwords::verify(secret.left(secret.size() - 1), a));
    const PasswordHash none = s.passwordOf(QStringLiteral("nobody"));
    EXPECT_TRUE(none.isNull());
    EXPECT_FALSE(Passwords::verify(secret, none));
    EXPECT_FALSE(Passwords::verify(QString(), none));

    // A changed password replaces the old one.
    ASSERT_TRUE(s.setPassword(QStringLiteral("anna"), Passwords::hash(QStringLiteral("new"))));
    EXPECT_FALSE(Passwords::verify(secret, s.passwordOf(QStringLiteral("anna"))));
    EXPECT_TRUE(Passwords::verify(QStringLiteral("new"), s.passwordOf(QStringLiteral("anna"))));
    // What a login brings: the cipher's padding after the password.
    EXPECT_EQ(Passwords::withoutPadding(QStringLiteral("new") + QString(13, QChar(13))),
              QStringLiteral("new"));
}

TEST_F(LanStorage, ATransactionCommitsTogetherOrNotAtAll)
{
    {
        Storage::Transaction t(s);
        ASSERT_TRUE(
            s.addUser(userNamed(QStringLiteral("anna")), Passwords::hash(QStringLiteral("a"))));
        ASSERT_TRUE(s.setPrice(QStringLiteral("rose.dst"), 1.5));
        // Not committed: both are rolled back.
    }
    EXPECT_EQ(s.userCount(), 0);
    EXPECT_TRUE(s.prices().isEmpty());
    {
        Storage::Transaction t(s);
        ASSERT_TRUE(s.setPrice(QStringLiteral("rose.dst"), 1.5));
        EXPECT_FALSE(s.deletePrices({QStringLiteral("missing.dst")}));
        EXPECT_FALSE(t.commit()) << "a failed step fails the whole transaction";
    }
    EXPECT_TRUE(s.prices().isEmpty());
    {
        Storage::Transaction t(s);
        ASSERT_TRUE(s.setPrice(QStringLiteral("rose.dst"), 1.5));
        ASSERT_TRUE(s.setPrice(QStringLiteral("tulip.dst"), 2.25));
        EXPECT_TRUE(t.commit());
    }
    EXPECT_EQ(s.prices().size(), 2);
    // Reopened, the committed data is there.
    s.close();
    QString error;
    ASSERT_TRUE(s.open(location, &error));
    EXPECT_EQ(s.prices().value(QStringLiteral("tulip.dst")), 2.25);
}

TEST_F(LanStorage, GroupsOperatorsAndPermissions)
{
    ASSERT_TRUE(s.addGroups(
        {QStringLiteral("plant"), QStringLiteral("office")},
        {{QStringLiteral("plant"), {QStringLiteral("hall 1"), QStringLiteral("hall 2")}}}));
    ASSERT_TRUE(s.addGroups({QStringLiteral("plant")},
                            {{QStringLiteral("plant"), {QStringLiteral("hall 3")}}}));
    ASSERT_TRUE(
        s.sortItems(QString(), QString(), {QStringLiteral("office"), QStringLiteral("plant")}));
    ASSERT_TRUE(s.sortItems(
        QStringLiteral("plant"), QString(),
        {QStringLiteral("hall 3"), QStringLiteral("hall 1"), QStringLiteral("hall 2")}));
    const auto tree = s.groups();
    ASSERT_EQ(tree.size(), 2);
    EXPECT_EQ(tree[0].first, QStringLiteral("office"));
    EXPECT_EQ(tree[1].second, (QStringList{QStringLiteral("hall 3"), QStringLiteral("hall 1"),
                                           QStringLiteral("hall 2")}));

    operator_user op;
    op.name = QStringLiteral("op1");
    op.text2 = QStringLiteral("Olga");
    ASSERT_TRUE(s.addOperator(op));
    EXPECT_FALSE(s.addOperator(op));
    op.text5 = QStringLiteral("night shift");
    op.flagB = true;
    ASSERT_TRUE(s.updateOperator(op));
    op.name = QStringLiteral("op0");
    ASSERT_TRUE(s.addOperator(op));
    EXPECT_TRUE(s.moveOperators({QStringLiteral("op1")}, QStringLiteral("plant"),
                                QStringLiteral("hall 1")));
    const QList<operator_user> ops = s.operators();
    ASSERT_EQ(ops.size(), 2);
    EXPECT_EQ(ops[1].name, QStringLiteral("op1")) << "ordered by group, then name";
    EXPECT_EQ(ops[1].text5, QStringLiteral("night shift"));
    EXPECT_TRUE(ops[1].flagB);
    EXPECT_TRUE(s.deleteOperators({QStringLiteral("op0")}));
    EXPECT_FALSE(s.deleteOperators({QStringLiteral("op0")}));

    ASSERT_TRUE(
        s.setPermission(QStringLiteral("anna"), QStringLiteral("plant"), QString(), 0xFFF80001u));
    ASSERT_TRUE(s.setPermission(QStringLiteral("anna"), QStringLiteral("plant"), QString(), 0x7u));
    ASSERT_TRUE(s.setPermission(QStringLiteral("bert"), QStringLiteral("plant"),
                                QStringLiteral("hall 1"), 0x80000000u));
    const QList<mac_user_power> bert = s.permissions({QStringLiteral("bert")});
    ASSERT_EQ(bert.size(), 1);
    EXPECT_EQ(bert[0].power.word(), 0x80000000u) << "all 32 bits survive";
    EXPECT_EQ(s.permissions({}).size(), 2);
    EXPECT_EQ(s.permissions({QStringLiteral("anna")})[0].power.word(), 0x7u);
    EXPECT_TRUE(s.deletePermissions(QStringLiteral("plant"), QString()));
    EXPECT_EQ(s.permissions({}).size(), 1);
}

TEST_F(LanStorage, MachinesPlansAndStops)
{
    mac_info m;
    m.mac = QStringLiteral("KZ-1");
    m.text2 = QStringLiteral("Embroidery 1");
    m.code = 200;
    m.value7 = -5;
    m.lv1Group = QStringLiteral("plant");
    bool added = false;
    ASSERT_TRUE(s.putMachine(m, &added));
    EXPECT_TRUE(added);
    m.text4 = QStringLiteral("v2");
    ASSERT_TRUE(s.putMachine(m, &added));
    EXPECT_FALSE(added);
    EXPECT_TRUE(s.renameMachine(QStringLiteral("KZ-1"), QStringLiteral("Line A")));
    EXPECT_FALSE(s.renameMachine(QStringLiteral("KZ-9"), QStringLiteral("x")));
    const mac_info stored = *s.machine(QStringLiteral("KZ-1"));
    EXPECT_EQ(stored.text2, QStringLiteral("Line A"));
    EXPECT_EQ(stored.code, 200);
    EXPECT_EQ(stored.value7, -5);
    EXPECT_EQ(stored.text4, QStringLiteral("v2"));
    EXPECT_TRUE(
        s.moveMachines({QStringLiteral("KZ-1")}, QStringLiteral("site"), QStringLiteral("b")));
    EXPECT_EQ(s.machines().value(0).lv2Group, QStringLiteral("b"));
    EXPECT_TRUE(s.deleteMachines({QStringLiteral("KZ-1")}));
    EXPECT_TRUE(s.machines().isEmpty());

    ASSERT_TRUE(s.putPlan({QStringLiteral("2024-05-06"), QStringLiteral("rose.dst"),
                           QStringLiteral("KZ-1"), 40, 1, QStringLiteral("anna")}));
    ASSERT_TRUE(s.putPlan({QStringLiteral("2024-05-06"), QStringLiteral("rose.dst"),
                           QStringLiteral("KZ-1"), 45, 2, QStringLiteral("anna")}));
    ASSERT_TRUE(s.putPlan({QStringLiteral("2024-05-07"), QStringLiteral("tulip.dst"),
                           QStringLiteral("KZ-2"), 5, 0, QStringLiteral("bert")}));
    EXPECT_EQ(s.plans().size(), 2) << "one plan per date, file and machine";
    EXPECT_EQ(s.plans(QStringLiteral("2024-05-06")).value(0).quantity, 45);
    EXPECT_EQ(s.planDates(),
              (QStringList{QStringLiteral("2024-05-06"), QStringLiteral("2024-05-07")}));
    EXPECT_TRUE(s.deletePlan(QStringLiteral("2024-05-07"), QStringLiteral("tulip.dst"),
                             QStringLiteral("KZ-2")));
    EXPECT_FALSE(s.deletePlan(QStringLiteral("2024-05-07"), QStringLiteral("tulip.dst"),
                              QStringLiteral("KZ-2")));

    ASSERT_TRUE(s.putWorkshopPlan({QStringLiteral("W1"),
                                   QStringLiteral("week 19"),
                                   QStringLiteral("2024-05-06"),
                                   QString(),
                                   {{QStringLiteral("KZ-1"), 3}},
                                   1}));
    ASSERT_TRUE(s.putWorkshopPlan({QStringLiteral("W1"),
                                   QStringLiteral("week 20"),
                                   QStringLiteral("2024-05-13"),
                                   QStringLiteral("rush"),
                                   {{QStringLiteral("KZ-2"), 4}},
                                   2},
                                  QStringLiteral("week 19")));
    const QList<WorkshopPlan> workshop = s.workshopPlans(QStringLiteral("W1"));
    ASSERT_EQ(workshop.size(), 1) << "renamed, not copied";
    EXPECT_EQ(workshop[0].quantities.value(QStringLiteral("KZ-2")), 4);
    EXPECT_TRUE(s.deleteWorkshopPlan(QStringLiteral("W1"), QStringLiteral("week 20")));

    const QMap<int, QList<QVariant>> stops{
        {1, {QStringLiteral("12:00"), QStringLiteral("12:30"), 0.5}}};
    const int id = s.putShutItem({0,
                                  QStringLiteral("2024-05-06"),
                                  QStringLiteral("lunch"),
                                  stops,
                                  {QStringLiteral("KZ-1")}});
    ASSERT_GT(id, 0);
    const int id2 = s.putShutItem({0, QStringLiteral("2024-05-06"), QStringLiteral("tea"), {}, {}});
    EXPECT_EQ(id2, id + 1);
    const QList<ShutItem> items = s.shutItems();
    ASSERT_EQ(items.size(), 2);
    EXPECT_EQ(items[0].stops.value(1).value(2).toDouble(), 0.5);
    EXPECT_EQ(items[0].stops.value(1).value(1).toString(), QStringLiteral("12:30"));
    EXPECT_EQ(items[0].names, QStringList{QStringLiteral("KZ-1")});
    EXPECT_TRUE(s.deleteShutItem(id));
    EXPECT_EQ(s.deleteShutItemsOn(QStringLiteral("2024-05-06")), 1);

    oee_worktime_item day;
    day.first = QStringLiteral("08:00");
    day.second = QStringLiteral("16:00");
    day.amount = 7.5;
    ASSERT_TRUE(s.setWorkTimes(QStringLiteral("2024-05-06"), {{1, day}, {2, day}}));
    ASSERT_TRUE(s.setWorkTimes(QStringLiteral("2024-05-06"), {{3, day}}));
    EXPECT_EQ(s.workTimes(QStringLiteral("2024-05-06")).keys(), QList<int>{3});
    EXPECT_EQ(s.workTimes(QStringLiteral("2024-05-06")).value(3).amount, 7.5);
    EXPECT_TRUE(s.deleteWorkTimes(QStringLiteral("2024-05-06")));
    EXPECT_TRUE(s.workTimes(QStringLiteral("2024-05-06")).isEmpty());
    EXPECT_TRUE(s.setOutStops({{1, QStringLiteral("maintenance")}}));
}

TEST_F(LanStorage, FilesPricesAndTheEventLog)
{
    ASSERT_TRUE(s.putFile({QStringLiteral("KZ-1"), QStringLiteral("rose.dst"), 5,
                           QStringLiteral("ab"), QStringLiteral("t"), QStringLiteral("anna")}));
    ASSERT_TRUE(s.putFile({QString(), QStringLiteral("logo.dst"), 7, QStringLiteral("cd"),
                           QStringLiteral("t"), QStringLiteral("anna")}));
    EXPECT_EQ(s.files(QStringLiteral("KZ-1")).value(0).size, 5);
    EXPECT_EQ(s.files(QString()).value(0).name, QStringLiteral("logo.dst"));
    EXPECT_EQ(s.allFiles().size(), 2);
    EXPECT_TRUE(
        s.renameFile(QStringLiteral("KZ-1"), QStringLiteral("rose.dst"), QStringLiteral("r.dst")));
    EXPECT_FALSE(
        s.renameFile(QStringLiteral("KZ-1"), QStringLiteral("rose.dst"), QStringLiteral("x.dst")));
    EXPECT_TRUE(s.deleteFiles(QStringLiteral("KZ-1"), {QStringLiteral("r.dst")}));
    EXPECT_TRUE(s.files(QStringLiteral("KZ-1")).isEmpty());

    ASSERT_TRUE(s.setPrice(QStringLiteral("rose.dst"), 12.5));
    ASSERT_TRUE(s.setPrice(QStringLiteral("rose.dst"), 0.1));
    EXPECT_TRUE(s.hasPrice(QStringLiteral("rose.dst")));
    EXPECT_EQ(s.prices().value(QStringLiteral("rose.dst")), 0.1);
    EXPECT_FALSE(s.setPrice(QString(), 1));
    EXPECT_TRUE(s.deletePrices({QStringLiteral("rose.dst")}));
    EXPECT_FALSE(s.hasPrice(QStringLiteral("rose.dst")));

    ASSERT_TRUE(s.addEvent(QStringLiteral("KZ-1"), QStringLiteral("file received"),
                           QStringLiteral("anna"), QStringLiteral("rose.dst")));
    ASSERT_TRUE(s.addEvent(QStringLiteral("KZ-2"), QStringLiteral("work log"),
                           QStringLiteral("bert"), QString()));
    const QString today = QDateTime::currentDateTimeUtc().toString(QStringLiteral("yyyy-MM-dd"));
    const QList<StoredEvent> kz1 = s.events(QStringLiteral("KZ-1"), today, today);
    ASSERT_EQ(kz1.size(), 1) << "the whole of the end day counts";
    EXPECT_EQ(kz1[0].text, QStringLiteral("rose.dst"));
    EXPECT_TRUE(kz1[0].at.startsWith(today));
    EXPECT_EQ(s.events(QString(), today, today).size(), 2);
    EXPECT_TRUE(
        s.events(QString(), QStringLiteral("2000-01-01"), QStringLiteral("2000-01-02")).isEmpty());
    EXPECT_EQ(s.events(QString(), QString(), QString(), 1).size(), 1) << "limited";
}

// A damaged page in the middle of the price table: the start-up check finds
// it, and a read that meets it is a failure, not a short table.
TEST_F(LanStorage, ADamagedPageIsFoundAndAReadThatMeetsItFails)
{
    if (usingPostgres()) GTEST_SKIP() << "PostgreSQL checks its own pages";
    QString problem;
    EXPECT_TRUE(s.checkIntegrity(&problem)) << qPrintable(problem);
    {
        Storage::Transaction t(s);
        for (int i = 0; i < 30000; ++i)
            ASSERT_TRUE(s.setPrice(QStringLiteral("file-%1.dst").arg(i, 5, 10, QLatin1Char('0')),
                                   i / 100.0));
        ASSERT_TRUE(t.commit());
    }
    s.close(); // the write-ahead log goes into the file
    {
        QFile f(location);
        ASSERT_TRUE(f.open(QIODevice::ReadWrite));
        const qint64 pages = f.size() / 4096;
        ASSERT_GT(pages, 100);
        ASSERT_TRUE(f.seek((pages / 2) * 4096)); // a leaf of the prices, by far the largest table
        f.write(QByteArray(4096, '\xA5'));
    }
    QString error;
    ASSERT_TRUE(s.open(location, &error)) << qPrintable(error);
    EXPECT_FALSE(s.checkIntegrity(&problem));
    EXPECT_FALSE(problem.isEmpty());
    s.takeReadFailure();
    const QMap<QString, double> prices = s.prices();
    EXPECT_TRUE(s.takeReadFailure()) << prices.size() << " of 30000 prices read, as if all";
    EXPECT_FALSE(s.takeReadFailure()) << "taken once";
}

} // namespace

// The event log keeps its cap (the newest rows), and the file usage that
// quotas are checked against sums a user's and a machine's files.
TEST_F(LanStorage, TheEventLogKeepsItsCapAndUsageSumsTheFiles)
{
    s.setEventLimits(100, 0);
    for (int i = 0; i < 300; ++i)
        ASSERT_TRUE(
            s.addEvent(QString(), QStringLiteral("login refused"), QString(), QString::number(i)));
    const QList<StoredEvent> kept = s.events(QString(), QString(), QString(), 1000);
    EXPECT_GE(kept.size(), 100);
    EXPECT_LT(kept.size(), 100 + 64);
    EXPECT_EQ(kept.last().text, QStringLiteral("299"));

    const QString at = QStringLiteral("2024-01-01T00:00:00Z");
    ASSERT_TRUE(s.putFile(
        {QStringLiteral("KZ-1"), QStringLiteral("a"), 10, QString(), at, QStringLiteral("ann")}));
    ASSERT_TRUE(s.putFile(
        {QStringLiteral("KZ-1"), QStringLiteral("b"), 20, QString(), at, QStringLiteral("bob")}));
    ASSERT_TRUE(s.putFile(
        {QStringLiteral("KZ-2"), QStringLiteral("c"), 40, QString(), at, QStringLiteral("ann")}));
    const struct
    {
        Storage::Usage got;
        int files;
        qint64 bytes;
    } rows[] = {
        {s.usageOfUser(QStringLiteral("ann")), 2, 50},
        {s.usageOfUser(QStringLiteral("bob")), 1, 20},
        {s.usageOfUser(QStringLiteral("eve")), 0, 0},
        {s.usageOfMachine(QStringLiteral("KZ-1")), 2, 30},
        {s.usageOfMachine(QStringLiteral("KZ-3")), 0, 0},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.got.files, row.files);
        EXPECT_EQ(row.got.bytes, row.bytes);
    }
}
