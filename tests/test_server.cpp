// KZServer with KZClient over 127.0.0.1: a small server whose authenticator and handlers
// answer later, from other threads, in another order than the requests came. What is checked
// is what its clients see (logins, replies in order, closed connections) and what cannot hurt
// the server (a responder outliving its session, clients over the limits).
#include "kzclient.h"
#include "kzconnection.h"
#include "kzserver.h"

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
#include <thread>
#include <vector>

namespace {

using Error = KZReply::Error;
using State = KZClient::State;

using kztest::ensureApp;
using kztest::spin;
using kztest::waitFor;

/// Runs `f` on a thread of its own after `ms`, as a database query would answer.
void onAnotherThread(int ms, std::function<void()> f)
{
    std::thread([ms, f = std::move(f)] {
        std::this_thread::sleep_for(std::chrono::milliseconds(ms));
        f();
    }).detach();
}

/// The server under test: "admin" logs in with "right" (as an administrator), "clerk" with
/// "right" too; the check answers from another thread. Each deleteUser request's responder
/// is kept in `held` for the test to answer.
class SmallServer
{
public:
    explicit SmallServer(const KZServer::Limits& limits = KZServer::Limits(),
                         QTcpServer* hostsListener = nullptr)
    {
        server.setLimits(limits);
        server.setAuthenticator([this](KZServerSession*, const QString& user,
                                       const QString& password, KZLoginResponder answer) {
            ++checks;
            onAnotherThread(20, [user, password, answer] {
                if (password != QLatin1String("right"))
                    answer.refuse(2);
                else
                    answer.accept(user == QLatin1String("admin"));
            });
        });
        server.handle(&KZConnection::deleteUser,
                      [this](KZServerSession*, KZResponder answer, const QStringList& names) {
                          held.push_back({answer, names});
                      });
        if (hostsListener)
            server.setTcpServer(hostsListener);
        else
            EXPECT_TRUE(server.listen(QHostAddress::LocalHost, 0));
    }
    quint16 port() const { return server.serverPort(); }
    /// Answers held request `i` with its own names.
    void answer(size_t i)
    {
        const QStringList names = held[i].names;
        held[i].answer.send(
            [names](KZProtocolResolver& r) { r.lanDeleteUserResponse(true, names); });
    }

    struct Held
    {
        KZResponder answer;
        QStringList names;
    };
    KZServer server;
    std::vector<Held> held;
    int checks = 0;
};

std::unique_ptr<KZClient> clientOf(const SmallServer& s, const char* user, const char* password)
{
    auto client = std::make_unique<KZClient>();
    client->setTimeout(3000);
    client->login(QString::fromLatin1(user), QString::fromLatin1(password));
    client->connectToHost(QStringLiteral("127.0.0.1"), s.port());
    return client;
}

class Server : public ::testing::Test
{
protected:
    void SetUp() override { ensureApp(); }
};

TEST_F(Server, TheAuthenticatorsLaterAnswerIsTheLoginReply)
{
    struct Row
    {
        const char* user;
        const char* password;
        State state;
        Error error;
        int code;
        bool admin;
    } rows[] = {
        {"admin", "right", State::Ready, Error::NoError, 0, true},
        {"clerk", "right", State::Ready, Error::NoError, 0, false},
        {"admin", "wrong", State::Unconnected, Error::LoginRefusedError, 2, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.user) + "/" + row.password);
        SmallServer s;
        QStringList loggedIn;
        QObject::connect(&s.server, &KZServer::sessionLoggedIn,
                         [&](KZServerSession* session) { loggedIn << session->user(); });
        auto client = clientOf(s, row.user, row.password);
        ASSERT_TRUE(waitFor([&] {
            return client->state() == row.state && client->error() == row.error && s.checks == 1;
        }));
        spin(50);
        EXPECT_EQ(client->loginCode(), row.code);
        EXPECT_EQ(client->isAdministrator(), row.admin);
        EXPECT_EQ(loggedIn, row.state == State::Ready ? QStringList{QString::fromLatin1(row.user)}
                                                      : QStringList());
    }
}

TEST_F(Server, ARequestAnsweredLaterFromAnotherThreadReachesItsReply)
{
    SmallServer s;
    auto client = clientOf(s, "admin", "right");
    auto* reply = client->deleteUser({QStringLiteral("old.name")});
    ASSERT_TRUE(waitFor([&] { return s.held.size() == 1; }));
    KZResponder answer = s.held[0].answer;
    onAnotherThread(30, [answer] {
        answer.send([](KZProtocolResolver& r) {
            r.lanDeleteUserResponse(false, {QStringLiteral("old.name")});
        });
    });
    ASSERT_TRUE(waitFor([&] { return reply->isFinished(); }));
    EXPECT_EQ(reply->error(), Error::NoError);
    EXPECT_FALSE(reply->values().ok);
    EXPECT_EQ(reply->values().names, QStringList{QStringLiteral("old.name")});
    EXPECT_TRUE(answer.isAnswered());
}

