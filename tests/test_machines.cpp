// Machines: registry, status reports and remote panel. One row per message
// direction, then what a row cannot show: the grouped listing and its
// decoder's index rules, the empty work log, large and cut blocks, and
// hand-built payloads.
#include "rows.h"

using namespace kztest;
using R = KZProtocolResolver;

namespace {

const QString a = QStringLiteral("a"), b = QStringLiteral("b"), c = QStringLiteral("c"),
              m = QStringLiteral("m"), none;
const QStringList ab{a, b};
const QMap<QString, int> counts{{b, -2}, {a, 1}};

mac_info mac(const char* id, const char* lv1, const char* lv2, quint8 code = 1, int value7 = 0,
             const char* text2 = "t", const char* text4 = "u")
{
    return mac_info{
        QString::fromUtf8(id),  QString::fromUtf8(text2), code,  QString::fromUtf8(text4),
        QString::fromUtf8(lv1), QString::fromUtf8(lv2),   value7};
}

/// One machine entry of the listing: strz mac, strz text2, u8 code, strz text4, i32 value7.
QByteArray entry(const char* id, quint8 code = 1, qint32 value7 = 7)
{
    QByteArray e = QByteArray(id) + '\0' + "t" + '\0' + char(code) + "u" + '\0';
    return e.append(reinterpret_cast<const char*>(&value7), 4); // little-endian host
}

/// What a listing request with exactly `payload` decodes to, as "lv1/lv2/mac/code".
QStringList listing(const QByteArray& payload)
{
    const QVector<Call> seen = dispatchBody(unhex("00 11 31 00") + payload);
    using Values = kzfuzz::ValueTuple<QList<mac_info>>;
    const auto* v = seen.size() == 1 ? dynamic_cast<const Values*>(seen[0].values.get()) : nullptr;
    if (!v) return {QStringLiteral("<not one MacInfo call>")};
    QStringList out;
    for (const mac_info& i : std::get<0>(v->values))
        out << QStringLiteral("%1/%2/%3/%4").arg(i.lv1Group, i.lv2Group, i.mac).arg(i.code);
    return out;
}

/// Bytes that are not all alike, so a shifted or reordered copy shows.
QByteArray pattern(int n)
{
    QByteArray p(n, '\0');
    for (int i = 0; i < n; ++i) p[i] = char((i * 7 + i / 251) & 0xFF);
    return p;
}

} // namespace

