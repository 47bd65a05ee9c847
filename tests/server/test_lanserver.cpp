// The server over loopback, with the library as its client: login (the
// admin, a wrong password, a wrong name), the pushed user list, a change
// pushed to a second client, requests before login, a garbage sender, and a
// transfer that is cut off and then sent whole.
#include "kzconnection.h"
#include "lanwire.h"
#include "rights.h"
#include "server.h"
#include "serverlimits.h"
#include "storage.h"
#include "testdb.h"

#include <gtest/gtest.h>

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTcpSocket>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <memory>

namespace {

void ensureApp()
{
    static int argc = 1;
    static char name[] = "test_lanserver";
    static char* argv[] = {name, nullptr};
    static QCoreApplication* app = new QCoreApplication(argc, argv);
    (void)app;
}

using lan::framesOf;
using lan::idle;
using lan::waitFor;

QByteArray md5(const QByteArray& b) { return QCryptographicHash::hash(b, QCryptographicHash::Md5); }

const QString kAdminPassword = QStringLiteral("adm1n-pw");

/// A client: a socket under a KZConnection, with what the server sent.
struct Peer
{
    QTcpSocket socket;
    KZConnection conn{&socket};
    KZProtocolResolver& r = *conn.resolver();
    int loginResults = 0;
    bool loginOk = false;
    int loginCode = -1;
    QList<QList<user_info>> userLists;
    QList<bool> deleteResults;
    int task = 0; ///< as the server numbered the last task
    QList<int> beginStatus;
    QList<int> acknowledged; ///< bytes so far per chunk, -1 for a refused one
    QList<bool> ends;

    /// Connects to `port`, from the loopback address `from` if given.
    explicit Peer(quint16 port, const QHostAddress& from = QHostAddress())
    {
        QObject::connect(&conn, &KZConnection::loginResult, [this](bool ok, int code, bool, bool) {
            ++loginResults;
            loginOk = ok;
            loginCode = code;
        });
        QObject::connect(&conn, &KZConnection::userInfo,
                         [this](const QList<user_info>& users) { userLists.append(users); });
        QObject::connect(&conn, &KZConnection::deleteUserResult,
                         [this](bool ok, const QStringList&) { deleteResults.append(ok); });
        QObject::connect(&conn, &KZConnection::macTsfFileAddTaskUi,
                         [this](bool, const QString&, const QString&, int n, const QString&,
                                const QString&, const QString&) { task = n; });
        QObject::connect(&conn, &KZConnection::macTsfFileBeginResult,
                         [this](int, int status, int) { beginStatus.append(status); });
        QObject::connect(&conn, &KZConnection::macTsfFileContentResult,
                         [this](int, int received) { acknowledged.append(received); });
        QObject::connect(&conn, &KZConnection::macTsfFileEnd,
                         [this](int, const QString&, bool ok) { ends.append(ok); });
        if (!from.isNull()) socket.bind(from);
        socket.connectToHost(QHostAddress::LocalHost, port);
    }
    bool login(const QString& name, const QString& password)
    {
        const int before = loginResults;
        r.lanLogin(name, password);
        return waitFor([&] { return loginResults > before; }) && loginOk;
    }
};

QStringList namesOf(const QList<user_info>& users)
{
    QStringList names;
    for (const user_info& u : users) names.append(u.name);
    return names;
}

/// Another process's hold on the write lock of the SQLite file `file`, for
/// the object's lifetime.
struct WriteLockHeldElsewhere
{
    explicit WriteLockHeldElsewhere(const QString& file)
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), kName);
        db.setDatabaseName(file);
        held = db.open() && QSqlQuery(db).exec(QStringLiteral("BEGIN IMMEDIATE"));
    }
    ~WriteLockHeldElsewhere()
    {
        {
            QSqlDatabase db = QSqlDatabase::database(kName);
            QSqlQuery(db).exec(QStringLiteral("ROLLBACK"));
            db.close();
        }
        QSqlDatabase::removeDatabase(kName);
    }
    static constexpr const char* kName = "holder";
    bool held = false;
};

bool closed(const Peer& p) { return p.socket.state() == QAbstractSocket::UnconnectedState; }

class LanServer : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ensureApp();
        ASSERT_TRUE(dir.isValid());
        QString error;
        ASSERT_TRUE(storage.open(database(), &error)) << qPrintable(error);
        if (storage.passwordOf(QStringLiteral("admin")).isNull()) {
            user_info admin;
            admin.name = QStringLiteral("admin");
            admin.permission = -1; // every right, as the server creates it
            ASSERT_TRUE(storage.addUser(admin, Passwords::hash(kAdminPassword)));
        }
        server =
            std::make_unique<Server>(storage.location(), dir.filePath(QStringLiteral("files")));
        ASSERT_TRUE(server->listen(QHostAddress::LocalHost, 0, &error)) << qPrintable(error);
    }

    QString database() { return freshDatabase(dir); }

    /// An account as an administrator would add it, with `permission`.
    void addUser(const QString& name, const QString& password, qint32 permission)
    {
        user_info u;
        u.name = name;
        u.permission = permission;
        u.lv1Group = QStringLiteral("Plant");
        u.lv2Group = QStringLiteral("Hall 1");
        ASSERT_TRUE(storage.addUser(u, Passwords::hash(password)));
    }

    QTemporaryDir dir;
    Storage storage;
    std::unique_ptr<Server> server;
};

