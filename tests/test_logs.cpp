// Logs and statistics: log queries, machine data and statistics, file
// prices. One row per message direction, then what a row cannot show: the
// signed loops of the price information, repeated and unreadable prices,
// lists and day entries cut by the end of the data. Last, the whole method
// table: every code reaches a decoder that is built.
#include "rows.h"

#include <QSet>

#include <cmath>
#include <iterator>
#include <limits>

using namespace kztest;
using R = KZProtocolResolver;

namespace {

const QString a = QStringLiteral("a"), b = QStringLiteral("b"), c = QStringLiteral("c"),
              d = QStringLiteral("d"), t = QStringLiteral("t"), none;
const QStringList ab{a, b};

QString n(int i) { return QString::number(i); }

// The days of the statistics answer, as they travel: "2024-03-0x" and its zero byte.
#define DAY1 "32 30 32 34 2d 30 33 2d 30 31 00 "
#define DAY2 "32 30 32 34 2d 30 33 2d 30 32 00 "
#define DAY3 "32 30 32 34 2d 30 33 2d 30 33 00 "
const QString day1 = QStringLiteral("2024-03-01"), day2 = QStringLiteral("2024-03-02"),
              day3 = QStringLiteral("2024-03-03");

kz_abnormal_info abnormal() { return {n(0), n(1), n(2), n(3), n(4), n(5), n(6), n(7), 8}; }

kz_log_alarm_info alarmInfo(double figure) { return {n(0), n(1), n(2), n(3), n(4), n(5), figure}; }

kz_log_alarm_info bareAlarm(double figure) { return {none, none, none, none, none, none, figure}; }

} // namespace

