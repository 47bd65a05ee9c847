// Machine status reports: every message through two resolvers, the work log
// (field order, figures as text rounded to six digits, the empty-log rule),
// exact bytes where encoder and decoder could agree on a wrong layout, and
// hand-built payloads.
#include "callback_log.h"

#include <functional>
#include <ostream>

using namespace kztest;
using R = KZProtocolResolver;

void PrintTo(const work_log& w, std::ostream* os)
{
    *os << '{' << qPrintable(w.text1) << ',' << qPrintable(w.text2) << ',' << w.value3 << ','
        << w.value4 << ',' << qPrintable(w.text5) << ',' << w.value6 << ',' << w.value7 << ','
        << qPrintable(w.text8) << '}';
}

void PrintTo(const oee_process_data& p, std::ostream* os)
{
    *os << '{' << p.figure1 << ',' << p.count << ',' << p.figure2 << '}';
}

namespace {

using Status =
    Catchers<&R::setLanMacStateResultCB, &R::setLanMacWorkLogCB, &R::setLanMacWorkLogResultCB,
             &R::setLanMacAbnormalResultCB, &R::setLanMacAlarmLogResultCB, &R::setLanMacDateTotalCB,
             &R::setLanMacRunTimeResultCB, &R::setLanMacUpdateAxisSpeedResultCB,
             &R::setLanMacUpdateBobbinThreadResultCB, &R::setLanUpdateMacPlanResultCB>;

const QString kA = QStringLiteral("a"), kB = QStringLiteral("b"), kC = QStringLiteral("c");
const QMap<QString, int> kCounts{{QStringLiteral("b"), -2}, {QStringLiteral("a"), 1}};

work_log logEntry(int i)
{
    work_log w;
    w.text1 = QStringLiteral("t1-%1").arg(i);
    w.text2 = QStringLiteral("t2");
    w.value3 = 3 + i;
    w.value4 = -4;
    w.value6 = 6; // not carried
    w.value7 = 7; // not carried
    w.text8 = QStringLiteral("t8\u00fc");
    return w;
}

/// A figure after its trip as text with six significant digits.
double sixDigits(double v) { return QString::number(v, 'g', 6).toDouble(); }

} // namespace

TEST(MacStatus, EveryMessageRoundTrips)
{
    for (unsigned char state : {0, 3, 255})
        roundTrip<Status, &R::setLanMacStateResultCB, nullptr>(
            "MacState", [&](R& r) { r.lanMacStateResponse(kA, kB, state, kC); }, kA, kB, state, kC);
    const QMap<int, int> abnormal{{-3, 1}, {7, 2147483647}, {0, -1}};
    roundTrip<Status, &R::setLanMacAbnormalResultCB, nullptr>(
        "MacAbnormal", [&](R& r) { r.lanMacAbnormalResponse(kA, kB, abnormal, kC, -9); }, kA, kB,
        abnormal, kC, -9);
    roundTrip<Status, &R::setLanMacAlarmLogResultCB, nullptr>(
        "MacAlarmLog", [&](R& r) { r.lanMacAlarmLogResponse(kA, kB, kCounts); }, kA, kB, kCounts);
    roundTrip<Status, &R::setLanMacDateTotalCB, nullptr>(
        "MacDateTotal", [&](R& r) { r.lanMacDateTotal(kCounts); }, kCounts);
    roundTrip<Status, &R::setLanMacRunTimeResultCB, nullptr>(
        "MacRunTime", [&](R& r) { r.lanMacRunTimeResponse(kA, kB, {}); }, kA, kB,
        QMap<QString, int>());
    roundTrip<Status, &R::setLanMacUpdateAxisSpeedResultCB, nullptr>(
        "MacUpdateAxisSpeed", [&](R& r) { r.lanMacUpdateAxisSpeedResponse(kA, -1200); }, kA, -1200);
    roundTrip<Status, &R::setLanMacUpdateBobbinThreadResultCB, nullptr>(
        "MacUpdateBobbinThread", [&](R& r) { r.lanMacUpdateBobbinThreadResponse(kA, 11, -12); }, kA,
        11, -12);
    roundTrip<Status, &R::setLanUpdateMacPlanResultCB, nullptr>(
        "UpdateMacPlan", [&](R& r) { r.lanUpdateMacPlanResponse(kA, kB, 42); }, kA, kB, 42);
    // An empty payload under the request flag is a work log with nothing in it.
    roundTrip<Status, &R::setLanMacWorkLogResultCB, &R::setLanMacWorkLogCB>(
        "MacWorkLogResponse", [&](R& r) { r.lanMacWorkLogResponse(); });
}