TEST_F(LanServer, LoginPushesTheUserListAndRefusesWithoutSayingWhy)
{
    Peer wrongPassword(server->port());
    EXPECT_FALSE(wrongPassword.login(QStringLiteral("admin"), QStringLiteral("nope")));
    Peer wrongName(server->port());
    EXPECT_FALSE(wrongName.login(QStringLiteral("nobody"), kAdminPassword));
    // One answer for both: nothing tells the name from the password.
    EXPECT_EQ(wrongPassword.loginCode, wrongName.loginCode);
    EXPECT_TRUE(wrongPassword.userLists.isEmpty());
    // Each failure from the address makes the next attempt wait longer
    // before it is checked: the third, after two, waits at least 200 ms.
    QElapsedTimer third;
    third.start();
    EXPECT_FALSE(wrongPassword.login(QStringLiteral("admin"), QStringLiteral("nope2")));
    EXPECT_GE(third.elapsed(), 200);

    Peer admin(server->port());
    ASSERT_TRUE(admin.login(QStringLiteral("admin"), kAdminPassword));
    ASSERT_TRUE(waitFor([&] { return !admin.userLists.isEmpty(); }));
    EXPECT_EQ(namesOf(admin.userLists.last()), QStringList{QStringLiteral("admin")});
}

TEST_F(LanServer, AChangeIsPushedToTheOthersAndNothingIsDoneBeforeLogin)
{
    Peer stranger(server->port());
    ASSERT_TRUE(
        waitFor([&] { return stranger.socket.state() == QAbstractSocket::ConnectedState; }));
    stranger.r.lanDeleteUser({QStringLiteral("admin")});
    ASSERT_TRUE(waitFor([&] { return !stranger.deleteResults.isEmpty(); }));
    EXPECT_FALSE(stranger.deleteResults[0]);
    stranger.r.lanAddUser(QStringLiteral("mallory"), QString(), QStringLiteral("pw"), QString(),
                          QString(), false);

    Peer admin(server->port());
    Peer watcher(server->port());
    ASSERT_TRUE(admin.login(QStringLiteral("admin"), kAdminPassword));
    ASSERT_TRUE(watcher.login(QStringLiteral("admin"), kAdminPassword));
    ASSERT_TRUE(waitFor([&] { return watcher.userLists.size() == 1; }));
    EXPECT_EQ(storage.userCount(), 1) << "nothing was added before login";

    // A new user, whose password is the third string, can log in; the
    // others see the new list.
    user_info added;
    QObject::connect(&admin.conn, &KZConnection::addUserResult,
                     [&](const user_info& u) { added = u; });
    admin.r.lanAddUser(QStringLiteral("carol"), QStringLiteral("Carol"), QStringLiteral("c-pw"),
                       QStringLiteral("plant"), QStringLiteral("hall 1"), true);
    ASSERT_TRUE(waitFor([&] { return watcher.userLists.size() == 2; }));
    EXPECT_EQ(added.name, QStringLiteral("carol"));
    EXPECT_TRUE(added.text3.isEmpty()) << "the password is not echoed";
    EXPECT_EQ(namesOf(watcher.userLists.last()),
              (QStringList{QStringLiteral("admin"), QStringLiteral("carol")}));
    Peer carol(server->port());
    EXPECT_TRUE(carol.login(QStringLiteral("carol"), QStringLiteral("c-pw")));

    admin.r.lanDeleteUser({QStringLiteral("carol")});
    ASSERT_TRUE(waitFor([&] { return watcher.userLists.size() >= 3; }));
    EXPECT_EQ(admin.deleteResults, QList<bool>{true});
    EXPECT_EQ(namesOf(watcher.userLists.last()), QStringList{QStringLiteral("admin")});
}

TEST_F(LanServer, GarbageIsDroppedAndTheServerGoesOn)
{
    QTcpSocket garbage;
    garbage.connectToHost(QHostAddress::LocalHost, server->port());
    ASSERT_TRUE(garbage.waitForConnected(5000));
    QByteArray noise(256 * 1024, '\0');
    quint32 x = 2463534242u;
    for (char& ch : noise) {
        x ^= x << 13;
        x ^= x >> 17;
        x ^= x << 5;
        ch = char(x);
    }
    garbage.write(noise);
    Peer admin(server->port());
    EXPECT_TRUE(admin.login(QStringLiteral("admin"), kAdminPassword));
    EXPECT_EQ(server->clientCount(), 2);
}

TEST_F(LanServer, AnInterruptedTransferLeavesNoFileAndTheRepeatedOneIsKept)
{
    QByteArray file(300 * 1024, '\0');
    for (int i = 0; i < file.size(); ++i) file[i] = char(i * 7 + i / 1000);
    const QString kept = dir.filePath(QStringLiteral("files/machines/KZ-1/rose.dst"));
    const auto announce = [&](Peer& p) {
        p.r.lanMacTsfFileAddTask(true, QStringLiteral("KZ-1"), QStringLiteral("job"),
                                 QStringLiteral("/"), true, {QStringLiteral("rose.dst")});
        p.r.lanMacTsfFileTaskStart();
        p.r.lanMacTsfFileTaskBegin(file.size(), md5(file));
        return waitFor([&] { return !p.beginStatus.isEmpty(); }) && p.beginStatus[0] == 0;
    };
    const auto sendChunk = [&](Peer& p, int i, const QByteArray& digestOverride = QByteArray()) {
        const QByteArray chunk = file.mid(i * 65536, 65536);
        const int before = p.acknowledged.size();
        p.r.lanMacTsfFileContent(p.task, i, i * 65536, chunk.size(),
                                 digestOverride.isEmpty() ? md5(chunk) : digestOverride, chunk);
        return waitFor([&] { return p.acknowledged.size() > before; }) ? p.acknowledged.last() : -2;
    };
    {
        auto cut = std::make_unique<Peer>(server->port());
        ASSERT_TRUE(cut->login(QStringLiteral("admin"), kAdminPassword));
        ASSERT_TRUE(announce(*cut));
        EXPECT_EQ(sendChunk(*cut, 0), 65536);
        EXPECT_EQ(sendChunk(*cut, 1, QByteArray(16, 'x')), -1) << "a chunk whose digest is wrong";
        EXPECT_EQ(sendChunk(*cut, 1), 2 * 65536) << "sent again, taken";
        ASSERT_TRUE(QFile::exists(kept + QStringLiteral(".part")));
        cut->socket.abort();
    }
    ASSERT_TRUE(waitFor([&] { return server->clientCount() == 0; }));
    EXPECT_FALSE(QFile::exists(kept + QStringLiteral(".part")));
    EXPECT_FALSE(QFile::exists(kept));

    Peer whole(server->port());
    ASSERT_TRUE(whole.login(QStringLiteral("admin"), kAdminPassword));
    ASSERT_TRUE(announce(whole));
    for (int i = 0; i * 65536 < file.size(); ++i) ASSERT_GT(sendChunk(whole, i), 0);
    whole.r.lanMacTsfFileClose(whole.task, 5, md5(file));
    ASSERT_TRUE(waitFor([&] { return !whole.ends.isEmpty(); }));
    EXPECT_TRUE(whole.ends[0]);
    QFile f(kept);
    ASSERT_TRUE(f.open(QIODevice::ReadOnly));
    EXPECT_EQ(f.readAll(), file);
    EXPECT_EQ(storage.files(QStringLiteral("KZ-1")).value(0).md5,
              QString::fromLatin1(md5(file).toHex()));
}