TEST(Logs, Messages)
{
    const kz_log_process process{a, b, c, {{QStringLiteral("e"), 1, 2, 3, 4, 5, 6, 7}}};
    const kz_log_runtime runtime{a, b, c, {{QStringLiteral("e"), QStringLiteral("f"), 1, 2, 3}}};
    const kz_log_alarm alarm{
        a, b, c, {{QStringLiteral("e"), QStringLiteral("f"), QStringLiteral("g"), 4}}};
    kz_abnormal_info shortForm = abnormal(), longForm = abnormal();
    shortForm.text1.clear(); // not carried by the short form
    shortForm.reserved3.clear();
    longForm.reserved3.clear();
    const kz_log_processstop stop{a, b, 300, c, d, 6};
    kz_log_processstop stopArrived = stop;
    stopArrived.code3 = 44; // 300 keeps its low 8 bits
    const kz_log_shutdown shutdown{a, b, c, d, 5};
    const kz_log_process_detail detail{n(0), n(1), n(2), n(3), 4,    5, 6,  2.5,
                                       8,    0.1,  a,    1e7,  12.5, b, -3, true};
    kz_log_process_detail detailArrived = detail;
    detailArrived.figure7 = 2; // 2.5 rounds to even
    const kz_log_runtime_info runtimeInfo{n(0), n(1), n(2), n(3), n(4), 5, 6, 7};
    const double nan = std::numeric_limits<double>::quiet_NaN();

    checkRows({
        // k after the three texts, the four flags after it: true is a zero byte
        KZ_ROW(lanQueryLog(a, 7, b, c, true, true, true, true, ab),
               "61 00 62 00 63 00 07 00 00 00 00 00 00 00 02 00 61 00 62 00", LanQueryLogCB, a, 7,
               b, c, true, true, true, true, ab),
        KZ_ROW(lanQueryLog(a, -1, b, c, false, true, false, false, {}),
               "61 00 62 00 63 00 ff ff ff ff 01 00 01 01 00 00", LanQueryLogCB, a, -1, b, c, false,
               true, false, false, QStringList()),
        KZ_ROW(lanQueryLogResponse(a), "61 00", LanQueryLogResultCB, a),
        // the flag (first in the call) after the three texts
        KZ_ROW(lanQueryLogsByFilter(false, a, b, c, {a}, {b}),
               "61 00 62 00 63 00 01 01 00 61 00 01 00 62 00", LanQueryLogsByFilterCB, false, a, b,
               c, QStringList{a}, QStringList{b}),
        KZ_ROW(lanQueryLog2(a, b, c, {a}), "61 00 62 00 63 00 01 00 61 00", LanQueryLog2CB, a, b, c,
               QStringList{a}),
        // The data messages go out under the request flag; under the reply flag nothing fires.
        KZ_ROW(
            lanQueryProcessResponse(t, {process}),
            "74 00 01 00 61 00 62 00 63 00 01 00 65 00 01 00 00 00 02 00 00 00 03 00 00 00 04 00 "
            "00 00 05 00 00 00 06 00 00 00 07 00 00 00",
            LanQueryProcessResultCB, t, QList<kz_log_process>{process}),
        KZ_ROW(
            lanQueryRuntimeResponse(t, {runtime}),
            "74 00 01 00 61 00 62 00 63 00 01 00 65 00 66 00 01 00 00 00 02 00 00 00 03 00 00 00",
            LanQueryRuntimeResultCB, t, QList<kz_log_runtime>{runtime}),
        // short form: text2, text0, text4..text7, value8
        KZ_ROW(lanQueryAbnormalResponse(t, {abnormal()}),
               "74 00 01 00 32 00 30 00 34 00 35 00 36 00 37 00 08 00 00 00",
               LanQueryAbnormalResultCB, t, QList<kz_abnormal_info>{shortForm}),
        KZ_ROW(lanQueryAlarmResponse(t, {alarm}),
               "74 00 01 00 61 00 62 00 63 00 01 00 65 00 66 00 67 00 04 00 00 00",
               LanQueryAlarmResultCB, t, QList<kz_log_alarm>{alarm}),
        KZ_ROW(lanQueryProcessStopResponse(t, {stop}),
               "74 00 01 00 61 00 62 00 2c 63 00 64 00 06 00 00 00", LanQueryProcessStopResultCB, t,
               QList<kz_log_processstop>{stopArrived}),
        KZ_ROW(lanQueryShutdownResponse(t, {shutdown}),
               "74 00 01 00 61 00 62 00 63 00 64 00 05 00 00 00", LanQueryShutdownResultCB, t,
               QList<kz_log_shutdown>{shutdown}),
        // figure7 as i32 2; figures 9, 11, 12, 14 as "0.1", "1e+07", "12.5", "-3"; flag15 last
        KZ_ROW(
            lanQueryProcess2Result(t, {detail}),
            "74 00 01 00 30 00 31 00 32 00 33 00 04 00 00 00 05 00 00 00 06 00 00 00 02 00 00 00 "
            "08 00 00 00 30 2e 31 00 61 00 31 65 2b 30 37 00 31 32 2e 35 00 62 00 2d 33 00 00",
            LanQueryProcess2ResultCB, t, QList<kz_log_process_detail>{detailArrived}),
        // text1, text2, text0, text3, value5, text4, value6, value7
        KZ_ROW(lanQueryRuntime2Result(t, {runtimeInfo}),
               "74 00 01 00 31 00 32 00 30 00 33 00 05 00 00 00 34 00 06 00 00 00 07 00 00 00",
               LanQueryRuntime2ResultCB, t, QList<kz_log_runtime_info>{runtimeInfo}),
        // long form: text1 ahead of the short form
        KZ_ROW(lanQueryAbnormal2Result(t, {abnormal()}),
               "74 00 01 00 31 00 32 00 30 00 34 00 35 00 36 00 37 00 08 00 00 00",
               LanQueryAbnormal2ResultCB, t, QList<kz_abnormal_info>{longForm}),
        // text1, text2, text0, text3..text5, figure6 rounded: 3.5 -> 4
        KZ_ROW(lanQueryAlarm2Result(t, {alarmInfo(3.5)}),
               "74 00 01 00 31 00 32 00 30 00 33 00 34 00 35 00 04 00 00 00",
               LanQueryAlarm2ResultCB, t, QList<kz_log_alarm_info>{alarmInfo(4)}),
        // Whole-number figures: halves to even below zero, the 32-bit ends, NaN as 0.
        KZ_ROW(lanQueryAlarm2Result(
                   t, {bareAlarm(-2.5), bareAlarm(1e12), bareAlarm(-1e12), bareAlarm(nan)}),
               "74 00 04 00 00 00 00 00 00 00 fe ff ff ff 00 00 00 00 00 00 ff ff ff 7f "
               "00 00 00 00 00 00 00 00 00 80 00 00 00 00 00 00 00 00 00 00",
               LanQueryAlarm2ResultCB, t,
               QList<kz_log_alarm_info>{bareAlarm(-2), bareAlarm(2147483647),
                                        bareAlarm(-2147483648.0), bareAlarm(0)}),
    });
}

