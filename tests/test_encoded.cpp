// Messages encoded once and sent through many resolvers: each resolver frames
// them with its own sequence numbers, and what arrives is what its own
// encoder would have sent.
#include "kzencoded.h"
#include "support.h"

#include <gtest/gtest.h>

using namespace kztest;

namespace {

// The logout of the frame format's worked example: body 00 11 02 00 07 00 00
// 00 00, coded, in a whole frame with sequence number 0.
const char* const kLogoutFrameSeq0 = "4b 5a 01 00 00 00 00 00 00 00 09 00 00 00 69 e7 42 0a"
                                     "00 78 cc 92 ae 3c 62 d0 d2 57 81 8e fc";

quint32 seqOf(const QByteArray& frame)
{
    return quint32(uchar(frame[4])) | quint32(uchar(frame[5])) << 8 |
           quint32(uchar(frame[6])) << 16 | quint32(uchar(frame[7])) << 24;
}

} // namespace

TEST(Encoded, KeptMessagesAreFramedByEachResolverWithItsOwnNumbers)
{
    const KZEncodedMessages logout([](KZProtocolResolver& r) { r.lanLogout(7); });
    EXPECT_EQ(logout.count(), 1);
    EXPECT_EQ(logout.payloadBytes(), 4); // the i32

    // A fresh resolver: the worked example, byte for byte.
    KZProtocolResolver fresh;
    FrameSink freshSink;
    freshSink.attach(fresh);
    logout.sendTo(fresh);
    ASSERT_EQ(freshSink.frames.size(), 1);
    EXPECT_EQ(hex(freshSink.frames[0]), hex(unhex(kLogoutFrameSeq0)));

    // One that has sent three messages: the same body, its own number 3 (and
    // so its own checksums).
    KZProtocolResolver busy;
    FrameSink busySink;
    busySink.attach(busy);
    for (int i = 0; i < 3; ++i) busy.lanLogout(i);
    busySink.frames.clear();
    logout.sendTo(busy);
    logout.sendTo(busy);
    ASSERT_EQ(busySink.frames.size(), 2);
    EXPECT_EQ(seqOf(busySink.frames[0]), 3u);
    EXPECT_EQ(seqOf(busySink.frames[1]), 4u);
    EXPECT_EQ(bodiesOf(busySink.stream()),
              (QList<QByteArray>{unhex("00 11 02 00 07 00 00 00 00"),
                                 unhex("00 11 02 00 07 00 00 00 00")}));
    EXPECT_NE(busySink.frames[0].mid(14, 4), freshSink.frames[0].mid(14, 4)) << "header CRC";
}

// Rows: what the kept messages bring to the receiver's callback equals what
// the sender's own encoders bring, for replies and requests, several
// messages in order, and a list so long that small frames split it.
TEST(Encoded, WhatArrivesIsWhatTheResolversOwnEncodersSend)
{
    QList<user_info> many;
    for (int i = 0; i < 300; ++i) {
        user_info u;
        u.name = QStringLiteral("user%1").arg(i);
        u.text2 = QStringLiteral("Full Name %1").arg(i);
        u.lv1Group = QStringLiteral("Plant");
        u.lv2Group = QStringLiteral("Hall %1").arg(i % 3);
        many.append(u);
    }
    const QList<QVariant> plans{
        QVariant(QList<QVariant>{QStringLiteral("2026-03-02"), QStringLiteral("rose.dst"),
                                 QStringLiteral("KZ-1"), 40, 1, QStringLiteral("admin")})};
    struct Row
    {
        const char* what;
        int capacity;
        std::function<void(KZProtocolResolver&)> encode;
    };
    const Row rows[] = {
        {"a reply", 0,
         [&](KZProtocolResolver& r) {
             r.lanGetDatePlanResponse(QStringLiteral("2026-03-02"), plans);
         }},
        {"two messages in order", 0,
         [&](KZProtocolResolver& r) {
             r.lanUserInfo(many.mid(0, 2));
             r.lanLogout(3);
         }},
        {"a list split into pieces", 512, [&](KZProtocolResolver& r) { r.lanUserInfo(many); }},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        const KZEncodedMessages kept(row.encode);
        KZProtocolResolver viaKept(row.capacity), direct(row.capacity);
        FrameSink keptSink, directSink;
        keptSink.attach(viaKept);
        directSink.attach(direct);
        viaKept.lanLogout(0); // both one message in, so that numbers are not all 0
        direct.lanLogout(0);
        kept.sendTo(viaKept);
        row.encode(direct);
        EXPECT_EQ(keptSink.frames, directSink.frames);
        if (row.capacity) {
            EXPECT_GT(keptSink.frames.size(), 2);
        }
    }
}

TEST(Encoded, AnEmptyObjectSendsNothing)
{
    KZProtocolResolver r;
    FrameSink sink;
    sink.attach(r);
    KZEncodedMessages().sendTo(r);
    EXPECT_EQ(KZEncodedMessages().count(), 0);
    EXPECT_TRUE(sink.frames.isEmpty());
}