TEST_F(LanServer, AClientThatAsksWithoutReadingIsCutOff)
{
    // Each request is answered with a year of daily entries; the client
    // reads none of them.
    const QByteArray frames = framesOf([](KZProtocolResolver& encoder) {
        for (int i = 0; i < 4000; ++i)
            encoder.lanQueryMacStatistic(QStringLiteral("KZ-1"), QStringLiteral("2024-01-01"),
                                         QStringLiteral("2024-12-31"), QString());
    });
    QTcpSocket flood;
    flood.setReadBufferSize(1);
    flood.connectToHost(QHostAddress::LocalHost, server->port());
    ASSERT_TRUE(flood.waitForConnected(5000));
    flood.write(frames);
    ASSERT_TRUE(waitFor([&] { return server->clientCount() == 1; }));
    EXPECT_TRUE(waitFor([&] { return server->clientCount() == 0; }, 30000))
        << "the unread replies would grow without bound";

    Peer admin(server->port());
    EXPECT_TRUE(admin.login(QStringLiteral("admin"), kAdminPassword));
}

// A user with no right but Files tries what a plant's administrator alone
// may do: each request is refused, its refusal carries no stored data, and
// nothing changed. Then what the user may do: their own password.
TEST_F(LanServer, EachRequestNeedsItsRightAndARefusalCarriesNothing)
{
    addUser(QStringLiteral("mallory"), QStringLiteral("m-pw"), Rights::FilesBit);
    addUser(QStringLiteral("bob"), QStringLiteral("b-pw"), Rights::FilesBit);
    ASSERT_TRUE(storage.setPermission(QStringLiteral("admin"), QStringLiteral("KZ-1"), QString(),
                                      0xFFFFFFFFu));
    ASSERT_TRUE(storage.addEvent(QString(), QStringLiteral("login"), QStringLiteral("admin"),
                                 QStringLiteral("from the office")));
    const QString bobs = dir.filePath(QStringLiteral("files/machines/KZ-1/bob.dst"));
    ASSERT_TRUE(QDir().mkpath(QFileInfo(bobs).absolutePath()));
    QFile(bobs).open(QIODevice::WriteOnly);
    ASSERT_TRUE(storage.putFile({QStringLiteral("KZ-1"), QStringLiteral("bob.dst"), 0, QString(),
                                 QString(), QStringLiteral("bob")}));

    struct Attempt
    {
        const char* what;
        std::function<void(KZProtocolResolver&)> send;
        std::function<QSignalSpy*(KZConnection*)> answer;
        std::function<bool(const QList<QVariant>&)> refused; ///< and carries nothing stored
    };
#define ANSWER(signal) [](KZConnection* k) { return new QSignalSpy(k, &KZConnection::signal); }
    const auto saysNo = [](const QList<QVariant>& a) { return !a.value(0).toBool(); };
    const QString adminGroup = QStringLiteral("Administrators");
    const Attempt attempts[] = {
        {"the admin's password",
         [](KZProtocolResolver& r) {
             r.lanUpdateClient(QStringLiteral("admin"), QString(), QStringLiteral("pwned"),
                               QString(), QString(), QString(), false, false);
         },
         ANSWER(updateClientResult), saysNo},
        {"their own permission",
         [](KZProtocolResolver& r) { r.lanUpdateUserPermission(QStringLiteral("mallory"), -1); },
         ANSWER(updateUserPermissionResult), saysNo},
        {"their own groups through UpdateClient",
         [&](KZProtocolResolver& r) {
             r.lanUpdateClient(QStringLiteral("mallory"), QString(), QString(),
                               QStringLiteral("System"), adminGroup, QString(), false, false);
         },
         ANSWER(updateClientResult), saysNo},
        {"the administrators' group",
         [&](KZProtocolResolver& r) {
             r.lanMoveUserToGroup({QStringLiteral("mallory")}, QStringLiteral("System"),
                                  adminGroup);
         },
         ANSWER(moveUserToGroupResult), saysNo},
        {"a price",
         [](KZProtocolResolver& r) {
             r.lanAddFilePrice(QStringLiteral("rose.dst"), QStringLiteral("0.01"));
         },
         ANSWER(addFilePriceResult), saysNo},
        {"deleting a user", [](KZProtocolResolver& r) { r.lanDeleteUser({QStringLiteral("bob")}); },
         ANSWER(deleteUserResult), saysNo},
        {"the event log",
         [](KZProtocolResolver& r) {
             r.lanQueryLog(QString(), 0, QStringLiteral("2000-01-01"), QStringLiteral("2100-01-01"),
                           false, false, false, false, {});
         },
         ANSWER(queryLogResult),
         [](const QList<QVariant>& a) {
             return a.value(0).toString() == QLatin1String("refused");
         }},
        {"the admin's permission table",
         [](KZProtocolResolver& r) {
             r.lanAddPermission({QStringLiteral("KZ-2")}, QStringLiteral("admin"), 1);
         },
         ANSWER(setPermissionResult),
         [](const QList<QVariant>& a) {
             return !a.value(0).toBool() &&
                    a.value(2).value<QMap<QString, fctp_user2_power>>().isEmpty();
         }},
        {"the admin's permission entries",
         [](KZProtocolResolver& r) { r.lanQueryPermission({QStringLiteral("admin")}); },
         ANSWER(queryPermissionResult),
         [](const QList<QVariant>& a) {
             return a.value(0).value<QList<mac_user_power>>().isEmpty();
         }},
        {"another user's file",
         [](KZProtocolResolver& r) {
             r.lanMacTsfFileAddTask(true, QStringLiteral("KZ-1"), QStringLiteral("job"),
                                    QStringLiteral("/"), true, {QStringLiteral("bob.dst")});
         },
         ANSWER(macTsfFileAddTaskUi), saysNo},
    };
#undef ANSWER
    Peer mallory(server->port());
    ASSERT_TRUE(mallory.login(QStringLiteral("mallory"), QStringLiteral("m-pw")));
    for (const Attempt& a : attempts) {
        SCOPED_TRACE(a.what);
        std::unique_ptr<QSignalSpy> spy(a.answer(&mallory.conn));
        a.send(mallory.r);
        ASSERT_TRUE(waitFor([&] { return spy->count() > 0; }));
        EXPECT_TRUE(a.refused(spy->first()));
    }
    const QSignalSpy alarms(&mallory.conn, &KZConnection::queryAlarm2Result);
    EXPECT_EQ(alarms.count(), 0);

    // Nothing changed: the admin logs in with the old password, mallory's
    // permission and group are as they were, bob and his file are there.
    Peer admin(server->port());
    EXPECT_TRUE(admin.login(QStringLiteral("admin"), kAdminPassword));
    const user_info m = storage.user(QStringLiteral("mallory")).value_or(user_info());
    EXPECT_EQ(m.permission, qint32(Rights::FilesBit));
    EXPECT_EQ(m.lv2Group, QStringLiteral("Hall 1"));
    EXPECT_TRUE(storage.user(QStringLiteral("bob")).has_value());
    EXPECT_TRUE(storage.prices().isEmpty());
    EXPECT_TRUE(QFile::exists(bobs));

    // Their own password, with their groups as stored, is theirs to change.
    QSignalSpy changed(&mallory.conn, &KZConnection::updateClientResult);
    mallory.r.lanUpdateClient(QStringLiteral("mallory"), QStringLiteral("Mallory"),
                              QStringLiteral("new-pw"), QStringLiteral("Plant"),
                              QStringLiteral("Hall 1"), QString(), false, false);
    ASSERT_TRUE(waitFor([&] { return changed.count() > 0; }));
    EXPECT_TRUE(changed.first().value(0).toBool());
    Peer again(server->port());
    EXPECT_TRUE(again.login(QStringLiteral("mallory"), QStringLiteral("new-pw")));
}