TEST(Statistics, Messages)
{
    const work_log w{n(1), n(2), 3, 4, n(5), 6, 7, n(8)};
    work_log macProcess = w; // text8, text1, text2, value4, value3 travel
    macProcess.text5.clear();
    macProcess.value6 = macProcess.value7 = 0;
    work_log appProcess = w; // all but text8
    appProcess.text8.clear();
    const boot_record boot{n(1), n(2), 3, 4, 5};
    boot_record bootArrived = boot;
    bootArrived.reserved4 = 0;
    const MapQueryStatistic statistic{{a, {{QStringLiteral("x"), 2, QStringLiteral("y")}}}};
    const QMap<QString, int> empty, one{{a, 1}}, five{{b, 5}};

    checkRows({
        KZ_ROW(lanQueryMacDatas(a, b), "61 00 62 00", LanQueryMacDatasCB, a, b),
        // per key: its items as text1, text3, value2
        KZ_ROW(lanQueryProcessStatisticResponse(t, statistic),
               "74 00 01 00 61 00 01 00 78 00 79 00 02 00 00 00", LanQueryProcessStatisticResultCB,
               t, statistic),
        KZ_ROW(lanQueryProcessStatisticResponse(t, {}), "74 00 00 00",
               LanQueryProcessStatisticResultCB, t, MapQueryStatistic()),
        KZ_ROW(lanQueryMacProcess(a, b, {w}),
               "61 00 62 00 01 00 38 00 31 00 32 00 04 00 00 00 03 00 00 00", LanQueryMacProcessCB,
               a, b, QList<work_log>{macProcess}),
        KZ_ROW(lanQueryMacStatistic(a, b, c, d), "61 00 62 00 63 00 64 00", LanQueryMacStatisticCB,
               a, b, c, d),
        // One day: n = 1 and two day entries (the day after the end too); a
        // name missing from m2 and days missing from m3 or m4 go out as 0.
        KZ_ROW(lanQueryMacStatisticResult(day1, day1, {a}, one, empty, {{day1, 3}}, {{day2, 4}},
                                          five, empty),
               DAY1 DAY1 "01 00 61 00 01 00 00 00 00 00 00 00 01 00 " DAY1
                         "03 00 00 00 00 00 00 00 " DAY2
                         "00 00 00 00 04 00 00 00 01 00 62 00 05 00 00 00 00 00",
               LanQueryMacStatisticResultCB, day1, day1, QStringList{a}, one,
               QMap<QString, int>{{a, 0}}, QMap<QString, int>{{day1, 3}, {day2, 0}},
               QMap<QString, int>{{day1, 0}, {day2, 4}}, five, empty),
        // The end a day before the start: n = 0 and one entry, the start.
        KZ_ROW(lanQueryMacStatisticResult(day2, day1, {}, empty, empty, empty, empty, empty, empty),
               DAY2 DAY1 "00 00 00 00 " DAY2 "00 00 00 00 00 00 00 00 00 00 00 00",
               LanQueryMacStatisticResultCB, day2, day1, QStringList(), empty, empty,
               QMap<QString, int>{{day2, 0}}, QMap<QString, int>{{day2, 0}}, empty, empty),
        // Two days before: n = -1, no entries; an invalid date does the same.
        KZ_ROW(lanQueryMacStatisticResult(day3, day1, {}, empty, empty, empty, empty, empty, empty),
               DAY3 DAY1 "00 00 ff ff 00 00 00 00", LanQueryMacStatisticResultCB, day3, day1,
               QStringList(), empty, empty, empty, empty, empty, empty),
        KZ_ROW(lanQueryMacStatisticResult(a, day1, {}, empty, empty, one, empty, empty, empty),
               "61 00 " DAY1 "00 00 ff ff 00 00 00 00", LanQueryMacStatisticResultCB, a, day1,
               QStringList(), empty, empty, empty, empty, empty, empty),
        // The app queries go out under the reply flag, their data under the request flag.
        KZ_ROW(lanAppQueryProcessLogs(a, b, true, c, {a}), "61 00 62 00 00 63 00 01 00 61 00",
               LanAppQueryProcessLogsCB, a, b, true, c, QStringList{a}),
        KZ_ROW(
            lanAppQueryProcessLogsResponse({{a, {w}}}),
            "01 00 61 00 01 00 31 00 32 00 03 00 00 00 04 00 00 00 35 00 06 00 00 00 07 00 00 00",
            LanAppQueryProcessLogsResultCB, QMap<QString, QList<work_log>>{{a, {appProcess}}}),
        KZ_ROW(lanAppQueryRuntimeLogs(a, b, {c}), "61 00 62 00 01 00 63 00",
               LanAppQueryRuntimeLogsCB, a, b, QStringList{c}),
        KZ_ROW(lanAppQueryRuntimeLogsResponse({{a, {boot}}}),
               "01 00 61 00 01 00 31 00 32 00 03 00 00 00 05 00 00 00",
               LanAppQueryRuntimeLogsResultCB,
               QMap<QString, QList<boot_record>>{{a, {bootArrived}}}),
        KZ_ROW(lanAppQueryAlarmLogs(a, b, {}), "61 00 62 00 00 00", LanAppQueryAlarmLogsCB, a, b,
               QStringList()),
        KZ_ROW(lanAppQueryAlarmLogsResponse({{a, {{n(1), n(2)}}}, {b, {}}}),
               "02 00 61 00 01 00 31 00 32 00 62 00 00 00", LanAppQueryAlarmLogsResultCB,
               QMap<QString, QList<alarm_log_info>>{{a, {{n(1), n(2)}}}, {b, {}}}),
    });
}