TEST(Machines, Messages)
{
    work_log e{QStringLiteral("1"), QStringLiteral("2"), 3, 4, QStringLiteral("5"), 6, 7,
               QStringLiteral("8")};
    work_log arrived = e;
    arrived.value6 = arrived.value7 = 0; // not carried
    const mac_info added = mac("a", "A", "x", 44);
    checkRows({
        // registry
        KZ_ROW(lanMacInfo({mac("a", "A", "x", 1, 7)}),
               "01 00 41 00 01 00 78 00 01 00 61 00 74 00 01 75 00 07 00 00 00", LanMacInfoCB,
               QList<mac_info>{mac("a", "A", "x", 1, 7)}),
        // Under the request flag the empty reply reads as an empty listing.
        KZ_ROW(lanMacInfoResponse(), "", LanMacInfoResultCB),
        // code as decimal text, third; the groups before text4; value7 stays home
        KZ_ROW(lanAddNewMacResponse(mac("a", "A", "x", 44, 9)),
               "61 00 74 00 34 34 00 41 00 78 00 75 00", LanAddNewMacResultCB, added),
        KZ_ROW(lanEditMac(a, b), "61 00 62 00", LanEditMacCB, a, b),
        KZ_ROW(lanDeleteMac(ab), "02 00 61 00 62 00", LanDeleteMacCB, ab),
        KZ_ROW(lanDeleteMacResponse(false, ab), "02 00 61 00 62 00 01", LanDeleteMacResultCB, false,
               ab),
        KZ_ROW(lanMacLoginResponse(a), "61 00", LanMacLoginResultCB, a),
        // status: the state byte last on the wire, third in the call
        KZ_ROW(lanMacStateResponse(a, b, 3, c), "61 00 62 00 63 00 03", LanMacStateResultCB, a, b,
               3, c),
        // strz a b c | u16 1 | text8 text1 text2 text5, value4 value3 | processes: u16 1, "p",
        // i32 2, "0.5", "1.23457e+06" | counts: u16 1, "k", i32 9
        KZ_ROW(lanMacWorkLog(a, b, c, {e}, {{QStringLiteral("k"), 9}},
                             {{QStringLiteral("p"), {0.5, 2, 1234567.0}}}),
               "61 00 62 00 63 00 01 00 38 00 31 00 32 00 35 00 04 00 00 00 03 00 00 00 01 00 "
               "70 00 02 00 00 00 30 2e 35 00 31 2e 32 33 34 35 37 65 2b 30 36 00 01 00 6b 00 09 "
               "00 00 00",
               LanMacWorkLogCB, a, b, c, QList<work_log>{arrived},
               QMap<QString, int>{{QStringLiteral("k"), 9}},
               QMap<QString, oee_process_data>{{QStringLiteral("p"), {0.5, 2, 1234570.0}}}),
        KZ_ROW(lanMacWorkLogResponse(), "", LanMacWorkLogResultCB),
        // n before the map; keys ascending
        KZ_ROW(
            lanMacAbnormalResponse(a, b, {{2, 5}, {1, 7}}, c, 9),
            "61 00 62 00 63 00 09 00 00 00 02 00 01 00 00 00 07 00 00 00 02 00 00 00 05 00 00 00",
            LanMacAbnormalResultCB, a, b, QMap<int, int>{{1, 7}, {2, 5}}, c, 9),
        KZ_ROW(lanMacAlarmLogResponse(a, b, counts),
               "61 00 62 00 02 00 61 00 01 00 00 00 62 00 fe ff ff ff", LanMacAlarmLogResultCB, a,
               b, counts),
        KZ_ROW(lanMacDateTotal(counts), "02 00 61 00 01 00 00 00 62 00 fe ff ff ff",
               LanMacDateTotalCB, counts),
        KZ_ROW(lanMacRunTimeResponse(a, b, {}), "61 00 62 00 00 00", LanMacRunTimeResultCB, a, b,
               QMap<QString, int>()),
        KZ_ROW(lanMacUpdateAxisSpeedResponse(a, 258), "61 00 02 01 00 00",
               LanMacUpdateAxisSpeedResultCB, a, 258),
        KZ_ROW(lanMacUpdateBobbinThreadResponse(a, 1, -1), "61 00 01 00 00 00 ff ff ff ff",
               LanMacUpdateBobbinThreadResultCB, a, 1, -1),
        KZ_ROW(lanUpdateMacPlanResponse(a, b, 2), "61 00 62 00 02 00 00 00",
               LanUpdateMacPlanResultCB, a, b, 2),
        // remote panel: ok leads the mode reply
        KZ_ROW(lanRemoteSetMode(m, 258), "6d 00 02 01 00 00", LanRemoteSetModeCB, m, 258),
        KZ_ROW(lanRemoteSetModeResponse(true, m, 1, 2, -1),
               "00 6d 00 01 00 00 00 02 00 00 00 ff ff ff ff", LanRemoteSetModeResultCB, true, m, 1,
               2, -1),
        KZ_ROW(lanRemoteScreenTouch(m, 1, 0x0102, 0x0304), "6d 00 01 02 01 04 03",
               LanRemoteScreenTouchCB, m, 1, 0x0102, 0x0304),
        KZ_ROW(lanRemoteUpdatePageResponse(m, 0xF1020304), "6d 00 04 03 02 f1",
               LanRemoteUpdatePageResultCB, m, 0xF1020304u),
        KZ_ROW(lanRemoteUpdateAttrResponse(m, QByteArray("\x00\xff", 2)), "6d 00 02 00 00 00 00 ff",
               LanRemoteUpdateAttrResultCB, m, QByteArray("\x00\xff", 2)),
        KZ_ROW(lanRemoteUpdateImageResponse(none, QByteArray("a")), "00 01 00 00 00 61",
               LanRemoteUpdateImageResultCB, none, QByteArray("a")),
        KZ_ROW(lanRemoteUpdateScreenResponse(m, QByteArray()), "6d 00 00 00 00 00",
               LanRemoteUpdateScreenResultCB, m, QByteArray()),
    });
}