// Deleting a user ends their sessions; a new password ends the account's
// other sessions; a new permission value applies to open sessions at once;
// the last administrator stays.
TEST_F(LanServer, SessionsFollowTheAccount)
{
    addUser(QStringLiteral("carol"), QStringLiteral("c-pw"), 0);
    addUser(QStringLiteral("dave"), QStringLiteral("d-pw"), Rights::PricesBit);
    Peer admin(server->port()), carol(server->port()), dave1(server->port()), dave2(server->port());
    ASSERT_TRUE(admin.login(QStringLiteral("admin"), kAdminPassword));
    ASSERT_TRUE(carol.login(QStringLiteral("carol"), QStringLiteral("c-pw")));
    ASSERT_TRUE(dave1.login(QStringLiteral("dave"), QStringLiteral("d-pw")));
    ASSERT_TRUE(dave2.login(QStringLiteral("dave"), QStringLiteral("d-pw")));

    admin.r.lanDeleteUser({QStringLiteral("carol")});
    EXPECT_TRUE(waitFor([&] { return closed(carol); })) << "a deleted user's session ends";

    QSignalSpy changed(&dave1.conn, &KZConnection::updateClientResult);
    dave1.r.lanUpdateClient(QStringLiteral("dave"), QString(), QStringLiteral("d-pw2"),
                            QStringLiteral("Plant"), QStringLiteral("Hall 1"), QString(), false,
                            false);
    ASSERT_TRUE(waitFor([&] { return changed.count() > 0; }));
    EXPECT_TRUE(changed.first().value(0).toBool());
    EXPECT_TRUE(waitFor([&] { return closed(dave2); })) << "the other session ends";
    EXPECT_FALSE(closed(dave1)) << "the session that changed its password stays";

    const auto setPrice = [&](Peer& p) {
        QSignalSpy answer(&p.conn, &KZConnection::addFilePriceResult);
        p.r.lanAddFilePrice(QStringLiteral("rose.dst"), QStringLiteral("2.5"));
        return waitFor([&] { return answer.count() > 0; }) && answer.first().value(0).toBool();
    };
    const auto setPermission = [&](const QString& name, qint32 value) {
        QSignalSpy answer(&admin.conn, &KZConnection::updateUserPermissionResult);
        admin.r.lanUpdateUserPermission(name, value);
        return waitFor([&] { return answer.count() > 0; }) && answer.first().value(0).toBool();
    };
    EXPECT_TRUE(setPrice(dave1));
    ASSERT_TRUE(setPermission(QStringLiteral("dave"), 0));
    EXPECT_FALSE(setPrice(dave1)) << "the right is gone without a new login";
    ASSERT_TRUE(setPermission(QStringLiteral("dave"), Rights::PricesBit));
    EXPECT_TRUE(setPrice(dave1));
    EXPECT_FALSE(setPermission(QStringLiteral("admin"), 0)) << "the last administrator stays";

    // The administrator sets dave's password: dave's session ends.
    QSignalSpy set(&admin.conn, &KZConnection::updateClientResult);
    admin.r.lanUpdateClient(QStringLiteral("dave"), QString(), QStringLiteral("d-pw3"),
                            QStringLiteral("Plant"), QStringLiteral("Hall 1"), QString(), false,
                            false);
    ASSERT_TRUE(waitFor([&] { return set.count() > 0; }));
    EXPECT_TRUE(set.first().value(0).toBool());
    EXPECT_TRUE(waitFor([&] { return closed(dave1); }));
    EXPECT_FALSE(closed(admin));
}

