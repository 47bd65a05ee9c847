// The server's configuration file under its command line, its reload, and
// the first admin account made from a password file.
#include "config.h"
#include "firstadmin.h"
#include "passwords.h"
#include "storage.h"

#include <gtest/gtest.h>

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QFile>
#include <QTemporaryDir>

namespace {

void writeFile(const QString& path, const QByteArray& bytes)
{
    QFile f(path);
    ASSERT_TRUE(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
    f.write(bytes);
}

// A parser with options of each kind: with a value, with a default, a switch.
struct Options
{
    QCommandLineParser cli;
    QCommandLineOption port{QStringLiteral("port"), QString(), QStringLiteral("N"),
                            QStringLiteral("7600")};
    QCommandLineOption db{QStringLiteral("db"), QString(), QStringLiteral("PATH")};
    QCommandLineOption only{QStringLiteral("tls-only"), QString()};
    ServerConfig config{cli};
    Options() { cli.addOptions({port, db, only}); }
};

TEST(ServerConfig, LinesBecomeOptions)
{
    struct Row
    {
        const char* text;
        QStringList arguments; // empty with `error` set: refused
        const char* error;
    };
    const Row rows[] = {
        {"port = 7700\n", {"--port=7700"}, nullptr},
        {"  db=/var/lib/x.sqlite  \r\n", {"--db=/var/lib/x.sqlite"}, nullptr},
        {"# comment\n\n   \n#port = 1\nport = 2", {"--port=2"}, nullptr},
        {"db = postgresql://u:p=q@h/d", {"--db=postgresql://u:p=q@h/d"}, nullptr},
        {"tls-only = true\n", {"--tls-only"}, nullptr},
        {"tls-only = yes\ntls-only = on", {"--tls-only", "--tls-only"}, nullptr},
        {"tls-only = false\nport = off\nx = no", {}, nullptr},
        {"db =", {"--db="}, nullptr},
        {"port 7700\n", {}, "line 1: expected 'option = value', not 'port 7700'"},
        {"\n\n= 5", {}, "line 3: expected 'option = value', not '= 5'"},
        {"--port = 5", {}, "line 1: expected 'option = value', not '--port = 5'"},
    };
    for (const Row& r : rows) {
        QStringList arguments;
        QMap<QString, int> lineOf;
        QString error;
        const bool ok =
            ServerConfig::toArguments(QString::fromUtf8(r.text), &arguments, &lineOf, &error);
        EXPECT_EQ(ok, r.error == nullptr) << r.text;
        if (r.error)
            EXPECT_EQ(error.toStdString(), r.error) << r.text;
        else
            EXPECT_EQ(arguments, r.arguments) << r.text;
    }
}

TEST(ServerConfig, CommandLineOverridesTheFile)
{
    QTemporaryDir dir;
    const QString file = dir.filePath(QStringLiteral("kzlan-server.conf"));
    writeFile(file, "port = 7700\ndb = /srv/a.sqlite\ntls-only = true\n");
    struct Row
    {
        QStringList arguments;
        const char* port;
        const char* db;
        bool only;
    };
    const Row rows[] = {
        {{}, "7600", "", false}, // no --config: the defaults
        {{"--config", file}, "7700", "/srv/a.sqlite", true},
        {{"--config", file, "--port", "7800"}, "7800", "/srv/a.sqlite", true},
        {{"--port=7900", "--config=" + file, "--db", "/tmp/b"}, "7900", "/tmp/b", true},
    };
    for (const Row& r : rows) {
        Options o;
        QString error;
        ASSERT_TRUE(o.config.parse(QStringList{"kzlan-server"} + r.arguments, &error))
            << error.toStdString();
        EXPECT_EQ(o.cli.value(o.port).toStdString(), r.port) << r.arguments.join(' ').toStdString();
        EXPECT_EQ(o.cli.value(o.db).toStdString(), r.db) << r.arguments.join(' ').toStdString();
        EXPECT_EQ(o.cli.isSet(o.only), r.only) << r.arguments.join(' ').toStdString();
    }
}

TEST(ServerConfig, RefusalsNameTheFileAndLine)
{
    QTemporaryDir dir;
    const QString file = dir.filePath(QStringLiteral("c.conf"));
    struct Row
    {
        QByteArray text;
        QString error;
    };
    const Row rows[] = {
        {"port = 1\n\nbogus = 3\n", file + ":3: unknown option 'bogus'"},
        {"config = /etc/other.conf\n", file + ":1: 'config' is for the command line only"},
        {"port 1\n", file + ": line 1: expected 'option = value', not 'port 1'"},
        {"tls-only = 1\n", file + ": Unexpected value after '--tls-only'."},
    };
    for (const Row& r : rows) {
        writeFile(file, r.text);
        Options o;
        QString error;
        EXPECT_FALSE(o.config.parse({"kzlan-server", "--config", file}, &error)) << r.text.data();
        EXPECT_EQ(error, r.error) << r.text.data();
    }
    Options o;
    QString error;
    EXPECT_FALSE(o.config.parse({"kzlan-server", "--config", dir.filePath("none")}, &error));
    EXPECT_TRUE(error.startsWith("cannot read " + dir.filePath("none"))) << error.toStdString();
    writeFile(file, QByteArray(64 * 1024 + 1, '#'));
    EXPECT_FALSE(o.config.parse({"kzlan-server", "--config", file}, &error));
    EXPECT_EQ(error, file + " is larger than 65536 bytes");
}

TEST(ServerConfig, ReloadSaysWhatChangedAndKeepsTheOldOnError)
{
    QTemporaryDir dir;
    const QString file = dir.filePath(QStringLiteral("c.conf"));
    writeFile(file, "port = 7700\ndb = /srv/a.sqlite\n");
    Options o;
    QString error;
    ASSERT_TRUE(o.config.parse({"kzlan-server", "--config", file, "--db", "/cli.sqlite"}, &error));
    QStringList changed;

    writeFile(file, "port = 7701\ndb = /srv/b.sqlite\ntls-only = true\n");
    ASSERT_TRUE(o.config.reload(&changed, &error)) << error.toStdString();
    // The command line still wins over the file: db did not change.
    EXPECT_EQ(changed.join(QLatin1Char(',')).toStdString(), "port,tls-only");
    EXPECT_EQ(o.cli.value(o.port), "7701");
    EXPECT_EQ(o.cli.value(o.db), "/cli.sqlite");

    ASSERT_TRUE(o.config.reload(&changed, &error));
    EXPECT_TRUE(changed.isEmpty());

    // A file that cannot be read as options, or names an unknown one: the
    // options in force stay.
    const std::pair<QByteArray, QString> broken[] = {
        {"port = 7702\nnonsense\n", file + ": line 2: expected 'option = value', not 'nonsense'"},
        {"port = 7702\nbogus = 1\n", file + ":2: unknown option 'bogus'"},
    };
    for (const auto& [text, message] : broken) {
        writeFile(file, text);
        EXPECT_FALSE(o.config.reload(&changed, &error));
        EXPECT_EQ(error, message);
        EXPECT_EQ(o.cli.value(o.port), "7701") << text.data();
        EXPECT_TRUE(o.cli.isSet(o.only)) << text.data();
    }
}

class FirstAdmin : public ::testing::Test
{
protected:
    void SetUp() override
    {
        QString error;
        ASSERT_TRUE(storage.open(dir.filePath(QStringLiteral("db.sqlite")), &error))
            << error.toStdString();
    }
    bool passwordIs(const QString& password)
    {
        return Passwords::verify(password, storage.passwordOf(QStringLiteral("admin")));
    }
    QTemporaryDir dir;
    Storage storage;
};

TEST_F(FirstAdmin, PasswordFromAFileOrWrittenToIt)
{
    const QString file = dir.filePath(QStringLiteral("admin-password"));
    AdminPasswordSource source;
    source.file = file;
    QString note, error;
    ASSERT_TRUE(ensureAdmin(storage, source, &note, &error)) << error.toStdString();
    // The generated password went to a new file that only its owner reads.
    ASSERT_TRUE(QFile::exists(file));
    const auto others = QFileDevice::ReadGroup | QFileDevice::WriteGroup | QFileDevice::ExeGroup |
                        QFileDevice::ReadOther | QFileDevice::WriteOther | QFileDevice::ExeOther;
    EXPECT_EQ(QFile::permissions(file) & others, 0);
    EXPECT_TRUE(QFile::permissions(file) & QFileDevice::ReadOwner);
    const QString written = readPasswordFile(file, &error);
    EXPECT_GE(written.size(), 12);
    EXPECT_TRUE(passwordIs(written));
    EXPECT_TRUE(note.contains(file));

    // Once the account exists, neither a file nor a given password changes it.
    writeFile(file, "other\n");
    source.isGiven = true;
    source.given = QStringLiteral("given");
    ASSERT_TRUE(ensureAdmin(storage, source, &note, &error));
    EXPECT_TRUE(passwordIs(written));
    EXPECT_EQ(note, "the admin account exists; its password stays as it is");
}

TEST_F(FirstAdmin, SourcesInTurn)
{
    struct Row
    {
        QByteArray fileText; // null: no file
        bool given;
        const char* expected; // the password that logs in; null: refused
    };
    const Row rows[] = {
        {"s3cret\n", false, "s3cret"},
        {"s3cret\r\nsecond line\n", false, "s3cret"},
        {"no line end", false, "no line end"},
        {"pw from file\n", true, "given pw"}, // a given password comes first
        {"\n", false, nullptr},               // empty
        {QByteArray(4097, 'x'), false, nullptr},
    };
    int i = 0;
    for (const Row& r : rows) {
        Storage fresh;
        QString error, note;
        ASSERT_TRUE(fresh.open(dir.filePath(QStringLiteral("db%1.sqlite").arg(i)), &error));
        const QString file = dir.filePath(QStringLiteral("pw%1").arg(i++));
        writeFile(file, r.fileText);
        AdminPasswordSource source;
        source.file = file;
        source.isGiven = r.given;
        source.given = QStringLiteral("given pw");
        const bool ok = ensureAdmin(fresh, source, &note, &error);
        EXPECT_EQ(ok, r.expected != nullptr) << r.fileText.left(20).data();
        if (r.expected)
            EXPECT_TRUE(Passwords::verify(QString::fromUtf8(r.expected),
                                          fresh.passwordOf(QStringLiteral("admin"))))
                << r.fileText.left(20).data();
        else
            EXPECT_TRUE(fresh.passwordOf(QStringLiteral("admin")).isNull());
    }
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
