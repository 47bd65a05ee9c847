// The command lines of kzlan-client and kzdemo: help and version, unknown options and
// sub-commands, missing arguments and bad values each named with the usage and exit code 1,
// and kzlan-client's --json printing one JSON document for every outcome, failures included.
#include "lan.h"

#include <gtest/gtest.h>

#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>

using namespace lan;

namespace {

QStringList split(const char* words)
{
    return QString::fromUtf8(words).split(QLatin1Char(' '), Qt::SkipEmptyParts);
}

TEST(LanCli, EveryOutcomeNamesItselfWithItsExitCode)
{
    Server server;
    ASSERT_TRUE(server.start());
    const struct
    {
        const char* args;
        int code;
        const char* out; // in stdout, "" for anything
        const char* err; // in stderr, "" for anything
    } rows[] = {
        {"--help", 0, "usage: kzlan-client", ""},
        {"--version", 0, "kzlan-client ", ""},
        {"users list --help", 0, "users list", ""},
        {"--bogus login", 1, "", "unknown option --bogus"},
        {"frobnicate", 1, "", "unknown sub-command: frobnicate"},
        {"users", 1, "", "users needs one of"},
        {"users", 1, "", "usage: kzlan-client [options] users add NAME"},
        {"users add", 1, "", "usage: kzlan-client [options] users add"},
        {"users add carol", 1, "", "a new user needs a --password"},
        {"users list --bogus", 1, "", "usage: kzlan-client [options] users list"},
        {"--port 99999 login", 1, "", "bad value for --port: 99999"},
        {"--port login", 1, "", "bad value for --port: login"},
        {"--timeout 0 login", 1, "", "bad value for --timeout: 0"},
        {"plans notadate", 1, "", "not a date (YYYY-MM-DD): notadate"},
        {"plans 2024-02-30", 1, "", "not a date (YYYY-MM-DD): 2024-02-30"},
        {"prices set a.dst cheap", 1, "", "not a price: cheap"},
        {"plans 2024-03-05", 0, "", ""},
        {"--password wrong login", 3, "", "login refused for user 'admin'"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.args);
        const Outcome r = client(server, split(row.args));
        EXPECT_EQ(r.code, row.code) << r.err.constData();
        EXPECT_TRUE(r.out.contains(row.out)) << r.out.constData();
        EXPECT_TRUE(r.err.contains(row.err)) << r.err.constData();
    }
}

TEST(LanCli, JsonIsPrintedForEveryOutcome)
{
    Server server;
    ASSERT_TRUE(server.start());
    const struct
    {
        const char* args;
        int code;
        bool ok;
        const char* error; // in the document's "error", "" for none
    } rows[] = {
        {"--json login", 0, true, ""},
        {"--json --password wrong login", 3, false, "login refused"},
        {"--json --bogus login", 1, false, "unknown option --bogus"},
        {"--json plans notadate", 1, false, "not a date"},
        {"--json users delete nobody-at-all", 5, false, ""},
        {"--json --port 1 login", 2, false, "cannot reach"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.args);
        const Outcome r = client(server, split(row.args));
        EXPECT_EQ(r.code, row.code) << r.err.constData();
        QJsonParseError e{};
        const QJsonObject doc = QJsonDocument::fromJson(r.out, &e).object();
        ASSERT_EQ(e.error, QJsonParseError::NoError) << r.out.constData();
        EXPECT_EQ(doc.value(QStringLiteral("ok")).toBool(), row.ok) << r.out.constData();
        EXPECT_TRUE(
            doc.value(QStringLiteral("error")).toString().contains(QString::fromUtf8(row.error)))
            << r.out.constData();
    }
}

TEST(LanCli, TheDemoRunsOnlyWhenAskedTo)
{
    const struct
    {
        const char* args;
        int code;
        const char* out;
        const char* err;
    } rows[] = {
        {"--help", 0, "usage: kzdemo", ""},
        {"--version", 0, "kzdemo ", ""},
        {"--bogus", 1, "", "unknown option --bogus"},
        {"--bogus", 1, "", "usage: kzdemo"},
        {"--listen", 1, "", "--listen needs a value"},
        {"--listen 99999", 1, "", "bad value for --listen: 99999"},
        {"--connect port", 1, "", "bad value for --connect: port"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.args);
        QProcess p;
        p.start(QStringLiteral(KZDEMO), split(row.args));
        ASSERT_TRUE(p.waitForFinished(10000));
        const QByteArray out = p.readAllStandardOutput(), err = p.readAllStandardError();
        EXPECT_EQ(p.exitCode(), row.code) << err.constData();
        EXPECT_TRUE(out.contains(row.out)) << out.constData();
        EXPECT_TRUE(err.contains(row.err)) << err.constData();
        EXPECT_FALSE(out.contains("server listening")) << "the demo ran";
    }
}

} // namespace