// The rights table is the one the documentation shows, and every request
// the server checks has a row (a missing row would mean Admin silently).
TEST(LanRights, TheTableIsTheDocumentedOneAndCoversEveryCheckedRequest)
{
    QFile page(QStringLiteral(KZ_SOURCE_DIR "/docs/server.md"));
    ASSERT_TRUE(page.open(QIODevice::ReadOnly));
    QMap<QString, QString> documented;
    const QRegularExpression row(QStringLiteral("^\\| `(\\w+)` \\| (\\w+) \\|$"),
                                 QRegularExpression::MultilineOption);
    for (auto m = row.globalMatch(QString::fromUtf8(page.readAll())); m.hasNext();) {
        const auto match = m.next();
        documented.insert(match.captured(1), match.captured(2));
    }
    QMap<QString, QString> table;
    for (const Rights::Row& r : Rights::table())
        table.insert(QString::fromLatin1(r.operation), QString::fromLatin1(Rights::nameOf(r.need)));
    EXPECT_EQ(documented, table);

    const QRegularExpression checked(QStringLiteral("allowed\\(c, \"(\\w+)\"\\)"));
    QDir sources(QStringLiteral(KZ_SOURCE_DIR "/tools/kzlan-server"));
    int checks = 0;
    for (const QString& name : sources.entryList({QStringLiteral("*.cpp")})) {
        QFile f(sources.filePath(name));
        ASSERT_TRUE(f.open(QIODevice::ReadOnly));
        for (auto m = checked.globalMatch(QString::fromUtf8(f.readAll())); m.hasNext(); ++checks)
            EXPECT_TRUE(table.contains(m.next().captured(1))) << qPrintable(name);
    }
    EXPECT_GE(checks, table.size());

    // The bits: an administrator has every right; a bit grants its own.
    EXPECT_TRUE(Rights::grants(-1, Rights::Need::Admin));
    EXPECT_FALSE(Rights::grants(0x7FFFFFFE, Rights::Need::Admin));
    EXPECT_TRUE(Rights::grants(Rights::PlansBit, Rights::Need::Plans));
    EXPECT_FALSE(Rights::grants(Rights::PlansBit, Rights::Need::Prices));
    EXPECT_TRUE(Rights::grants(0, Rights::Need::Own));
}

// A record larger than the unread limit, stored before names and texts had
// limits: the user list pushed after a login is larger than the limit, and
// still every login works and gets the list.
TEST_F(LanServer, APushLargerThanTheUnreadLimitLocksNobodyOut)
{
    user_info big;
    big.name = QStringLiteral("big");
    big.text2 = QString(9 * 1024 * 1024, QLatin1Char('x'));
    ASSERT_TRUE(storage.addUser(big, Passwords::hash(QStringLiteral("pw"))));
    for (int i = 0; i < 2; ++i) {
        Peer admin(server->port());
        ASSERT_TRUE(admin.login(QStringLiteral("admin"), kAdminPassword));
        ASSERT_TRUE(waitFor([&] { return !admin.userLists.isEmpty() || closed(admin); }, 20000));
        EXPECT_FALSE(closed(admin));
        ASSERT_EQ(admin.userLists.size(), 1);
        EXPECT_EQ(namesOf(admin.userLists[0]),
                  (QStringList{QStringLiteral("admin"), QStringLiteral("big")}));
    }
}

// 1100 connections from one address that send a byte and never log in fill
// no more than their address's share of the server: a client from the same
// address still logs in, and the limit follows the descriptors the process
// has. (Connections that send nothing at all are the listener's to limit.)
TEST_F(LanServer, ConnectionsThatNeverLogInLockNobodyOut)
{
    EXPECT_EQ(Server::clientLimit(20000), Server::kMaxClients);
    EXPECT_EQ(Server::clientLimit(1024), (1024 - 64) / 3);
    EXPECT_EQ(Server::clientLimit(10), 1);
    EXPECT_LE(server->maxClients(), Server::kMaxClients);

    std::vector<std::unique_ptr<QTcpSocket>> idle;
    for (int i = 0; i < 1100; ++i) {
        idle.push_back(std::make_unique<QTcpSocket>());
        idle.back()->connectToHost(QHostAddress::LocalHost, server->port());
        idle.back()->write("", 1); // past the listener, which sorts by the first byte
    }
    ASSERT_TRUE(waitFor([&] {
        return std::all_of(idle.begin(), idle.end(), [](const auto& s) {
            return s->state() == QAbstractSocket::ConnectedState ||
                   s->state() == QAbstractSocket::UnconnectedState;
        });
    }));
    lan::idle(300); // the server's side of the last ones
    EXPECT_LE(server->clientCount(), Server::kMaxUnauthenticatedPerAddress);
    Peer admin(server->port());
    EXPECT_TRUE(admin.login(QStringLiteral("admin"), kAdminPassword));
}

QStringList* capturedLog = nullptr;

void captureLog(QtMsgType, const QMessageLogContext&, const QString& message)
{
    if (capturedLog) capturedLog->append(message);
}