TEST(FilePrices, Messages)
{
    const QMap<QString, double> prices{{a, 0.30000000000000004}, {b, 1e7}};
    const QMap<QString, double> arrived{{a, 0.3}, {b, 1e7}};
    checkRows({
        KZ_ROW(lanLoadFilePrice(), "", LanLoadFilePriceCB),
        KZ_ROW(lanLoadFilePriceResult({a}, {{b, 0.1}}), "01 00 61 00 01 00 62 00 30 2e 31 00",
               LanLoadFilePriceResultCB, QStringList{a}, QMap<QString, double>{{b, 0.1}}),
        KZ_ROW(lanAddFilePrice(a, QStringLiteral("1.50")), "61 00 31 2e 35 30 00",
               LanAddFilePriceCB, a, QStringLiteral("1.50")),
        KZ_ROW(lanAddFilePriceResult(true, a, b), "61 00 62 00 00", LanAddFilePriceResultCB, true,
               a, b),
        KZ_ROW(lanUpdateFilePrice(a, b, c), "61 00 62 00 63 00", LanUpdateFilePriceCB, a, b, c),
        KZ_ROW(lanUpdateFilePriceResult(false, a, b, c), "61 00 62 00 63 00 01",
               LanUpdateFilePriceResultCB, false, a, b, c),
        KZ_ROW(lanDeleteFilePrice(ab), "02 00 61 00 62 00", LanDeleteFilePriceCB, ab),
        KZ_ROW(lanDeleteFilePriceResult(true, {a}), "01 00 61 00 00", LanDeleteFilePriceResultCB,
               true, QStringList{a}),
        // each row as its string list; a plain text is a list of one
        KZ_ROW(lanQueryFilePriceInfo(t, {QVariant(ab), QVariant(c)}),
               "74 00 02 00 02 00 61 00 62 00 01 00 63 00", LanQueryFilePriceInfoCB, t,
               QList<QVariant>{QVariant(ab), QVariant(QStringList{c})}),
        KZ_ROW(lanQueryFilePrice(a, b, c, {d}), "61 00 62 00 63 00 01 00 64 00",
               LanQueryFilePriceCB, a, b, c, QStringList{d}),
        KZ_ROW(lanQueryFilePriceResult(a), "61 00", LanQueryFilePriceResultCB, a),
        // prices as text with six significant digits
        KZ_ROW(lanAddFilePrices(prices), "02 00 61 00 30 2e 33 00 62 00 31 65 2b 30 37 00",
               LanAddFilePricesCB, arrived),
        KZ_ROW(lanAddFilePricesResult(true, {}), "00 00 00", LanAddFilePricesResultCB, true,
               QMap<QString, double>()),
    });
}

TEST(FilePrices, PriceInfoCountsAreSignedSixteenBits)
{
    // 32768 rows count as -32768: the count goes out, no row after it; the
    // receiver reads no row either. The same for the items of one row.
    const QList<QVariant> rows = QVector<QVariant>(32768, QVariant(QStringList{a})).toList();
    EXPECT_EQ(hex(sentBody([&](R& r) { r.lanQueryFilePriceInfo(t, rows); })),
              QStringLiteral("00 11 0b 08 74 00 00 80 00"));
    const QStringList items = QVector<QString>(32768, a).toList();
    EXPECT_EQ(hex(sentBody([&](R& r) { r.lanQueryFilePriceInfo(t, {QVariant(items)}); })),
              QStringLiteral("00 11 0b 08 74 00 01 00 00 80 00"));
    // 65537 rows count as 1: the first row alone goes out.
    const QList<QVariant> many = QVector<QVariant>(65537, QVariant(QStringList{b})).toList();
    EXPECT_EQ(hex(sentBody([&](R& r) { r.lanQueryFilePriceInfo(t, many); })),
              QStringLiteral("00 11 0b 08 74 00 01 00 01 00 62 00 00"));
    EXPECT_EQ(dispatchBody(unhex("00 11 0b 08 74 00 00 80 01 00 61 00")),
              calls({arrives<Cb::LanQueryFilePriceInfoCB>(t, QList<QVariant>())}));
}

