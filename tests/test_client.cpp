// KZClient against a scripted server on 127.0.0.1: the server is a QTcpServer with a
// KZConnection per socket that answers logins and holds, answers or drops requests as each
// test says. What is checked is what a host sees: replies matched in order, time-outs, a cut
// connection, reconnecting, queueing, and a host that deletes replies or the client early.
#include "kzclient.h"
#include "kzconnection.h"

#include "eventloop.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QHostAddress>
#include <QPointer>
#include <QTcpServer>
#include <QTcpSocket>

#include <functional>
#include <memory>
#include <vector>

namespace {

using Error = KZReply::Error;
using State = KZClient::State;

using kztest::ensureApp;
using kztest::spin;
using kztest::waitFor;

/// The scripted server: one connection at a time. Logins are accepted unless `refuseLogin`;
/// each deleteUser request is recorded and answered at once unless `hold` (then answer()
/// answers the oldest held one).
class FakeServer : public QObject
{
public:
    FakeServer()
    {
        server.listen(QHostAddress::LocalHost, 0);
        connect(&server, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket* s = server.nextPendingConnection()) accept(s);
        });
    }

    quint16 port() const { return server.serverPort(); }

    void accept(QTcpSocket* s)
    {
        ++connections;
        conn = std::make_unique<KZConnection>(s);
        KZConnection* c = conn.get();
        connect(c, &KZConnection::login, c, [this, c](const QString& user, const QString&) {
            logins.append(user);
            c->resolver()->lanLoginResult(!refuseLogin, refuseLogin ? 2 : 0, true);
            if (!refuseLogin && pushMachines) c->resolver()->lanMacInfo({mac_info{}});
        });
        connect(c, &KZConnection::logout, c, [this](int) { ++logouts; });
        connect(c, &KZConnection::macInfoResult, c, [this] { ++acks; });
        connect(c, &KZConnection::deleteUser, c, [this, c](const QStringList& names) {
            requests.append(names.join(QLatin1Char(',')));
            held.push_back(names);
            if (!hold) answer();
        });
        connect(c, &KZConnection::updateUserPermission, c,
                [this, c](const QString& name, int permission) {
                    requests.append(name);
                    c->resolver()->lanUpdateUserPermissionResponse(true, name, permission);
                });
    }
    /// Answers the oldest held deletion with its own names.
    void answer()
    {
        const QStringList names = held.front();
        held.erase(held.begin());
        conn->resolver()->lanDeleteUserResponse(true, names);
    }
    /// Cuts the current connection.
    void cut() { conn->device()->close(); }

    QTcpServer server;
    std::unique_ptr<KZConnection> conn;
    bool refuseLogin = false;
    bool hold = false;
    bool pushMachines = false;
    int connections = 0;
    int logouts = 0;
    int acks = 0;
    QStringList logins;
    QStringList requests;
    std::vector<QStringList> held;
};

/// A client logged in to `server` and Ready.
std::unique_ptr<KZClient> readyClient(FakeServer& server)
{
    auto client = std::make_unique<KZClient>();
    client->login(QStringLiteral("admin"), QStringLiteral("secret"));
    client->connectToHost(QStringLiteral("127.0.0.1"), server.port());
    EXPECT_TRUE(waitFor([&] { return client->state() == State::Ready; }));
    return client;
}

class Client : public ::testing::Test
{
protected:
    void SetUp() override { ensureApp(); }
};

TEST_F(Client, ConnectsLogsInAndReportsEachState)
{
    FakeServer server;
    KZClient client;
    std::vector<State> states;
    QObject::connect(&client, &KZClient::stateChanged, [&](State s) { states.push_back(s); });
    client.login(QStringLiteral("admin"), QStringLiteral("secret"));
    client.connectToHost(QStringLiteral("127.0.0.1"), server.port());
    ASSERT_TRUE(waitFor([&] { return client.state() == State::Ready; }));
    EXPECT_EQ(states, (std::vector<State>{State::Connecting, State::Connected, State::LoggingIn,
                                          State::Ready}));
    EXPECT_EQ(server.logins, QStringList{QStringLiteral("admin")});
    EXPECT_EQ(client.loginCode(), 0);
    EXPECT_TRUE(client.isAdministrator());
}

TEST_F(Client, RequestsMadeBeforeTheConnectionAreSentInOrderOnceReady)
{
    FakeServer server;
    KZClient client;
    auto* first = client.deleteUser({QStringLiteral("a")});
    auto* second = client.updateUserPermission(QStringLiteral("b"), 7);
    auto* third = client.deleteUser({QStringLiteral("c")});
    client.login(QStringLiteral("admin"), QStringLiteral("secret"));
    client.connectToHost(QStringLiteral("127.0.0.1"), server.port());
    ASSERT_TRUE(waitFor([&] { return third->isFinished(); }));
    EXPECT_EQ(server.requests,
              (QStringList{QStringLiteral("a"), QStringLiteral("b"), QStringLiteral("c")}));
    EXPECT_TRUE(first->isFinished());
    EXPECT_EQ(second->values().permission, 7);
    EXPECT_EQ(third->values().names, QStringList{QStringLiteral("c")});
}