// Names and texts are checked when they are written: a line break or a
// bidirectional override in a name, a name or full name over its length, a
// file name over 200 bytes are refused at once; what a client sends reaches
// the log with its control characters escaped, so no line can be forged.
TEST_F(LanServer, NamesAndTextsAreCheckedOnWriteAndEscapedInTheLog)
{
    QStringList log;
    capturedLog = &log;
    const QtMessageHandler before = qInstallMessageHandler(captureLog);

    Peer admin(server->port());
    ASSERT_TRUE(admin.login(QStringLiteral("admin"), kAdminPassword));
    struct Row
    {
        const char* what;
        QString name, fullName;
        bool kept;
    };
    const Row rows[] = {
        {"a line break", QStringLiteral("ev\nil"), QString(), false},
        {"a right-to-left override", QStringLiteral("\u202Eexe.txt"), QString(), false},
        {"an escape", QStringLiteral("a\x1b[2Jb"), QString(), false},
        {"65 characters", QString(65, QLatin1Char('n')), QString(), false},
        {"a full name of 1025 characters", QStringLiteral("long"), QString(1025, QLatin1Char('f')),
         false},
        {"64 characters", QString(64, QLatin1Char('n')), QStringLiteral("Nina\tN."), true},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        QSignalSpy added(&admin.conn, &KZConnection::addUserResult);
        admin.r.lanAddUser(row.name, row.fullName, QStringLiteral("pw"), QString(), QString(),
                           false);
        ASSERT_TRUE(waitFor([&] { return added.count() > 0; }));
        EXPECT_EQ(added.first().value(0).value<user_info>().name.isEmpty(), !row.kept);
        EXPECT_EQ(storage.user(row.name).has_value(), row.kept);
    }

    // 200 characters of three bytes each: refused when the task is announced,
    // not when the file is opened.
    QSignalSpy task(&admin.conn, &KZConnection::macTsfFileAddTaskUi);
    admin.r.lanMacTsfFileAddTask(true, QStringLiteral("KZ-1"), QStringLiteral("job"),
                                 QStringLiteral("/"), true, {QString(200, QChar(0x6F22))});
    ASSERT_TRUE(waitFor([&] { return task.count() > 0; }));
    EXPECT_FALSE(task.first().value(0).toBool());

    // A login whose name would forge a line of the log.
    Peer forger(server->port());
    EXPECT_FALSE(forger.login(QStringLiteral("x\nkz.server.auth: 127.0.0.1:1 logged in as admin"),
                              QStringLiteral("pw")));
    qInstallMessageHandler(before);
    capturedLog = nullptr;
    bool escaped = false;
    for (const QString& line : std::as_const(log)) {
        EXPECT_FALSE(line.contains(QLatin1Char('\n'))) << qPrintable(line);
        EXPECT_FALSE(line.contains(QChar(0x202E)));
        escaped = escaped || line.contains(QLatin1String("x\\nkz.server.auth"));
    }
    EXPECT_TRUE(escaped) << qPrintable(log.join(QLatin1Char('|')));
}

} // namespace

// Guessing is throttled where it costs: 20 wrong logins at once from one
// address are checked one at a time and each after a growing wait, not all
// at once; a login from another address goes before them; and attempts
// whose connection closed before their turn are never hashed.
TEST_F(LanServer, GuessesAreThrottledBeforeTheyAreCheckedAndOtherAddressesGoFirst)
{
    std::vector<std::unique_ptr<Peer>> flood;
    for (int i = 0; i < 20; ++i) {
        flood.push_back(std::make_unique<Peer>(server->port()));
        ASSERT_TRUE(flood.back()->socket.waitForConnected(5000));
        flood.back()->r.lanLogin(QStringLiteral("guess%1").arg(i), QStringLiteral("wrong"));
    }
    idle(1000);
    const qint64 checked = server->loginChecks();
    EXPECT_GE(checked, 1);
    EXPECT_LE(checked, 8) << "every guess of the flood was checked at once";

    Peer other(server->port(), QHostAddress(QStringLiteral("127.0.0.2")));
    EXPECT_TRUE(other.login(QStringLiteral("admin"), kAdminPassword));
    EXPECT_LE(server->loginChecks(), checked + 3) << "the other address waited for the flood";

    flood.clear();

    // From a third address, after one failure: five attempts wait their
    // turn, and their connections close before it comes.
    const QHostAddress third(QStringLiteral("127.0.0.3"));
    Peer failed(server->port(), third);
    EXPECT_FALSE(failed.login(QStringLiteral("admin"), QStringLiteral("wrong")));
    const qint64 before = server->loginChecks();
    std::vector<std::unique_ptr<Peer>> gone;
    for (int i = 0; i < 5; ++i) {
        gone.push_back(std::make_unique<Peer>(server->port(), third));
        ASSERT_TRUE(gone.back()->socket.waitForConnected(5000));
        gone.back()->r.lanLogin(QStringLiteral("admin"), QStringLiteral("guess%1").arg(i));
        gone.back()->socket.flush();
    }
    idle(50);
    gone.clear();
    idle(600);
    EXPECT_EQ(server->loginChecks(), before) << "abandoned logins were hashed";
}

// Another process holds the SQLite file's write lock: a request that writes
// is refused after the short busy time-out instead of freezing the server,
// and goes through once the lock is gone.
TEST_F(LanServer, AWriteLockHeldElsewhereRefusesTheRequestInsteadOfFreezing)
{
    if (usingPostgres()) GTEST_SKIP() << "SQLite's file lock";
    addUser(QStringLiteral("ann"), QStringLiteral("pw"), 0);
    Peer admin(server->port());
    ASSERT_TRUE(admin.login(QStringLiteral("admin"), kAdminPassword));
    QList<bool> results;
    QObject::connect(&admin.conn, &KZConnection::updateUserPermissionResult,
                     [&](bool ok, const QString&, int) { results.append(ok); });
    {
        const WriteLockHeldElsewhere lock(database());
        ASSERT_TRUE(lock.held);
        admin.r.lanUpdateUserPermission(QStringLiteral("ann"), 4);
        EXPECT_TRUE(waitFor([&] { return !results.isEmpty(); }, 2500))
            << "the server waited for the lock";
        EXPECT_FALSE(results.value(0, true));
    }
    admin.r.lanUpdateUserPermission(QStringLiteral("ann"), 4);
    ASSERT_TRUE(waitFor([&] { return results.size() == 2; }));
    EXPECT_TRUE(results[1]);
}