TEST(Machines, ListingGroupsInFirstAppearanceOrder)
{
    // Interleaved groups travel grouped as A{x, z}, B{y}; a repeated mac in
    // one pair is sent once (the first wins), in another pair it is kept.
    const QList<mac_info> in{mac("1", "A", "x", 1), mac("2", "B", "y"),    mac("3", "A", "z"),
                             mac("4", "A", "x"),    mac("1", "A", "x", 2), mac("1", "A", "z")};
    const auto en = [](const char* id) { return entry(id, 1, 0); };
    const QByteArray want = unhex("02 00") + "A" + '\0' + unhex("02 00") + "x" + '\0' +
                            unhex("02 00") + en("1") + en("4") + "z" + '\0' + unhex("02 00") +
                            en("3") + en("1") + "B" + '\0' + unhex("01 00") + "y" + '\0' +
                            unhex("01 00") + en("2");
    const QByteArray body = sentBody([&](R& r) { r.lanMacInfo(in); });
    EXPECT_EQ(hex(body.mid(4, body.size() - 5)), hex(want));
    EXPECT_EQ(
        dispatchBody(body),
        calls({arrives<Cb::LanMacInfoCB>(QList<mac_info>{in[0], in[3], in[2], in[5], in[1]})}));
}

TEST(Machines, ListingDecoderIndexRules)
{
    const QByteArray A = QByteArray("A") + '\0', x = QByteArray("x") + '\0',
                     y = QByteArray("y") + '\0';
    const struct
    {
        const char* what;
        QByteArray payload;
        QStringList expected;
    } cases[] = {
        {"first-level count zero",
         unhex("00 00") + A + unhex("01 00") + x + unhex("01 00") + entry("m"),
         {}},
        {"first-level count negative",
         unhex("ff ff") + A + unhex("01 00") + x + unhex("01 00") + entry("m"),
         {}},
        {"repeated mac in a pair skipped, also across a repeated group",
         unhex("02 00") + A + unhex("02 00") + x + unhex("02 00") + entry("m", 1) + entry("m", 2) +
             y + unhex("01 00") + entry("m", 3) + A + unhex("01 00") + x + unhex("02 00") +
             entry("m", 4) + entry("n", 5),
         {"A/x/m/1", "A/y/m/3", "A/x/n/5"}},
        {"negative machine count reads until the data ends",
         unhex("01 00") + A + unhex("01 00") + x + unhex("ff ff") + entry("a") + entry("b") +
             entry("c") + '\0', // with the body's terminating zero, as it arrives
         {"A/x/a/1", "A/x/b/1", "A/x/c/1"}},
        {"negative group count reads until the data ends",
         unhex("01 00") + A + unhex("00 80") + x + unhex("01 00") + entry("a") + y +
             unhex("01 00") + entry("b"),
         {"A/x/a/1", "A/y/b/1"}},
        {"oversized counts stop at the end of the data",
         unhex("05 00") + A + unhex("09 00") + x + unhex("ff 7f") + entry("a"),
         {"A/x/a/1"}},
        {"a machine cut by the end of the data is dropped",
         unhex("01 00") + A + unhex("01 00") + x + unhex("02 00") + entry("a") + entry("b").left(5),
         {"A/x/a/1"}},
        {"zero inner counts",
         unhex("02 00") + A + unhex("00 00") + x + unhex("01 00") + y + unhex("00 00"),
         {}},
        {"nothing at all", QByteArray(), {}},
    };
    for (const auto& t : cases) EXPECT_EQ(listing(t.payload), t.expected) << t.what;
}