TEST(MacStatus, WorkLogRoundTripRoundsFiguresToSixDigits)
{
    const QList<work_log> logs{logEntry(0), logEntry(1), logEntry(2)};
    const QMap<QString, oee_process_data> processes{
        {QStringLiteral("cut"), {3.14159265, 12, 1234567.0}},
        {QStringLiteral("sew"), {0.5, -1, 1e-7}},
        {QStringLiteral("dye"), {-98765.4321, 0, 0}},
    };
    QList<work_log> arrive = logs;
    for (work_log& w : arrive) w.value6 = w.value7 = 0; // not carried
    QMap<QString, oee_process_data> rounded = processes;
    for (oee_process_data& p : rounded) {
        p.figure1 = sixDigits(p.figure1);
        p.figure2 = sixDigits(p.figure2);
    }
    // The rounding itself, spelled out.
    EXPECT_EQ(rounded[QStringLiteral("cut")].figure1, 3.14159);
    EXPECT_EQ(rounded[QStringLiteral("cut")].figure2, 1234570.0);
    EXPECT_EQ(rounded[QStringLiteral("sew")].figure1, 0.5);
    EXPECT_EQ(rounded[QStringLiteral("dye")].figure1, -98765.4);

    roundTrip<Status, &R::setLanMacWorkLogCB, &R::setLanMacWorkLogResultCB>(
        "MacWorkLog",
        [&](R& r) {
            r.lanMacWorkLog(kA, QStringLiteral("2024-05-06"), kC, logs, kCounts, processes);
        },
        kA, QStringLiteral("2024-05-06"), kC, arrive, kCounts, rounded);
}

TEST(MacStatus, WorkLogBytes)
{
    work_log e;
    e.text1 = QStringLiteral("1");
    e.text2 = QStringLiteral("2");
    e.value3 = 3;
    e.value4 = 4;
    e.text5 = QStringLiteral("5");
    e.value6 = 6;
    e.value7 = 7;
    e.text8 = QStringLiteral("8");
    const auto send = [&](R& r) {
        r.lanMacWorkLog(kA, kB, kC, {e}, {{QStringLiteral("k"), 9}},
                        {{QStringLiteral("p"), {0.5, 2, 1234567.0}}});
    };
    // strz a b c | u16 1 | text8 text1 text2 text5, value4 value3 |
    // processes: u16 1, "p", i32 2, "0.5", "1.23457e+06" | counts: u16 1, "k", i32 9
    const QByteArray expected =
        unhex("61 00 62 00 63 00  01 00  38 00 31 00 32 00 35 00 04 00 00 00 03 00 00 00"
              "01 00 70 00 02 00 00 00 30 2e 35 00") +
        QByteArray("1.23457e+06") + '\0' + unhex("01 00 6b 00 09 00 00 00");
    EXPECT_EQ(payloadHex(send), hex(expected));
    EXPECT_EQ(hex(sentBody(send).left(4)), QStringLiteral("00 11 07 04"));
}

TEST(MacStatus, EmptyWorkLogSendsNothing)
{
    FrameSink sink;
    R r;
    sink.attach(r);
    const QMap<QString, oee_process_data> processes{{QStringLiteral("p"), {1, 2, 3}}};
    r.lanMacWorkLog(kA, kB, kC, {}, kCounts, processes);
    EXPECT_TRUE(sink.frames.isEmpty());
    // 65536 entries count 0 in 16 bits: not sent either.
    const QList<work_log> many = QVector<work_log>(65536, logEntry(0)).toList();
    r.lanMacWorkLog(kA, kB, kC, many, kCounts, processes);
    EXPECT_TRUE(sink.frames.isEmpty());
    r.lanMacWorkLog(kA, kB, kC, {logEntry(0)}, {}, {});
    EXPECT_FALSE(sink.frames.isEmpty());
}

