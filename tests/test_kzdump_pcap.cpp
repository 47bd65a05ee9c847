// kzdump and pcap: what the tap writes reads back as the same messages, and a
// capture written by hand (out of order, retransmitted, with a gap) is
// reassembled per TCP direction.
#include "kzdump_run.h"

#include <QFile>
#include <QTemporaryDir>

namespace {

using kzdumptest::jsonLines;
using kzdumptest::runTool;

TEST(KzdumpPcap, WhatTheTapWritesReadsBackAsTheSameMessages)
{
    const QString serverPort = QString::number(kzdumptest::freePort());
    QTemporaryDir dir;
    const QString pcap = dir.filePath(QStringLiteral("demo.pcap"));

    QProcess tap;
    const QString liveFile = dir.filePath(QStringLiteral("live.json")); // no pipe to fill up
    tap.setStandardOutputFile(liveFile);
    QByteArray banner;
    const quint16 port = kzdumptest::startTap(
        tap, {QStringLiteral("--json"), QStringLiteral("--once"), QStringLiteral("--pcap"), pcap},
        serverPort.toUShort(), &banner);
    ASSERT_TRUE(banner.contains(", address 127.0.0.1, ")) << banner.constData(); // loopback
    ASSERT_GT(port, 0) << banner.constData();

    const kzdumptest::Result demo =
        runTool(KZDEMO, {QStringLiteral("--listen"), serverPort, QStringLiteral("--connect"),
                         QString::number(port)});
    EXPECT_EQ(demo.rc, 0);
    ASSERT_TRUE(tap.waitForFinished(10000));
    QFile liveOut(liveFile);
    ASSERT_TRUE(liveOut.open(QIODevice::ReadOnly));
    const QString live = QString::fromUtf8(liveOut.readAll());
    const QList<QJsonObject> objects = jsonLines(live);
    ASSERT_GT(objects.size(), 40);
    EXPECT_EQ(objects.first()["event"].toString(), QStringLiteral("open"));
    EXPECT_EQ(objects.last()["event"].toString(), QStringLiteral("close"));
    int messages = 0;
    for (const QJsonObject& o : objects) {
        EXPECT_EQ(o["connection"].toInt(), 1) << qPrintable(QJsonDocument(o).toJson());
        if (o.contains("method")) {
            ++messages;
            EXPECT_TRUE(o["direction"].toString() == QStringLiteral("client→server") ||
                        o["direction"].toString() == QStringLiteral("server→client"));
            EXPECT_FALSE(o.contains("error")) << qPrintable(QJsonDocument(o).toJson());
        }
    }
    EXPECT_GT(messages, 40);

    // The file holds the same traffic: every line but the close event (the
    // file reader ends with a summary instead) is the same.
    const kzdumptest::Result read = runTool(KZDUMP, {QStringLiteral("--json"), pcap});
    EXPECT_EQ(read.rc, 0) << qPrintable(read.err);
    QStringList liveLines = live.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    QStringList readLines = read.out.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    ASSERT_FALSE(liveLines.isEmpty());
    ASSERT_FALSE(readLines.isEmpty());
    liveLines.removeLast();
    EXPECT_TRUE(readLines.takeLast().contains(QLatin1String("\"summary\"")));
    EXPECT_EQ(readLines, liveLines);
}

// A classic pcap file written byte by byte from the format: the logout frame
// of the frame format's worked example (31 bytes) sent from 10.0.0.1:50000 to
// 10.0.0.2:7600 in two segments, the second first, then the first twice.
struct Link
{
    const char* what;
    const char* linkType; // the file header's last field, little-endian
    const char* header;   // in front of each IPv4 packet
};

QByteArray handMadeCapture(const Link& link, bool withFirstSegment)
{
    const QByteArray fileHeader = QByteArray("d4 c3 b2 a1 02 00 04 00 00 00 00 00 00 00 00 00 "
                                             "ff ff 00 00 ") +
                                  link.linkType;
    // IPv4: version 4, 20-byte header, total length, DF, TTL 64, TCP,
    // 10.0.0.1 -> 10.0.0.2. TCP: ports 50000 (c3 50) -> 7600 (1d b0), the
    // sequence number, data offset 5 words, the flags, window.
    const auto packet = [&](const char* length, const char* seq, const char* flags,
                            const char* data) {
        const QByteArray ip = QByteArray("45 00 00 ") + length +
                              " 00 00 40 00 40 06 00 00 0a 00 00 01 0a 00 00 02 "
                              "c3 50 1d b0 " +
                              seq + " 00 00 00 00 50 " + flags + " ff ff 00 00 00 00 " + data;
        const QByteArray bytes = QByteArray::fromHex(QByteArray(link.header) + ip);
        QByteArray record = QByteArray::fromHex("00 00 00 00 00 00 00 00");
        record.append(char(bytes.size()))
            .append(3, '\0')
            .append(char(bytes.size()))
            .append(3, '\0');
        return record + bytes;
    };
    // SYN at 100; the frame's bytes 0..19 at 101 and bytes 20..30 at 121.
    const char* first = "4b 5a 01 00 00 00 00 00 00 00 09 00 00 00 69 e7 42 0a 00 78";
    QByteArray file = QByteArray::fromHex(fileHeader) + packet("28", "00 00 00 64", "02", "") +
                      packet("33", "00 00 00 79", "18", "cc 92 ae 3c 62 d0 d2 57 81 8e fc");
    if (withFirstSegment)
        file += packet("3c", "00 00 00 65", "18", first) + packet("3c", "00 00 00 65", "18", first);
    return file;
}

TEST(KzdumpPcap, HandMadeCaptureIsReassembledPerDirection)
{
    const Link links[] = {
        {"raw IPv4", "65 00 00 00", ""},
        {"Ethernet", "01 00 00 00", "02 00 00 00 00 02 02 00 00 00 00 01 08 00"},
        {"Linux cooked", "71 00 00 00", "00 04 00 01 00 06 02 00 00 00 00 01 00 00 08 00"},
    };
    for (const Link& link : links) {
        const kzdumptest::Result r =
            runTool(KZDUMP, {QStringLiteral("-")}, handMadeCapture(link, true));
        EXPECT_EQ(r.rc, 0) << link.what << qPrintable(r.err);
        EXPECT_EQ(r.out, QStringLiteral("-- connection 1 from 10.0.0.1:50000 to 10.0.0.2:7600\n"
                                        "#1 client→server seq 0 request Logout (0x0002), 1 frame, "
                                        "9 bytes\n    value = 7  (i32 @0)\n"
                                        "1 message, 0 drop notices, 0 bytes skipped\n"))
            << link.what;
    }
    // Without the first segment: the gap is named, the rest is no frame.
    const kzdumptest::Result r =
        runTool(KZDUMP, {QStringLiteral("-")}, handMadeCapture(links[0], false));
    EXPECT_EQ(r.rc, 0);
    EXPECT_EQ(r.out, QStringLiteral("-- connection 1 from 10.0.0.1:50000 to 10.0.0.2:7600\n"
                                    "-- client→server 20 bytes missing from the capture\n"
                                    "-- client→server skipped 11 bytes at offset 0: not part of a "
                                    "good frame\n    hex: cc 92 ae 3c 62 d0 d2 57 81 8e fc\n"
                                    "0 messages, 0 drop notices, 11 bytes skipped\n"));
}

TEST(KzdumpPcap, IPv6CaptureShowsItsAddresses)
{
    // Raw IP link; one IPv6 packet: payload length 51 (20 TCP + 31), next header TCP, hop
    // limit 64, ::1 to ::1; TCP 50000 -> 7600 carrying the whole worked-example frame.
    const QByteArray file = QByteArray::fromHex(
        "d4c3b2a1020004000000000000000000ffff000065000000"
        "0000000000000000"
        "5b000000"
        "5b000000"
        "60000000 0033 06 40 00000000000000000000000000000001 00000000000000000000000000000001"
        "c350 1db0 00000064 00000000 50 18 ffff 0000 0000"
        "4b5a01000000000000000900000069e7420a0078cc92ae3c62d0d257818efc");
    const kzdumptest::Result r = runTool(KZDUMP, {QStringLiteral("-")}, file);
    EXPECT_EQ(r.rc, 0) << qPrintable(r.err);
    EXPECT_TRUE(r.out.startsWith(QStringLiteral("-- connection 1 from [::1]:50000 to [::1]:7600\n"
                                                "#1 client→server seq 0 request Logout")))
        << qPrintable(r.out);
}

TEST(KzdumpPcap, PacketsThatLieAboutTheirHeadersArePassedOver)
{
    // File header (raw IPv4), then one record of 40 bytes per row.
    const QByteArray file = QByteArray::fromHex("d4c3b2a1020004000000000000000000ffff000065000000");
    const QByteArray record = QByteArray::fromHex("00000000000000002800000028000000");
    struct Row
    {
        const char* what;
        const char* packet; // 40 bytes: IPv4 and TCP headers
    };
    const Row rows[] = {
        {"IPv4 header of 60 bytes in a 40-byte packet",
         "4f 00 00 28 00 00 40 00 40 06 00 00 0a 00 00 01 0a 00 00 02 "
         "c3 50 1d b0 00 00 00 64 00 00 00 00 50 18 ff ff 00 00 00 00"},
        {"TCP header of 60 bytes in a 40-byte packet",
         "45 00 00 28 00 00 40 00 40 06 00 00 0a 00 00 01 0a 00 00 02 "
         "c3 50 1d b0 00 00 00 64 00 00 00 00 f0 18 ff ff 00 00 00 00"},
        {"IPv4 total length beyond the packet",
         "45 00 ff ff 00 00 40 00 40 06 00 00 0a 00 00 01 0a 00 00 02 "
         "c3 50 1d b0 00 00 00 64 00 00 00 00 50 18 ff ff 00 00 00 00"},
        {"an IPv6 packet cut inside its header",
         "60 00 00 00 ff ff 06 40 00 00 00 00 00 00 00 00 00 00 00 00 "
         "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"},
    };
    for (const Row& row : rows) {
        const kzdumptest::Result r =
            runTool(KZDUMP, {QStringLiteral("-")}, file + record + QByteArray::fromHex(row.packet));
        EXPECT_EQ(r.rc, 0) << row.what << qPrintable(r.err);
        EXPECT_TRUE(r.out.endsWith(QLatin1String("0 messages, 0 drop notices, 0 bytes skipped\n")))
            << row.what << qPrintable(r.out);
    }
    // A record that claims more than any packet: the file is refused, by record.
    const kzdumptest::Result r = runTool(
        KZDUMP, {QStringLiteral("-")},
        file + QByteArray::fromHex("0000000000000000ffffff7fffffff7f") + QByteArray(64, '\0'));
    EXPECT_EQ(r.rc, 1);
    EXPECT_TRUE(r.err.contains(QLatin1String("record 1 claims 2147483647 bytes")))
        << qPrintable(r.err);
}

} // namespace