TEST_F(Server, AnswersLeaveInTheOrderOfTheRequestsWhateverOrderTheHostFinishesThem)
{
    SmallServer s;
    auto client = clientOf(s, "admin", "right");
    auto* a = client->deleteUser({QStringLiteral("a")});
    auto* b = client->deleteUser({QStringLiteral("b")});
    auto* c = client->deleteUser({QStringLiteral("c")});
    ASSERT_TRUE(waitFor([&] { return s.held.size() == 3; }));
    s.answer(2);
    s.answer(1);
    spin();
    EXPECT_FALSE(a->isFinished()); // b and c wait for a
    EXPECT_FALSE(b->isFinished());
    EXPECT_FALSE(c->isFinished());
    s.answer(0);
    ASSERT_TRUE(waitFor([&] { return c->isFinished(); }));
    EXPECT_EQ(a->values().names, QStringList{QStringLiteral("a")});
    EXPECT_EQ(b->values().names, QStringList{QStringLiteral("b")});
    EXPECT_EQ(c->values().names, QStringList{QStringLiteral("c")});
}

TEST_F(Server, AResponderDroppedUnansweredIsReportedAndHoldsNoLaterAnswer)
{
    SmallServer s;
    auto client = clientOf(s, "admin", "right");
    int unanswered = 0;
    QObject::connect(&s.server, &KZServer::sessionStarted, [&](KZServerSession* session) {
        QObject::connect(session, &KZServerSession::requestUnanswered, [&] { ++unanswered; });
    });
    auto* a = client->deleteUser({QStringLiteral("a")});
    auto* b = client->deleteUser({QStringLiteral("b")});
    b->setTimeout(300);
    ASSERT_TRUE(waitFor([&] { return s.held.size() == 2; }));
    s.answer(1);
    spin();
    EXPECT_FALSE(a->isFinished());    // b's answer waits for a's
    s.held[0].answer = KZResponder(); // a's last copy goes unanswered
    ASSERT_TRUE(waitFor([&] { return a->isFinished() && b->isFinished(); }));
    EXPECT_EQ(unanswered, 1);
    // b's answer is no longer held; the wire has no request number, so the client takes it
    // for the oldest request of its message, and b times out: why every request is answered.
    EXPECT_EQ(a->values().names, QStringList{QStringLiteral("b")});
    EXPECT_EQ(b->error(), Error::TimeoutError);
}

TEST_F(Server, AResponderAnsweringAfterItsSessionEndedIsHarmless)
{
    SmallServer s;
    int ended = 0;
    QObject::connect(&s.server, &KZServer::sessionEnded, [&](KZServerSession*) { ++ended; });
    auto client = clientOf(s, "admin", "right");
    client->deleteUser({QStringLiteral("a")});
    ASSERT_TRUE(waitFor([&] { return s.held.size() == 1; }));
    client.reset(); // the client goes, its request unanswered
    ASSERT_TRUE(waitFor([&] { return ended == 1 && s.server.sessionCount() == 0; }));
    spin(50); // the session is deleted
    std::thread late([&] { s.answer(0); });
    late.join();
    s.answer(0); // and again on the server's thread: the second call is ignored
    spin(50);
    s.held.clear(); // the last copy of the responder goes, after its session
    spin(50);
    EXPECT_EQ(s.server.sessionCount(), 0);
}

TEST_F(Server, ARequestBeforeTheLoginReachesNoHandler)
{
    SmallServer s;
    QTcpSocket socket;
    KZConnection conn(&socket);
    socket.connectToHost(QHostAddress::LocalHost, s.port());
    ASSERT_TRUE(socket.waitForConnected(3000));
    conn.resolver()->lanDeleteUser({QStringLiteral("admin")});
    spin(300);
    EXPECT_TRUE(s.held.empty());
    EXPECT_EQ(s.server.sessionCount(), 1);
}

TEST_F(Server, ConnectionsBeyondTheClientLimitAreClosed)
{
    KZServer::Limits limits;
    limits.maxClients = 2;
    SmallServer s(limits);
    auto one = clientOf(s, "admin", "right");
    auto two = clientOf(s, "clerk", "right");
    ASSERT_TRUE(
        waitFor([&] { return two->state() == State::Ready && one->state() == State::Ready; }));
    auto three = clientOf(s, "clerk", "right");
    ASSERT_TRUE(waitFor([&] { return three->state() == State::Unconnected; }));
    EXPECT_NE(three->error(), Error::NoError);
    EXPECT_EQ(s.server.sessionCount(), 2);
    one.reset();
    ASSERT_TRUE(waitFor([&] { return s.server.sessionCount() == 1; }));
    auto four = clientOf(s, "clerk", "right");
    EXPECT_TRUE(waitFor([&] { return four->state() == State::Ready; }));
}