// While another process holds the write lock for two seconds and an
// administrator keeps sending changes (each refused after the busy
// time-out), a second client's reads keep being answered at once: the
// changes wait on the writer's thread, not on the event loop.
TEST_F(LanServer, AWriteLockHeldElsewhereDoesNotStallTheOtherClients)
{
    if (usingPostgres()) GTEST_SKIP() << "SQLite's file lock";
    addUser(QStringLiteral("ann"), QStringLiteral("pw"), 0);
    Peer admin(server->port()), probe(server->port());
    ASSERT_TRUE(admin.login(QStringLiteral("admin"), kAdminPassword));
    ASSERT_TRUE(probe.login(QStringLiteral("admin"), kAdminPassword));
    int writes = 0, refused = 0, reads = 0;
    qint64 slowestRead = 0;
    QElapsedTimer readClock;
    QObject::connect(&admin.conn, &KZConnection::updateUserPermissionResult,
                     [&](bool ok, const QString&, int) {
                         ++writes;
                         refused += ok ? 0 : 1;
                         admin.r.lanUpdateUserPermission(QStringLiteral("ann"), writes);
                     });
    QObject::connect(&probe.conn, &KZConnection::queryPermissionResult,
                     [&](const QList<mac_user_power>&) {
                         ++reads;
                         slowestRead = std::max(slowestRead, readClock.elapsed());
                         readClock.start();
                         probe.r.lanQueryPermission({QStringLiteral("ann")});
                     });
    {
        const WriteLockHeldElsewhere lock(database());
        ASSERT_TRUE(lock.held);
        admin.r.lanUpdateUserPermission(QStringLiteral("ann"), 0);
        readClock.start();
        probe.r.lanQueryPermission({QStringLiteral("ann")});
        idle(2000);
    }
    EXPECT_GE(refused, 3) << "the changes were not held up by the lock";
    EXPECT_EQ(refused, writes) << "a change went through the lock";
    EXPECT_GE(reads, 20);
    EXPECT_LT(slowestRead, 100) << "a read waited for a change";
}

// The same with the changes and reads that answer a request from the
// database (prices and work time written; plans, the files of a machine and
// permissions read): while the lock is held, every change waits the busy
// time-out and is refused, and a probe's reads of each kind come back at
// once, in the order they were asked, none of them held up by a change.
TEST_F(LanServer, WhileAWriteWaitsForTheLockEveryKindOfReadIsAnsweredAtOnce)
{
    if (usingPostgres()) GTEST_SKIP() << "SQLite's file lock";
    ServerLimits limits;
    limits.dbBusyTimeoutMs = 300;
    server->setLimits(limits);
    Peer writer(server->port()), probe(server->port());
    ASSERT_TRUE(writer.login(QStringLiteral("admin"), kAdminPassword));
    ASSERT_TRUE(probe.login(QStringLiteral("admin"), kAdminPassword));
    QElapsedTimer clock;
    QList<qint64> refusedAfter; ///< per change, how long it waited; -1: not refused
    qint64 sentAt = 0;
    bool holding = true;
    const auto nextWrite = [&] {
        sentAt = clock.elapsed();
        if (refusedAfter.size() % 2)
            writer.r.lanEditPlanWorkTime(QStringLiteral("2026-03-02"), {});
        else
            writer.r.lanAddFilePrice(QStringLiteral("rose.dst"), QStringLiteral("1.5"));
    };
    const auto written = [&](bool ok) {
        if (!holding) return;
        refusedAfter.append(ok ? -1 : clock.elapsed() - sentAt);
        nextWrite();
    };
    QObject::connect(&writer.conn, &KZConnection::addFilePriceResult,
                     [&](bool ok, const QString&, const QString&) { written(ok); });
    QObject::connect(
        &writer.conn, &KZConnection::editPlanWorkTimeResult,
        [&](bool ok, bool, const QString&, const QMap<int, oee_worktime_item>&) { written(ok); });
    // The probe asks the three kinds in turn, one at a time.
    QStringList answered;
    qint64 askedAt = 0, slowestRead = 0;
    const auto nextRead = [&] {
        askedAt = clock.elapsed();
        switch (answered.size() % 3) {
        case 0:
            return probe.r.lanGetDatePlan(QStringLiteral("2026-03-02"));
        case 1:
            return probe.r.lanMacFiles(QStringLiteral("KZ-1"), QStringLiteral("/"), 0);
        default:
            return probe.r.lanQueryPermission({QStringLiteral("admin")});
        }
    };
    const auto read = [&](const QString& kind) {
        answered.append(kind);
        slowestRead = std::max(slowestRead, clock.elapsed() - askedAt);
        nextRead();
    };
    QObject::connect(
        &probe.conn, &KZConnection::getDatePlanResult,
        [&](const QString&, const QList<QVariant>&) { read(QStringLiteral("plans")); });
    QObject::connect(
        &probe.conn, &KZConnection::macFilesResult,
        [&](const QString&, int, const QStringList&) { read(QStringLiteral("files")); });
    QObject::connect(&probe.conn, &KZConnection::queryPermissionResult,
                     [&](const QList<mac_user_power>&) { read(QStringLiteral("permissions")); });
    {
        const WriteLockHeldElsewhere lock(database());
        ASSERT_TRUE(lock.held);
        clock.start();
        nextWrite();
        nextRead();
        idle(2000);
        holding = false;
    }
    ASSERT_GE(refusedAfter.size(), 4) << "the changes were not answered";
    for (qint64 waited : refusedAfter) {
        EXPECT_GE(waited, 250) << "refused without waiting for the lock";
        EXPECT_LT(waited, 1500) << "waited past the busy time-out";
    }
    EXPECT_GE(answered.size(), 30);
    // A read behind a change would wait its 300 ms; slow builds (sanitizers)
    // take some tens of milliseconds for a read alone.
    EXPECT_LT(slowestRead, 200) << "a read waited for a change";
    for (int i = 0; i < answered.size(); ++i)
        EXPECT_EQ(answered[i], (QStringList{QStringLiteral("plans"), QStringLiteral("files"),
                                            QStringLiteral("permissions")})[i % 3]);
}

