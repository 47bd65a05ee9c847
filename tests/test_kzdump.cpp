// kzdump on recorded sessions: the demo of every family captured to a file,
// a hand-built stream with the families the demo leaves out and with what
// cannot be decoded, its JSON form, and the demo relayed through the tap.
#include "kzprotocolresolver_p.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTcpServer>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cstdlib>

namespace {

QString run(const char* program, const QStringList& args, const QByteArray& input = {},
            int* rc = nullptr)
{
    QProcess p;
    p.start(QString::fromLocal8Bit(program), args);
    p.write(input);
    p.closeWriteChannel();
    EXPECT_TRUE(p.waitForFinished(60000)) << program;
    if (rc) *rc = p.exitCode();
    return QString::fromUtf8(p.readAllStandardOutput());
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
    EXPECT_TRUE(out.endsWith(QStringLiteral(" messages, 0 drop notices\n")));
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
        "6 messages, 1 drop notice\n",
    };
    for (const char* e : expected)
        EXPECT_TRUE(out.contains(QString::fromUtf8(e))) << e << qPrintable(out);
}

TEST(Kzdump, JsonGivesOneObjectPerMessageWithTypedFields)
{
    const QStringList lines =
        run(KZDUMP, {QStringLiteral("--json")}, handBuiltStream()).split('\n', Qt::SkipEmptyParts);
    ASSERT_EQ(lines.size(), 7); // six messages, one dropped frame
    QList<QJsonObject> objects;
    for (const QString& line : lines) {
        QJsonParseError error;
        const QJsonDocument doc = QJsonDocument::fromJson(line.toUtf8(), &error);
        ASSERT_EQ(error.error, QJsonParseError::NoError) << qPrintable(line);
        objects.append(doc.object());
    }
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
    EXPECT_EQ(objects[3]["code"].toInt(), 0x7777);
    EXPECT_EQ(objects[3]["error"].toString(), QStringLiteral("unknown method code"));
    EXPECT_EQ(objects[4]["notice"].toString(), QStringLiteral("frame checksum mismatch"));
    EXPECT_TRUE(objects[5]["error"].toString().startsWith(QStringLiteral("body cut")));
}

TEST(Kzdump, TapRelaysTheDemoAndShowsBothDirections)
{
    QTcpServer probe; // a free port for the demo's server
    ASSERT_TRUE(probe.listen(QHostAddress::LocalHost, 0));
    const QString serverPort = QString::number(probe.serverPort());
    probe.close();

    QProcess tap;
    tap.start(QString::fromLocal8Bit(KZDUMP),
              {QStringLiteral("--once"), QStringLiteral("--tap"), QStringLiteral("0"),
               QStringLiteral("127.0.0.1:") + serverPort});
    tap.setReadChannel(QProcess::StandardError); // the port is printed there
    QByteArray banner;
    while (!banner.contains('\n') && tap.waitForReadyRead(10000)) banner += tap.readAll();
    const QByteArray port = banner.mid(banner.indexOf("port ") + 5).split(',').value(0);
    ASSERT_GT(port.toInt(), 0) << banner.constData();

    int rc = -1;
    run(KZDEMO, {QStringLiteral("--listen"), serverPort, QStringLiteral("--connect"), port}, {},
        &rc);
    EXPECT_EQ(rc, 0);
    ASSERT_TRUE(tap.waitForFinished(10000));
    const QString out = QString::fromUtf8(tap.readAllStandardOutput());
    EXPECT_TRUE(out.startsWith(QStringLiteral("-- connection 1 from 127.0.0.1:")));
    EXPECT_TRUE(out.contains(QStringLiteral("#1 client→server seq 0 request Login (0x0000)")));
    EXPECT_TRUE(out.contains(QStringLiteral("#2 server→client seq 0 reply Login (0x0000)")));
    EXPECT_TRUE(out.contains(QStringLiteral("request MacTsfFileContent (0x050B), 33 frames")));
    EXPECT_TRUE(out.contains(QStringLiteral(" reply MacTsfFileContent (0x050B)")));
    EXPECT_TRUE(out.contains(QStringLiteral("request Logout (0x0002)")));
    EXPECT_TRUE(out.endsWith(QStringLiteral("-- connection closed\n")));
    EXPECT_FALSE(out.contains(QStringLiteral("-- client→server dropped")));
}

} // namespace