TEST_F(Server, ASessionThatDoesNotLogInInTimeIsClosed)
{
    KZServer::Limits limits;
    limits.loginTimeoutMs = 200;
    SmallServer s(limits);
    QTcpSocket silent;
    silent.connectToHost(QHostAddress::LocalHost, s.port());
    ASSERT_TRUE(silent.waitForConnected(3000));
    auto client = clientOf(s, "admin", "right"); // logs in: stays
    QElapsedTimer t;
    t.start();
    ASSERT_TRUE(waitFor([&] { return silent.state() == QAbstractSocket::UnconnectedState; }));
    EXPECT_GE(t.elapsed(), 150);
    spin(300);
    EXPECT_EQ(client->state(), State::Ready);
    EXPECT_EQ(s.server.sessionCount(), 1);
}

TEST_F(Server, RequestsInFlightAtTheBoundPauseReadingUntilOneIsAnswered)
{
    KZServer::Limits limits;
    limits.maxInFlight = 2;
    limits.readChunkBytes = 16; // a frame at most completes per read, so the bound is exact
    SmallServer s(limits);
    auto client = clientOf(s, "admin", "right");
    std::vector<KZReply*> replies;
    for (int i = 0; i < 5; ++i) replies.push_back(client->deleteUser({QString::number(i)}));
    ASSERT_TRUE(waitFor([&] { return s.held.size() == 2; }));
    spin(300);
    EXPECT_EQ(s.held.size(), 2u);
    s.answer(0);
    ASSERT_TRUE(waitFor([&] { return s.held.size() == 3; }));
    spin(200);
    EXPECT_EQ(s.held.size(), 3u);
    for (size_t i = 1; i < 5; ++i) {
        ASSERT_TRUE(waitFor([&] { return s.held.size() > i; }));
        s.answer(i);
    }
    ASSERT_TRUE(waitFor([&] { return replies.back()->isFinished(); }));
    for (KZReply* r : replies) EXPECT_EQ(r->error(), Error::NoError);
}

TEST_F(Server, APushReachesEveryLoggedInClient)
{
    SmallServer s;
    auto in = clientOf(s, "admin", "right");
    auto out = clientOf(s, "admin", "wrong");
    int inGot = 0, outGot = 0;
    QObject::connect(in.get(), &KZClient::usersReceived,
                     [&](const QList<user_info>& users) { inGot += users.size(); });
    QObject::connect(out.get(), &KZClient::usersReceived,
                     [&](const QList<user_info>& users) { outGot += users.size(); });
    ASSERT_TRUE(waitFor([&] { return in->state() == State::Ready && s.checks == 2; }));
    user_info u;
    u.name = QStringLiteral("new.user");
    s.server.pushToLoggedIn(0x0C, [u](KZProtocolResolver& r) { r.lanUserInfo({u}); });
    ASSERT_TRUE(waitFor([&] { return inGot == 1; }));
    spin(100);
    EXPECT_EQ(outGot, 0);
}

TEST_F(Server, AListenerTheHostMadeIsServedLikeItsOwn)
{
    QTcpServer listener;
    ASSERT_TRUE(listener.listen(QHostAddress::LocalHost, 0));
    SmallServer s(KZServer::Limits(), &listener);
    EXPECT_EQ(s.server.tcpServer(), &listener);
    EXPECT_EQ(s.port(), listener.serverPort());
    auto client = clientOf(s, "admin", "right");
    ASSERT_TRUE(waitFor([&] { return client->state() == State::Ready; }));
    auto* reply = client->deleteUser({QStringLiteral("x")});
    ASSERT_TRUE(waitFor([&] { return s.held.size() == 1; }));
    s.answer(0);
    EXPECT_TRUE(waitFor([&] { return reply->isFinished(); }));
}

TEST_F(Server, AnIdleSessionIsClosedButNotOneWaitingForItsAnswer)
{
    KZServer::Limits limits;
    limits.idleTimeoutMs = 200;
    SmallServer s(limits);
    auto idle = clientOf(s, "clerk", "right");
    auto busy = clientOf(s, "admin", "right");
    ASSERT_TRUE(waitFor([&] { return busy->state() == State::Ready; }));
    auto* reply = busy->deleteUser({QStringLiteral("x")}); // held by the server: in flight
    ASSERT_TRUE(waitFor([&] { return idle->state() == State::Unconnected; }));
    spin(300);
    EXPECT_EQ(busy->state(), State::Ready);
    EXPECT_EQ(s.server.sessionCount(), 1);
    s.answer(0);
    EXPECT_TRUE(waitFor([&] { return reply->isFinished(); }));
}

} // namespace