TEST(FilePrices, ReceivedPriceMaps)
{
    // A repeated file keeps its last price; an unreadable price arrives as 0.
    EXPECT_EQ(dispatchBody(unhex("00 11 0d 08 03 00 61 00 31 00 61 00 32 00 62 00 78 00")),
              calls({arrives<Cb::LanAddFilePricesCB>(QMap<QString, double>{{a, 2}, {b, 0}})}));
    // A map cut in its second price: the first entry, the second with no price.
    EXPECT_EQ(dispatchBody(unhex("00 11 0d 08 05 00 61 00 31 00 62 00")),
              calls({arrives<Cb::LanAddFilePricesCB>(QMap<QString, double>{{a, 1}, {b, 0}})}));
}

TEST(Logs, ReceivedListsStopAtTheEndOfTheData)
{
    // Five shutdowns announced, one there: the list holds that one.
    EXPECT_EQ(
        dispatchBody(unhex("00 11 08 07 74 00 05 00 61 00 62 00 63 00 64 00 05 00 00 00")),
        calls({arrives<Cb::LanQueryShutdownResultCB>(t, QList<kz_log_shutdown>{{a, b, c, d, 5}})}));
    // A job whose entries announce three and hold one, cut in its fourth number.
    const kz_log_process cut{a, b, c, {{QStringLiteral("e"), 1, 2, 3, 0, 0, 0, 0}}};
    EXPECT_EQ(dispatchBody(unhex("00 11 03 07 74 00 01 00 61 00 62 00 63 00 03 00 65 00 01 00 00 "
                                 "00 02 00 00 00 03 00 00 00 04 00")),
              calls({arrives<Cb::LanQueryProcessResultCB>(t, QList<kz_log_process>{cut})}));
}

TEST(Statistics, ReceivedDaysStopAtTheEndOfTheData)
{
    // n = 4 announces five days; two are there, then the data ends: m5 and m6 empty.
    const QMap<QString, int> empty;
    EXPECT_EQ(dispatchBody(unhex("01 11 0b 07 " DAY1 DAY2 "00 00 04 00 " DAY1
                                 "01 00 00 00 02 00 00 00 " DAY2 "03 00 00 00 04 00 00 00")),
              calls({arrives<Cb::LanQueryMacStatisticResultCB>(
                  day1, day2, QStringList(), empty, empty, QMap<QString, int>{{day1, 1}, {day2, 3}},
                  QMap<QString, int>{{day1, 2}, {day2, 4}}, empty, empty)}));
}

TEST(Api, EveryCodeReachesABuiltDecoder)
{
    // Every code, under both flags, with an empty payload: a decoder that is
    // built fires at least one callback for it (short data still fires), a
    // dropped one fires none. Together the codes reach every callback slot.
    static const struct
    {
        const char* name;
        ushort code;
    } table[] = {
#define KZ_METHOD(name, code, family) {#name, code},
#include "methods.def"
#undef KZ_METHOD
    };
    ASSERT_EQ(std::size(table), 117u);
    EXPECT_EQ(kzfuzz::callbackCount(), 169);
    QSet<int> reached;
    QStringList dropped;
    for (const auto& m : table) {
        int fired = 0;
        for (uchar flag : {0, 1}) {
            const QByteArray body = QByteArray(1, char(flag)) + char(0x11) + char(m.code & 0xFF) +
                                    char(m.code >> 8) + '\0';
            for (const Call& call : dispatchBody(body)) {
                reached.insert(int(call.id));
                ++fired;
            }
        }
        if (fired == 0) dropped << QString::fromLatin1(m.name);
    }
    EXPECT_EQ(dropped.join(QLatin1Char(' ')).toStdString(), "");
    QStringList unreached;
    for (int i = 0; i < kzfuzz::callbackCount(); ++i)
        if (!reached.contains(i)) unreached << QString::fromLatin1(kzfuzz::callbackName(Cb(i)));
    EXPECT_EQ(unreached.join(QLatin1Char(' ')).toStdString(), "");
}