TEST_F(Client, TwoRequestsOfOneMessageTakeTheirRepliesInOrder)
{
    FakeServer server;
    auto client = readyClient(server);
    server.hold = true;
    auto* a = client->deleteUser({QStringLiteral("a")});
    auto* b = client->deleteUser({QStringLiteral("b")});
    ASSERT_TRUE(waitFor([&] { return server.held.size() == 2; }));
    server.answer();
    ASSERT_TRUE(waitFor([&] { return a->isFinished(); }));
    EXPECT_FALSE(b->isFinished());
    server.answer();
    ASSERT_TRUE(waitFor([&] { return b->isFinished(); }));
    EXPECT_EQ(a->error(), Error::NoError);
    EXPECT_TRUE(a->values().ok);
    EXPECT_EQ(a->values().names, QStringList{QStringLiteral("a")});
    EXPECT_EQ(b->values().names, QStringList{QStringLiteral("b")});
}

TEST_F(Client, ARequestNeverAnsweredTimesOutAndItsLateAnswerFinishesNoOther)
{
    FakeServer server;
    auto client = readyClient(server);
    server.hold = true;
    auto* late = client->deleteUser({QStringLiteral("late")});
    late->setTimeout(100);
    ASSERT_TRUE(waitFor([&] { return late->isFinished(); }));
    EXPECT_EQ(late->error(), Error::TimeoutError);
    EXPECT_FALSE(late->errorString().isEmpty());
    EXPECT_EQ(client->state(), State::Ready); // one request's time-out is no client error

    auto* next = client->deleteUser({QStringLiteral("next")});
    ASSERT_TRUE(waitFor([&] { return server.held.size() == 2; }));
    server.answer(); // the late one's answer
    spin();
    EXPECT_FALSE(next->isFinished());
    server.answer();
    ASSERT_TRUE(waitFor([&] { return next->isFinished(); }));
    EXPECT_EQ(next->values().names, QStringList{QStringLiteral("next")});
}

TEST_F(Client, TheClientTimeOutAppliesToEveryRequest)
{
    FakeServer server;
    auto client = readyClient(server);
    server.hold = true;
    client->setTimeout(100);
    auto* reply = client->deleteUser({QStringLiteral("x")});
    EXPECT_EQ(reply->timeout(), 100);
    ASSERT_TRUE(waitFor([&] { return reply->isFinished(); }, 2000));
    EXPECT_EQ(reply->error(), Error::TimeoutError);
}

TEST_F(Client, ACutConnectionFinishesEveryPendingReplyWithAnError)
{
    FakeServer server;
    auto client = readyClient(server);
    server.hold = true;
    std::vector<Error> errors;
    QObject::connect(client.get(), &KZClient::errorOccurred, [&](Error e) { errors.push_back(e); });
    std::vector<KZReplyOf<KZClient::DeleteUserReply>*> replies;
    for (int i = 0; i < 10; ++i) replies.push_back(client->deleteUser({QString::number(i)}));
    ASSERT_TRUE(waitFor([&] { return server.held.size() == 10; }));
    server.cut();
    ASSERT_TRUE(waitFor([&] {
        for (auto* r : replies)
            if (!r->isFinished()) return false;
        return true;
    }));
    for (auto* r : replies) EXPECT_EQ(r->error(), Error::ConnectionLostError);
    EXPECT_EQ(client->state(), State::Unconnected);
    EXPECT_EQ(errors, std::vector<Error>{Error::ConnectionLostError});
}

TEST_F(Client, ReconnectsAndLogsInAgainAfterALostConnection)
{
    FakeServer server;
    auto client = readyClient(server);
    client->setAutoReconnect(true);
    server.cut();
    ASSERT_TRUE(waitFor([&] { return client->state() == State::Unconnected; }));
    auto* reply = client->deleteUser({QStringLiteral("after")}); // waits for the new login
    ASSERT_TRUE(waitFor([&] { return reply->isFinished(); }));
    EXPECT_EQ(reply->error(), Error::NoError);
    EXPECT_EQ(server.connections, 2);
    EXPECT_EQ(server.logins.size(), 2);
    EXPECT_EQ(client->state(), State::Ready);
}