// Thirty changes sent at once reach another client as a few pushes of the
// latest list, not thirty.
TEST_F(LanServer, PushesAreCoalesced)
{
    addUser(QStringLiteral("ann"), QStringLiteral("pw"), 0);
    Peer admin(server->port()), watcher(server->port());
    ASSERT_TRUE(admin.login(QStringLiteral("admin"), kAdminPassword));
    ASSERT_TRUE(watcher.login(QStringLiteral("ann"), QStringLiteral("pw")));
    ASSERT_TRUE(waitFor([&] { return watcher.userLists.size() == 1; }));
    int answered = 0;
    QObject::connect(&admin.conn, &KZConnection::updateUserPermissionResult,
                     [&](bool, const QString&, int) { ++answered; });
    for (int i = 1; i <= 30; ++i) admin.r.lanUpdateUserPermission(QStringLiteral("ann"), i * 2);
    ASSERT_TRUE(waitFor([&] { return answered == 30; }));
    ASSERT_TRUE(waitFor([&] {
        const QList<user_info> last = watcher.userLists.last();
        return std::any_of(last.begin(), last.end(),
                           [](const user_info& u) { return u.permission == 60; });
    }));
    EXPECT_LE(watcher.userLists.size(), 1 + 10);
}

// Limits a plant tunes: a logged-in client that sends nothing is
// disconnected after the idle time-out; a user over their file quota is
// refused at the begin of the next transfer.
TEST_F(LanServer, IdleSessionsEndAndFileQuotasHold)
{
    ServerLimits limits;
    limits.idleTimeoutS = 1;
    limits.userQuotaFiles = 1;
    server->setLimits(limits);
    Peer idle(server->port());
    ASSERT_TRUE(idle.login(QStringLiteral("admin"), kAdminPassword));
    EXPECT_TRUE(waitFor([&] { return closed(idle); }, 4000));

    Peer sender(server->port());
    ASSERT_TRUE(sender.login(QStringLiteral("admin"), kAdminPassword));
    const QByteArray file("one small file");
    const auto send = [&](const QString& name) {
        const int begun = sender.beginStatus.size();
        sender.r.lanMacTsfFileAddTask(true, QStringLiteral("KZ-1"), QStringLiteral("job"),
                                      QStringLiteral("/"), true, {name});
        sender.r.lanMacTsfFileTaskBegin(file.size(), md5(file));
        if (!waitFor([&] { return sender.beginStatus.size() > begun; })) return -1;
        if (sender.beginStatus.last() != 0) return sender.beginStatus.last();
        const int ended = sender.ends.size();
        sender.r.lanMacTsfFileContent(sender.task, 0, 0, file.size(), md5(file), file);
        sender.r.lanMacTsfFileClose(sender.task, 1, md5(file));
        return waitFor([&] { return sender.ends.size() > ended; }) && sender.ends.last() ? 0 : -2;
    };
    EXPECT_EQ(send(QStringLiteral("a.dst")), 0);
    EXPECT_EQ(send(QStringLiteral("b.dst")), 1) << "over the quota of one file";
    EXPECT_FALSE(QFile::exists(dir.filePath(QStringLiteral("files/machines/KZ-1/b.dst"))));
}

// The limits' options: defaults in the help, values in their range.
TEST(LanLimits, OptionsTakeNumbersInRangeAndShowTheirDefaults)
{
    ensureApp(); // for the help text
    const struct
    {
        QStringList args;
        bool ok;
        int idle;
    } rows[] = {
        {{}, true, ServerLimits().idleTimeoutS}, {{"--idle-timeout", "90"}, true, 90},
        {{"--idle-timeout", "-1"}, false, 0},    {{"--max-in-flight", "0"}, false, 0},
        {{"--user-quota-mib", "ten"}, false, 0},
    };
    for (const auto& row : rows) {
        QCommandLineParser cli;
        const LimitOptions options(cli);
        ASSERT_TRUE(cli.parse(QStringList{"kzlan-server"} + row.args));
        ServerLimits limits;
        QString error;
        EXPECT_EQ(options.read(&limits, &error), row.ok) << qPrintable(row.args.join(' '));
        if (row.ok) {
            EXPECT_EQ(limits.idleTimeoutS, row.idle);
        }
        EXPECT_TRUE(cli.helpText().contains(QStringLiteral("(default 1800;")));
    }
}

// Replies are matched to requests in order: AddUser requests sent at once,
// some hashed off the event loop and some refused at once (no password),
// are answered in the order they were sent. With two requests in flight at
// most, reading pauses and resumes on the way.
TEST_F(LanServer, AnswersWorkedOutOffTheLoopKeepTheOrderOfTheRequests)
{
    ServerLimits limits;
    limits.maxInFlight = 2;
    server->setLimits(limits);
    Peer admin(server->port());
    ASSERT_TRUE(admin.login(QStringLiteral("admin"), kAdminPassword));
    QStringList got, expected;
    QObject::connect(&admin.conn, &KZConnection::addUserResult,
                     [&](const user_info& u) { got.append(u.name); });
    for (int i = 0; i < 12; ++i) {
        const bool refused = i % 3 == 1;
        const QString name = QStringLiteral("user%1").arg(i);
        admin.r.lanAddUser(name, QString(), refused ? QString() : QStringLiteral("pw"), QString(),
                           QString(), false);
        expected.append(refused ? QString() : name);
    }
    ASSERT_TRUE(waitFor([&] { return got.size() == expected.size(); }));
    EXPECT_EQ(got, expected);
}
