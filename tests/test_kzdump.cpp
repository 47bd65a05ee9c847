// kzdump on recorded sessions: the demo of every family captured to a file,
// a hand-built stream with the families the demo leaves out and with what
// cannot be decoded, its JSON form, and the demo relayed through the tap.
#include "kzdump_run.h"
#include "kzprotocolresolver_p.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cstdlib>

namespace {

using kzdumptest::jsonLines;
using kzdumptest::runTool;

QString run(const char* program, const QStringList& args, const QByteArray& input = {},
            int* rc = nullptr)
{
    const kzdumptest::Result r = runTool(program, args, input);
    if (rc) *rc = r.rc;
    return r.out;
}

void collect(void* ctx, char* bytes, int n)
{
    static_cast<QByteArray*>(ctx)->append(bytes, n);
    std::free(bytes);
}

// Messages of the families the demo does not run, then what kzdump cannot
// decode: an unknown code, a damaged frame, a cut body; a good frame last.
QByteArray handBuiltStream()
{
    QByteArray out;
    KZProtocolResolver tx;
    tx.setReceiveData(&out);
    tx.setParsePackResult(&collect);
    operator_user op;
    op.name = QStringLiteral("op1");
    op.text2 = QStringLiteral("Olga");
    op.flagB = true;
    tx.lanOperatorUserInfo({op.name}, {{op.name, op}});
    tx.lanSetPermissionResult(true, QStringLiteral("carol"),
                              {{QStringLiteral("edit"), fctp_user2_power(5u)}});
    const QVariantList row{
        "a", "b", "c", "d",
        1,   2,   3,   QVariant::fromValue(QMap<QString, int>{{QStringLiteral("x"), 4}})};
    tx.lanInitWorkshopDataResponse({QVariant(row)});
    auto* d = KZProtocolResolverPrivate::get(&tx);
    d->packSend(QByteArray(), kz::Request, kz::kMessageType, 0x7777, QByteArray("\x01\x02"), 1);
    const int at = out.size();
    tx.lanLogout(7);
    out[at + 20] = char(out[at + 20] ^ 0x40);
    d->packSend(QByteArray(), kz::Request, kz::kMessageType, ushort(kz::Method::Logout),
                QByteArray("\x07\x00", 2), 1); // i32 value, one byte short
    tx.lanLogout(9);
    return out;
}

TEST(Kzdump, DemoSessionShowsEveryFamilyByName)
{
    QTemporaryDir dir;
    const QString capture = dir.filePath(QStringLiteral("demo.bin"));
    int rc = -1;
    run(KZDEMO, {QStringLiteral("--capture"), capture}, {}, &rc);
    ASSERT_EQ(rc, 0);
    const QString out = run(KZDUMP, {capture});
    const char* const expected[] = {
        "#1 seq 0 request Login (0x0000), 1 frame, 34 bytes\n"
        "    account = \"operator\"  (str16 @0)\n"
        "    passwordSize = 16  (i16 @11)",
        "reply Login (0x0000), 1 frame, 12 bytes\n    code = 0  (i32 @0)",
        "request AddUser (0x001A), 1 frame, 53 bytes\n    name = \"carol\"",
        "reply MoveUserToGroup (0x0037), 1 frame, 29 bytes\n    names = [1]{\"carol\"}",
        "request MacInfo (0x0031), 1 frame, 168 bytes\n    lv1Count = 2  (i16 @0)\n"
        "    lv1 = \"Hall 1\"",
        "    path = \"/designs\"  (strz @0)\n    count = 1  (i16 @9)\n    value = 1  (i16 @11)\n"
        "    file = \"rose.dst\"  (strz @13)",
        "request LoadSharedFiles (0x0504), 1 frame, 14 bytes\n    path = \"/shared\"",
        "request MacTsfFileContent (0x050B), 33 frames, 65573 bytes\n    p = 1",
        "    len = 65536  (i32 @12)",
        "    plans = [2] {\"PO-1001\", \"Logo patch\", \"M-01\", \"early\", \"1200\", "
        "\"2024-03-05\"}",
        "    nameCount = 2  (i16 @22)\n    name = \"rose.dst\"",
        "request QueryDateOEEData (0x",
        "    from = \"2024-03-05\"",
        "request AddPlanShutItem (0x0411)",
        "request RemoteSetMode (0x",
        "request QueryLog (0x",
        "request AddFilePrice (0x",
        "request MacWorkLog (0x",
        "request Logout (0x0002), 1 frame, 9 bytes\n    value = 0  (i32 @0)",
    };
    for (const char* e : expected) EXPECT_TRUE(out.contains(QString::fromUtf8(e))) << e;
    EXPECT_FALSE(out.contains(QStringLiteral("    ? ="))) << "a field without a name";
    EXPECT_FALSE(out.contains(QStringLiteral("!!")));
    EXPECT_TRUE(out.endsWith(QStringLiteral(" messages, 0 drop notices, 0 bytes skipped\n")));
}

TEST(Kzdump, HexStreamShowsWhatCannotBeDecodedAsSuch)
{
    const QString out =
        run(KZDUMP, {QStringLiteral("--hex"), QStringLiteral("-")}, handBuiltStream().toHex(' '));
    const char* const expected[] = {
        "request OperatorUserInfo (0x",
        "    userCount = 1",
        "    name = \"op1\"",
        "    flagB = true",
        "request SetPermission (0x",
        "    powerCount = 1",
        "    power = 5  (u32 @",
        "    target = \"carol\"",
        "    ok = true",
        "    rows = [1] {\"a\", \"b\", \"c\", \"d\", 1, 2, 3, [1]}  (list @0)",
        "request <unknown code> (0x7777), 1 frame, 7 bytes\n"
        "    !! unknown method code\n    hex: 00 11 77 77 01 02 00\n",
        "-- dropped 31 bytes: frame checksum mismatch\n    hex: 4b 5a 01 00",
        "request Logout (0x0002), 1 frame, 7 bytes\n    value = 0  (i32 @0)\n"
        "    !! body cut: the data ends inside the field at @0\n    hex: 00 11 02 00 07 00 00\n",
        "request Logout (0x0002), 1 frame, 9 bytes\n    value = 9  (i32 @0)\n",
        // The damaged frame's bytes are skipped too: none of them is a good frame.
        "-- skipped 31 bytes at offset ",
        "6 messages, 1 drop notice, 31 bytes skipped\n",
    };
    for (const char* e : expected)
        EXPECT_TRUE(out.contains(QString::fromUtf8(e))) << e << qPrintable(out);
}

// The logout frame of the frame format's worked example: seq 0, no attr,
// body 00 11 02 00 07 00 00 00 00 coded, both checksums.
const char* const kLogout = "4b 5a 01 00 00 00 00 00 00 00 09 00 00 00 69 e7 42 0a "
                            "00 78 cc 92 ae 3c 62 d0 d2 57 81 8e fc ";
// The same frame with its sequence number changed and its header checksum
// not: no frame at all, so the engine raises nothing for it.
const char* const kHeaderDamaged = "4b 5a 01 00 00 01 00 00 00 00 09 00 00 00 69 e7 42 0a "
                                   "00 78 cc 92 ae 3c 62 d0 d2 57 81 8e fc ";
// "not a frame!!": 13 bytes of noise.
const char* const kNoise = "6e 6f 74 20 61 20 66 72 61 6d 65 21 21 ";

TEST(Kzdump, BytesOutsideGoodFramesAreShownWhereTheyOccurAndCounted)
{
    struct Row
    {
        const char* what;
        QByteArray hex;
        QStringList shown; // in this order
        const char* summary;
    };
    const QByteArray logout(kLogout);
    const Row rows[] = {
        {"noise between frames",
         logout + kNoise + logout,
         {"#1 seq 0 request Logout", "-- skipped 13 bytes at offset 31: not part of a good frame\n"
                                     "    hex: 6e 6f 74 20 61 20 66 72 61 6d 65 21 21\n#2 seq 0"},
         "2 messages, 0 drop notices, 13 bytes skipped\n"},
        {"a frame whose header is damaged",
         logout + kHeaderDamaged + logout,
         {"#1 seq 0",
          "-- skipped 31 bytes at offset 31: not part of a good frame\n"
          "    hex: 4b 5a 01 00 00 01",
          "#2 seq 0"},
         "2 messages, 0 drop notices, 31 bytes skipped\n"},
        {"noise that starts like a frame",
         "4b 5a 02 6a 75 6e 6b " + logout,
         {"-- skipped 7 bytes at offset 0: not part of a good frame", "#1 seq 0"},
         "1 message, 0 drop notices, 7 bytes skipped\n"},
        {"a stream cut inside a frame",
         logout + logout.left(36),
         {"#1 seq 0", "-- the stream ends inside a frame: 12 bytes at offset 31 wait for the "
                      "rest\n    hex: 4b 5a 01 00 00 00 00 00 00 00 09 00\n"},
         "1 message, 0 drop notices, 0 bytes skipped, 12 bytes cut off\n"},
        {"a stream cut inside its header",
         logout + "4b 5a 01",
         {"#1 seq 0", "-- the stream ends inside a frame: 3 bytes at offset 31"},
         "1 message, 0 drop notices, 0 bytes skipped, 3 bytes cut off\n"},
    };
    for (const Row& row : rows) {
        const QString out = run(KZDUMP, {QStringLiteral("--hex")}, row.hex);
        int from = 0;
        for (const QString& part : row.shown) {
            const int at = out.indexOf(part, from);
            EXPECT_GE(at, from) << row.what << ": " << qPrintable(part) << "\n" << qPrintable(out);
            from = qMax(from, at);
        }
        EXPECT_TRUE(out.endsWith(QLatin1String(row.summary))) << row.what << "\n"
                                                              << qPrintable(out);
    }
}

TEST(Kzdump, AStreamCutInsideASplitBodySaysSo)
{
    // A body of 100 bytes (flag, type, method, 3 names of 30 letters, zero) in frames of at
    // most 64 bytes: 4 pieces of 30, 30, 30 and 10 bytes of body; the last one never arrives.
    QList<QByteArray> frames;
    KZProtocolResolver tx(64);
    tx.setReceiveData(&frames);
    tx.setParsePackResult([](void* ctx, char* bytes, int n) {
        static_cast<QList<QByteArray>*>(ctx)->append(QByteArray(bytes, n));
        std::free(bytes);
    });
    const QString name(30, QLatin1Char('n'));
    tx.lanDeleteUser({name, name, name});
    ASSERT_EQ(frames.size(), 4);
    const QString out = run(KZDUMP, {}, frames[0] + frames[1] + frames[2]);
    EXPECT_EQ(out,
              QStringLiteral("-- the stream ends inside split body 0: 90 of 100 bytes arrived\n"
                             "0 messages, 0 drop notices, 0 bytes skipped, 90 bytes cut off\n"));
    // Whole, it is one message and nothing is cut.
    EXPECT_TRUE(run(KZDUMP, {}, frames.join())
                    .endsWith(QStringLiteral("1 message, 0 drop notices, 0 bytes skipped\n")));
}

TEST(Kzdump, JsonReportsSkippedAndCutBytesAsObjects)
{
    const QList<QJsonObject> objects =
        jsonLines(run(KZDUMP, {QStringLiteral("--json"), QStringLiteral("--hex")},
                      QByteArray(kLogout) + kNoise + kLogout + "4b 5a"));
    ASSERT_EQ(objects.size(), 5);
    EXPECT_EQ(objects[1], (QJsonObject{{"skipped", 13},
                                       {"offset", 31},
                                       {"hex", "6e 6f 74 20 61 20 66 72 61 6d 65 21 21"}}));
    EXPECT_EQ(objects[2]["n"].toInt(), 2);
    EXPECT_EQ(objects[3], (QJsonObject{{"cut", 2}, {"offset", 75}, {"hex", "4b 5a"}}));
    EXPECT_EQ(objects[4]["summary"].toObject(),
              (QJsonObject{{"messages", 2}, {"notices", 0}, {"skipped", 13}, {"cut", 2}}));
}

TEST(Kzdump, MistakesAreNamedAndEndWithAnExitCode)
{
    QTemporaryDir dir;
    const QString cutPcap = dir.filePath(QStringLiteral("cut.pcap"));
    {
        QFile f(cutPcap);
        ASSERT_TRUE(f.open(QIODevice::WriteOnly));
        // A pcap file header (raw IPv4) and half a record header.
        f.write(QByteArray::fromHex("d4c3b2a1020004000000000000000000ffff000065000000"
                                    "0000000000000000"));
    }
    struct Row
    {
        QStringList args;
        QByteArray input;
        int rc;
        const char* err; // what standard error must say
        bool usage;      // and whether the usage follows
    };
    const Row rows[] = {
        {{"--bogus"}, {}, 1, "kzdump: unknown option '--bogus'\n", true},
        {{"a.bin", "b.bin"}, {}, 1, "kzdump: one input only: 'a.bin' and 'b.bin'\n", true},
        {{"--tap", "7600"}, {}, 1, "kzdump: --tap needs LISTEN_PORT and HOST:PORT\n", true},
        {{"--tap", "70000", "127.0.0.1:7600"},
         {},
         1,
         "kzdump: --tap: '70000' is not a port to listen on (0 to 65535)\n",
         false},
        {{"--tap", "0", "localhost"},
         {},
         1,
         "kzdump: --tap: 'localhost' is not HOST:PORT (port 1 to 65535)\n",
         false},
        {{"--listen", "everywhere", "--tap", "0", "127.0.0.1:7600"},
         {},
         1,
         "kzdump: --listen: 'everywhere' is not an IP address\n",
         false},
        {{"--pcap", "x.pcap"}, {}, 1, "kzdump: --listen, --pcap and --once go with --tap\n", true},
        {{"/nonexistent/capture.bin"},
         {},
         1,
         "kzdump: cannot read /nonexistent/capture.bin: ",
         false},
        {{"--hex"}, "4b 5a 0", 1, "kzdump: standard input: not hex text (--hex)\n", false},
        {{cutPcap}, {}, 1, "the file ends inside the header of record 1\n", false},
    };
    for (const Row& row : rows) {
        const kzdumptest::Result r = runTool(KZDUMP, row.args, row.input);
        EXPECT_EQ(r.rc, row.rc) << qPrintable(row.args.join(' '));
        EXPECT_TRUE(r.err.contains(QLatin1String(row.err))) << qPrintable(r.err);
        EXPECT_EQ(r.err.contains(QLatin1String("usage: kzdump")), row.usage) << qPrintable(r.err);
    }
    const kzdumptest::Result version = runTool(KZDUMP, {QStringLiteral("--version")});
    EXPECT_EQ(version.rc, 0);
    EXPECT_TRUE(version.out.startsWith(QLatin1String("kzdump "))) << qPrintable(version.out);
    const kzdumptest::Result help = runTool(KZDUMP, {QStringLiteral("--help")});
    EXPECT_EQ(help.rc, 0);
    EXPECT_TRUE(help.out.contains(QLatin1String("--listen"))) << qPrintable(help.out);
}

TEST(Kzdump, JsonGivesOneObjectPerMessageWithTypedFields)
{
    const QList<QJsonObject> objects =
        jsonLines(run(KZDUMP, {QStringLiteral("--json")}, handBuiltStream()));
    // Six messages, one dropped frame, its bytes skipped, the summary.
    ASSERT_EQ(objects.size(), 9);
    const QJsonObject permission = objects[1];
    EXPECT_EQ(permission["method"].toString(), QStringLiteral("SetPermission"));
    EXPECT_EQ(permission["kind"].toString(), QStringLiteral("request"));
    EXPECT_EQ(permission["seq"].toInt(), 1);
    const QJsonArray fields = permission["fields"].toArray();
    ASSERT_EQ(fields.size(), 5);
    EXPECT_EQ(fields[3].toObject()["name"].toString(), QStringLiteral("target"));
    EXPECT_EQ(fields[3].toObject()["value"].toString(), QStringLiteral("carol"));
    EXPECT_EQ(fields[4].toObject()["value"], QJsonValue(true));
    EXPECT_EQ(fields[2].toObject()["value"], QJsonValue(5));
    // A list of rows is an array of arrays, a map inside a row an object.
    const QJsonValue rows = objects[2]["fields"].toArray()[0].toObject()["value"];
    EXPECT_EQ(QString::fromUtf8(QJsonDocument(rows.toArray()).toJson(QJsonDocument::Compact)),
              QStringLiteral(R"([["a","b","c","d",1,2,3,{"x":4}]])"));
    EXPECT_EQ(objects[3]["code"].toInt(), 0x7777);
    EXPECT_EQ(objects[3]["error"].toString(), QStringLiteral("unknown method code"));
    EXPECT_EQ(objects[4]["notice"].toString(), QStringLiteral("frame checksum mismatch"));
    EXPECT_EQ(objects[5]["skipped"].toInt(), 31);
    EXPECT_EQ(objects[5]["offset"], objects[4]["offset"]);
    EXPECT_TRUE(objects[6]["error"].toString().startsWith(QStringLiteral("body cut")));
    EXPECT_EQ(objects[8]["summary"].toObject(),
              (QJsonObject{{"messages", 6}, {"notices", 1}, {"skipped", 31}, {"cut", 0}}));
}

TEST(Kzdump, TapRelaysTheDemoAndShowsBothDirections)
{
    const QString serverPort = QString::number(kzdumptest::freePort());
    QProcess tap;
    QByteArray banner;
    const quint16 port =
        kzdumptest::startTap(tap, {QStringLiteral("--once")}, serverPort.toUShort(), &banner);
    ASSERT_GT(port, 0) << banner.constData();

    int rc = -1;
    run(KZDEMO,
        {QStringLiteral("--listen"), serverPort, QStringLiteral("--connect"),
         QString::number(port)},
        {}, &rc);
    EXPECT_EQ(rc, 0);
    ASSERT_TRUE(tap.waitForFinished(10000));
    const QString out = QString::fromUtf8(tap.readAllStandardOutput());
    EXPECT_TRUE(out.startsWith(QStringLiteral("-- connection 1 from 127.0.0.1:")));
    EXPECT_TRUE(out.contains(QStringLiteral("#1 client→server seq 0 request Login (0x0000)")));
    EXPECT_TRUE(out.contains(QStringLiteral("#2 server→client seq 0 reply Login (0x0000)")));
    EXPECT_TRUE(out.contains(QStringLiteral("request MacTsfFileContent (0x050B), 33 frames")));
    EXPECT_TRUE(out.contains(QStringLiteral(" reply MacTsfFileContent (0x050B)")));
    EXPECT_TRUE(out.contains(QStringLiteral("request Logout (0x0002)")));
    EXPECT_TRUE(out.endsWith(QStringLiteral("-- connection 1 closed\n")));
    EXPECT_FALSE(out.contains(QStringLiteral("-- client→server dropped")));
}

} // namespace