TEST_F(Client, ARefusedLoginIsAnErrorAndFailsTheQueuedRequests)
{
    FakeServer server;
    server.refuseLogin = true;
    KZClient client;
    client.setAutoReconnect(true);
    std::vector<Error> errors;
    QObject::connect(&client, &KZClient::errorOccurred, [&](Error e) { errors.push_back(e); });
    auto* reply = client.deleteUser({QStringLiteral("x")});
    client.login(QStringLiteral("admin"), QStringLiteral("wrong"));
    client.connectToHost(QStringLiteral("127.0.0.1"), server.port());
    ASSERT_TRUE(waitFor([&] { return reply->isFinished(); }));
    EXPECT_EQ(reply->error(), Error::LoginRefusedError);
    EXPECT_EQ(errors, std::vector<Error>{Error::LoginRefusedError});
    EXPECT_EQ(client.loginCode(), 2);
    spin(700); // past the first reconnection's delay: a refused login is not tried again
    EXPECT_EQ(server.connections, 1);
    EXPECT_EQ(client.state(), State::Unconnected);
    EXPECT_TRUE(server.requests.isEmpty());
}

TEST_F(Client, ALogoutIsNoError)
{
    FakeServer server;
    auto client = readyClient(server);
    server.hold = true;
    int errors = 0;
    QObject::connect(client.get(), &KZClient::errorOccurred, [&] { ++errors; });
    auto* pending = client->deleteUser({QStringLiteral("x")});
    client->disconnectFromHost();
    EXPECT_EQ(client->state(), State::Closing);
    ASSERT_TRUE(waitFor([&] { return client->state() == State::Unconnected; }));
    ASSERT_TRUE(waitFor([&] { return pending->isFinished(); }));
    EXPECT_EQ(pending->error(), Error::CanceledError);
    EXPECT_EQ(errors, 0);
    EXPECT_EQ(client->error(), Error::NoError);
    EXPECT_TRUE(waitFor([&] { return server.logouts == 1; }));
}

TEST_F(Client, ConnectionFailuresAreTyped)
{
    QTcpServer closed; // a port that nothing listens on once closed
    closed.listen(QHostAddress::LocalHost, 0);
    const quint16 port = closed.serverPort();
    closed.close();
    const struct
    {
        const char* host;
        Error expected;
    } rows[] = {
        {"127.0.0.1", Error::ConnectionRefusedError},
        {"no-such-host.invalid", Error::HostNotFoundError},
    };
    for (const auto& row : rows) {
        KZClient client;
        auto* reply = client.deleteUser({});
        client.connectToHost(QString::fromLatin1(row.host), port);
        ASSERT_TRUE(waitFor([&] { return reply->isFinished(); }, 10000)) << row.host;
        EXPECT_EQ(client.error(), row.expected) << row.host;
        EXPECT_EQ(reply->error(), row.expected) << row.host;
        EXPECT_EQ(client.state(), State::Unconnected) << row.host;
    }
}

TEST_F(Client, AReplyNobodyAskedForIsReported)
{
    FakeServer server;
    auto client = readyClient(server);
    std::vector<int> codes;
    QObject::connect(client.get(), &KZClient::unexpectedReply, [&](int c) { codes.push_back(c); });
    server.conn->resolver()->lanDeleteUserResponse(true, {QStringLiteral("nobody")});
    ASSERT_TRUE(waitFor([&] { return !codes.empty(); }));
    EXPECT_EQ(codes, std::vector<int>{0x001B});
    EXPECT_EQ(client->state(), State::Ready);
}

TEST_F(Client, AReplyDeletedBeforeItsAnswerLeavesTheNextOneMatched)
{
    FakeServer server;
    auto client = readyClient(server);
    server.hold = true;
    delete client->deleteUser({QStringLiteral("gone")});
    auto* kept = client->deleteUser({QStringLiteral("kept")});
    ASSERT_TRUE(waitFor([&] { return server.held.size() == 2; }));
    server.answer();
    server.answer();
    ASSERT_TRUE(waitFor([&] { return kept->isFinished(); }));
    EXPECT_EQ(kept->values().names, QStringList{QStringLiteral("kept")});
}

TEST_F(Client, TheClientMayBeDeletedInsideFinished)
{
    FakeServer server;
    QPointer<KZClient> client = readyClient(server).release();
    server.hold = true;
    auto* first = client->deleteUser({QStringLiteral("a")});
    client->deleteUser({QStringLiteral("b")});
    QObject::connect(first, &KZReply::finished, [&] { delete client.data(); });
    ASSERT_TRUE(waitFor([&] { return server.held.size() == 2; }));
    server.answer();
    server.answer();
    ASSERT_TRUE(waitFor([&] { return client.isNull(); }));
    spin();
}

TEST_F(Client, APushedMachineListIsSignalledAndAcknowledged)
{
    FakeServer server;
    server.pushMachines = true;
    KZClient client;
    int lists = 0;
    QObject::connect(&client, &KZClient::machinesReceived,
                     [&](const QList<mac_info>& macs) { lists += int(macs.size()); });
    client.login(QStringLiteral("admin"), QStringLiteral("secret"));
    client.connectToHost(QStringLiteral("127.0.0.1"), server.port());
    ASSERT_TRUE(waitFor([&] { return server.acks == 1; }));
    EXPECT_EQ(lists, 1);
}

} // namespace
