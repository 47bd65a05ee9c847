// KZClient against the real kzlan-server: the Users family's requests one after the other,
// each reply's values as the server stored them, the user list pushed after the login and
// to another client after a change, a refused login, and the requests another message
// answers (log queries, a transfer's begin).
#include "kzclient.h"
#include "lan.h"

#include <gtest/gtest.h>

#include <QCryptographicHash>

#include <functional>
#include <memory>

using namespace lan;

namespace {

/// A client logged in to `server` as admin and Ready.
std::unique_ptr<KZClient> adminClient(const Server& server)
{
    auto client = std::make_unique<KZClient>();
    client->login(QStringLiteral("admin"), kAdminPassword);
    client->connectToHost(QStringLiteral("127.0.0.1"), server.port());
    EXPECT_TRUE(waitFor([&] { return client->state() == KZClient::State::Ready; }));
    return client;
}

/// Waits for `reply` and checks it finished without an error.
template <class Reply>
const Reply* answered(const Reply* reply)
{
    EXPECT_TRUE(waitFor([&] { return reply->isFinished(); }));
    EXPECT_EQ(reply->error(), KZReply::Error::NoError) << qPrintable(reply->errorString());
    return reply;
}

TEST(LanClient, EveryUsersRequestReturnsItsReply)
{
    Server server;
    ASSERT_TRUE(server.start());
    auto client = adminClient(server);
    auto watcher = adminClient(server); // the server pushes a change to the other clients
    QList<user_info> pushed;
    QObject::connect(watcher.get(), &KZClient::usersReceived,
                     [&](const QList<user_info>& u) { pushed = u; });
    const QString name = QStringLiteral("ann");
    const QString lv1 = QStringLiteral("Hall 1"), lv2 = QStringLiteral("Line A");

    const auto* added = answered(client->addUser(name, QStringLiteral("Ann Example"),
                                                 QStringLiteral("pw-1"), lv1, lv2, true));
    EXPECT_EQ(added->values().user.name, name);
    EXPECT_EQ(added->values().user.text2, QStringLiteral("Ann Example"));
    EXPECT_EQ(added->values().user.lv1Group, lv1);
    EXPECT_EQ(added->values().user.lv2Group, lv2);

    const auto* permission = answered(client->updateUserPermission(name, 0x41));
    EXPECT_TRUE(permission->values().ok);
    EXPECT_EQ(permission->values().name, name);
    EXPECT_EQ(permission->values().permission, 0x41);

    const QMap<QString, QStringList> groups{{lv1, {lv2}}};
    const auto* visible = answered(client->updateUserGroupPermission(name, groups));
    EXPECT_TRUE(visible->values().ok);
    EXPECT_EQ(visible->values().groups, groups);

    const auto* updated = answered(client->updateClient(
        name, QStringLiteral("Ann B. Example"), QString(), lv1, lv2, QString(), true, false));
    EXPECT_TRUE(updated->values().ok);
    EXPECT_EQ(updated->values().s1, name);

    ASSERT_TRUE(waitFor([&] {
        for (const user_info& u : pushed)
            if (u.name == name)
                return u.permission == 0x41 && u.text2 == QStringLiteral("Ann B. Example");
        return false;
    }));

    const auto* deleted = answered(client->deleteUser({name}));
    EXPECT_TRUE(deleted->values().ok);
    EXPECT_EQ(deleted->values().names, QStringList{name});
    const auto* again = answered(client->deleteUser({name}));
    EXPECT_FALSE(again->values().ok); // gone already: refused, still matched to its request
}

TEST(LanClient, TheUserListArrivesAfterTheLogin)
{
    Server server;
    ASSERT_TRUE(server.start());
    KZClient client;
    QList<user_info> users;
    QObject::connect(&client, &KZClient::usersReceived,
                     [&](const QList<user_info>& u) { users = u; });
    client.login(QStringLiteral("admin"), kAdminPassword);
    client.connectToHost(QStringLiteral("127.0.0.1"), server.port());
    ASSERT_TRUE(waitFor([&] { return !users.isEmpty(); }));
    EXPECT_EQ(users.first().name, QStringLiteral("admin"));
    EXPECT_TRUE(client.isAdministrator());
    client.disconnectFromHost();
    ASSERT_TRUE(waitFor([&] { return client.state() == KZClient::State::Unconnected; }));
    EXPECT_EQ(client.error(), KZReply::Error::NoError);
}

TEST(LanClient, AWrongPasswordIsARefusedLogin)
{
    Server server;
    ASSERT_TRUE(server.start());
    KZClient client;
    client.login(QStringLiteral("admin"), QStringLiteral("not the password"));
    client.connectToHost(QStringLiteral("127.0.0.1"), server.port());
    ASSERT_TRUE(waitFor([&] { return client.error() != KZReply::Error::NoError; }));
    EXPECT_EQ(client.error(), KZReply::Error::LoginRefusedError);
    EXPECT_EQ(client.loginCode(), 2);
    EXPECT_EQ(client.state(), KZClient::State::Unconnected);
}

TEST(LanClient, RequestsAnsweredByAnotherMessageReturnThatMessagesValues)
{
    Server server;
    ASSERT_TRUE(server.start());
    auto client = adminClient(server);
    const QString from = QStringLiteral("2000-01-01"), to = QStringLiteral("2999-12-31");

    // Both log queries are answered with alarm records: the events, the login among them
    // (written by the server's storage thread, after the login's answer).
    ASSERT_TRUE(waitFor([&] {
        const auto* r = answered(client->queryLog2(QString(), from, to, {}));
        return !r->values().records.isEmpty();
    }));
    const auto* second = answered(client->queryLog2(QString(), from, to, {}));
    const auto* filtered = answered(client->queryLogsByFilter(true, QString(), from, to, {}, {}));
    for (const auto* reply : {second, filtered}) {
        EXPECT_EQ(reply->methodCode(), 0x0710);
        bool login = false;
        for (const kz_log_alarm_info& e : reply->values().records)
            login |= e.text0 == QStringLiteral("login") && e.text5 == QStringLiteral("admin");
        EXPECT_TRUE(login);
    }

    // A transfer's begin is answered with the task, 0 (ready) or 1 (refused), the chunk size.
    const QByteArray body("hello");
    const QByteArray md5 = QCryptographicHash::hash(body, QCryptographicHash::Md5);
    const auto* early = answered(client->macTsfFileTaskBegin(int(body.size()), md5));
    EXPECT_EQ(early->methodCode(), 0x050A);
    EXPECT_EQ(early->values().n2, 1); // no task announced yet
    const auto* task = answered(client->macTsfFileAddTask(
        true, QString(), QStringLiteral("t"), QString(), true, {QStringLiteral("a.txt")}));
    ASSERT_TRUE(task->values().ok);
    const auto* begun = answered(client->macTsfFileTaskBegin(int(body.size()), md5));
    EXPECT_EQ(begun->values().n1, task->values().n);
    EXPECT_EQ(begun->values().n2, 0);
    EXPECT_GT(begun->values().n3, 0);
}

} // namespace