TEST(MacStatus, PayloadBytes)
{
    const struct
    {
        std::function<void(R&)> send;
        const char* header; // flag, 17, method code
        const char* bytes;
    } cases[] = {
        // the state byte last, raw
        {[](R& r) { r.lanMacStateResponse(kA, kB, 3, kC); }, "01 11 04 04", "61 00 62 00 63 00 03"},
        // n before the map; keys ascending: 1 before 2
        {[](R& r) {
             r.lanMacAbnormalResponse(kA, kB, {{2, 5}, {1, 7}}, kC, 9);
         },
         "01 11 08 04",
         "61 00 62 00 63 00 09 00 00 00 02 00 01 00 00 00 07 00 00 00 02 00 00 00 05 00 00 00"},
        {[](R& r) { r.lanMacAlarmLogResponse(kA, kB, kCounts); }, "01 11 09 04",
         "61 00 62 00 02 00 61 00 01 00 00 00 62 00 fe ff ff ff"},
        {[](R& r) { r.lanMacDateTotal(kCounts); }, "00 11 0a 04",
         "02 00 61 00 01 00 00 00 62 00 fe ff ff ff"},
        {[](R& r) { r.lanMacRunTimeResponse(kA, kB, {}); }, "01 11 30 02", "61 00 62 00 00 00"},
        {[](R& r) { r.lanMacUpdateAxisSpeedResponse(kA, 258); }, "01 11 32 00",
         "61 00 02 01 00 00"},
        {[](R& r) { r.lanMacUpdateBobbinThreadResponse(kA, 1, -1); }, "01 11 33 00",
         "61 00 01 00 00 00 ff ff ff ff"},
        {[](R& r) { r.lanUpdateMacPlanResponse(kA, kB, 2); }, "01 11 21 00",
         "61 00 62 00 02 00 00 00"},
        {[](R& r) { r.lanMacWorkLogResponse(); }, "01 11 07 04", ""},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(hex(sentBody(c.send).left(4)), QString::fromLatin1(c.header)) << c.bytes;
        EXPECT_EQ(payloadHex(c.send), QString::fromLatin1(c.bytes));
    }
}

TEST(MacStatus, DecodesHandBuiltPayloads)
{
    // A negative entry count: no entries, and the maps after it still read;
    // a figure that is no number reads as 0.
    expectOnly<&R::setLanMacWorkLogCB>(
        dispatchBytes<Status>(unhex("00 11 07 04 61 00 62 00 63 00 ff ff 01 00 70 00 05 00 00 00") +
                              "2.5" + '\0' + "x" + '\0' + unhex("00 00 00")),
        kA, kB, kC, QList<work_log>(), QMap<QString, int>(),
        QMap<QString, oee_process_data>{{QStringLiteral("p"), {2.5, 5, 0.0}}});
    // Oversized counts stop at the end of the data.
    expectOnly<&R::setLanMacAbnormalResultCB>(
        dispatchBytes<Status>(
            unhex("01 11 08 04 61 00 62 00 63 00 01 00 00 00 ff 7f 01 00 00 00 02 00 00 00")),
        kA, kB, QMap<int, int>{{1, 2}}, kC, 1);
    expectOnly<&R::setLanMacDateTotalCB>(
        dispatchBytes<Status>(unhex("00 11 0a 04 ff 7f 6b 00 03 00 00 00")),
        QMap<QString, int>{{QStringLiteral("k"), 3}});
    // A state byte past the end reads as 0.
    expectOnly<&R::setLanMacStateResultCB>(dispatchBytes<Status>(unhex("01 11 04 04 61 00 62 00")),
                                           kA, kB, 0, QString());
}