TEST(Machines, LastGroupOfMoreThan32767MachinesStillArrives)
{
    // 40000 travels as the u16 0x9C40, which reads back negative: the inner
    // loop then runs to the end of the data, so such a group arrives whole
    // only as the last one (one sent before others reads on into them).
    QList<mac_info> macs;
    for (int i = 0; i < 40000; ++i) macs.append(mac(QByteArray::number(i).constData(), "A", "x"));
    EXPECT_EQ(dispatchBody(sentBody([&](R& r) { r.lanMacInfo(macs); })),
              calls({arrives<Cb::LanMacInfoCB>(macs)}));
}

TEST(Machines, EmptyWorkLogSendsNothing)
{
    FrameSink sink;
    R r;
    sink.attach(r);
    const work_log one{};
    r.lanMacWorkLog(a, b, c, {}, counts, {});
    EXPECT_TRUE(sink.frames.isEmpty());
    // 65536 entries count 0 in 16 bits: not sent either.
    r.lanMacWorkLog(a, b, c, QVector<work_log>(65536, one).toList(), counts, {});
    EXPECT_TRUE(sink.frames.isEmpty());
    r.lanMacWorkLog(a, b, c, {one}, {}, {});
    EXPECT_FALSE(sink.frames.isEmpty());
}

TEST(Machines, LargeBlockCrossesSplitFrames)
{
    const QByteArray screen = pattern(256 * 1024);
    for (int capacity : {0, 512, 65536}) {
        kzfuzz::Observer seen;
        seen.record = true;
        Wire w(nullptr, capacity);
        kzfuzz::attachAll(w.receiver, &seen);
        w.sender.lanRemoteUpdateScreenResponse(m, screen);
        EXPECT_GT(w.sink.frames.size(), 1) << capacity;
        w.deliver();
        EXPECT_EQ(seen.log, calls({arrives<Cb::LanRemoteUpdateScreenResultCB>(m, screen)}));
    }
}

TEST(Machines, LargeLastFieldsInPiecesArriveAsFromOneBuffer)
{
    // A split body that ends in a large byte field (the update replies, a
    // file's content) is received piece by piece straight into the array
    // the callback gets. Whatever its counts say, it arrives as the same
    // body decoded from one buffer. With 64-byte frames the first piece
    // cannot show where the field starts, and the body takes the usual way.
    const QByteArray data = pattern(40000), mac = QByteArray("m") + '\0';
    const QByteArray ints = unhex("01 00 00 00 02 00 00 00 03 00 00 00"), block(16, 'b');
    const auto u32 = [](quint32 v) { return QByteArray(reinterpret_cast<const char*>(&v), 4); };
    const QByteArray bodies[] = {
        unhex("01 11 06 06") + mac + u32(40000) + data,
        unhex("01 11 05 06") + mac + u32(90000) + data, // count past the data
        unhex("01 11 04 06") + mac + u32(39000) + data, // a little short of it
        unhex("01 11 06 06") + mac + u32(1000) + data,  // well short of it
        unhex("01 11 06 06") + mac + u32(0) + data,
        unhex("01 11 06 06") + QByteArray(300, 'k') + '\0' + u32(40000) + data,
        unhex("01 11 06 06") + QByteArray(40000, 'k'),  // the mac never ends
        unhex("00 11 06 06") + mac + u32(40000) + data, // no such request
        unhex("01 11 06 06") + mac + u32(9000) + data.left(9000),
        unhex("00 11 0b 05") + ints + u32(40000) + block + data,
        unhex("00 11 0b 05") + ints + u32(30) + block + data,
        unhex("00 11 0b 05") + ints + u32(quint32(-1)) + block + data,
    };
    for (const QByteArray& body : bodies) {
        const QVector<Call> expected = dispatchBody(body + '\0');
        for (int capacity : {0, 64}) {
            kzfuzz::Observer seen;
            seen.record = true;
            Wire w(nullptr, capacity);
            kzfuzz::attachAll(w.receiver, &seen);
            KZProtocolResolverPrivate::get(&w.sender)->packSend(
                QByteArray(), uchar(body[0]), 17, quint16(uchar(body[2]) | uchar(body[3]) << 8),
                body.mid(4), 1);
            w.deliver();
            EXPECT_EQ(seen.log, expected) << capacity << ' ' << qPrintable(hex(body.left(12)));
        }
    }

    // Pieces fed to the engine outside parseReceive are handled, in order,
    // by the next one.
    kzfuzz::Observer seen;
    seen.record = true;
    Wire w;
    kzfuzz::attachAll(w.receiver, &seen);
    w.sender.lanRemoteUpdateScreenResponse(m, data);
    w.sender.lanLogout(3);
    const QByteArray stream = w.sink.stream();
    kz_protoiot_engine.input(KZProtocolResolverPrivate::get(&w.receiver)->engine,
                             stream.constData(), stream.size());
    EXPECT_TRUE(seen.log.isEmpty());
    w.receiver.parseReceive(QByteArray());
    EXPECT_EQ(seen.log, calls({arrives<Cb::LanRemoteUpdateScreenResultCB>(m, data),
                               arrives<Cb::LanLogoutCB>(3)}));
}

TEST(Machines, DecodesHandBuiltAndCutPayloads)
{
    const struct
    {
        QByteArray body;
        Call arrival;
    } cases[] = {
        // A negative entry count: no entries, and the maps after it still read;
        // a figure that is no number reads as 0.
        {unhex("00 11 07 04 61 00 62 00 63 00 ff ff 01 00 70 00 05 00 00 00") + "2.5" + '\0' + "x" +
             '\0' + unhex("00 00 00"),
         arrives<Cb::LanMacWorkLogCB>(
             a, b, c, QList<work_log>(), QMap<QString, int>(),
             QMap<QString, oee_process_data>{{QStringLiteral("p"), {2.5, 5, 0.0}}})},
        // Oversized counts stop at the end of the data.
        {unhex("01 11 08 04 61 00 62 00 63 00 01 00 00 00 ff 7f 01 00 00 00 02 00 00 00"),
         arrives<Cb::LanMacAbnormalResultCB>(a, b, QMap<int, int>{{1, 2}}, c, 1)},
        {unhex("00 11 0a 04 ff 7f 6b 00 03 00 00 00"),
         arrives<Cb::LanMacDateTotalCB>(QMap<QString, int>{{QStringLiteral("k"), 3}})},
        // A state byte past the end reads as 0.
        {unhex("01 11 04 04 61 00 62 00"), arrives<Cb::LanMacStateResultCB>(a, b, 0, none)},
        // A block's size beyond the data is cut at its end.
        {unhex("01 11 04 06 6d 00 0a 00 00 00 61 62 63"),
         arrives<Cb::LanRemoteUpdateAttrResultCB>(m, QByteArray("abc"))},
        {unhex("01 11 05 06 6d 00 ff ff ff ff 7a"),
         arrives<Cb::LanRemoteUpdateImageResultCB>(m, QByteArray("z"))},
        {unhex("01 11 06 06 6d 00 00 00 00 80"),
         arrives<Cb::LanRemoteUpdateScreenResultCB>(m, QByteArray())},
        {unhex("01 11 06 06 6d 00 05 00"),
         arrives<Cb::LanRemoteUpdateScreenResultCB>(m, QByteArray())},
        {unhex("01 11 06 06 6d 00 01 00 00 00 61 62"),
         arrives<Cb::LanRemoteUpdateScreenResultCB>(m, QByteArray("a"))},
    };
    for (const auto& t : cases)
        EXPECT_EQ(dispatchBody(t.body), calls({t.arrival})) << qPrintable(hex(t.body));
    // The machine code travels as text: out of range keeps the low 8 bits, no number is 0.
    for (const auto& code : {std::make_pair("300", 44), {"-1", 255}, {"abc", 0}, {"", 0}}) {
        const QByteArray body = unhex("01 11 30 00") + "a" + '\0' + "t" + '\0' + code.first + '\0' +
                                "A" + '\0' + "x" + '\0' + "u" + '\0';
        EXPECT_EQ(
            dispatchBody(body),
            calls({arrives<Cb::LanAddNewMacResultCB>(mac("a", "A", "x", quint8(code.second)))}));
    }
}
