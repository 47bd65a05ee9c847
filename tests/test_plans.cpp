// Plans and OEE: production plans, workshop plans, planned stops and work
// time, OEE data. One row per message direction, with the lossy rules kept on
// the wire (cut counts, skipped rows, omitted maps); then hand-built bodies
// for what a row cannot show.
#include "rows.h"

using namespace kztest;
using R = KZProtocolResolver;
using Rows = QList<QVariant>;

namespace {

const QString a = QStringLiteral("a"), b = QStringLiteral("b"), c = QStringLiteral("c"),
              d = QStringLiteral("d"), e = QStringLiteral("e"), k = QStringLiteral("k"), none;
const QString x = QStringLiteral("x"), n0 = QStringLiteral("n");
const QStringList justA{a};

template <class... V>
QVariant row(const V&... v)
{
    return QVariantList{QVariant(v)...};
}

QVariant intMap(const QMap<QString, int>& m) { return QVariant::fromValue(m); }

Rows copies(int n, const QVariant& v) { return QVector<QVariant>(n, v).toList(); }

} // namespace

TEST(Plans, ProductionAndWorkshopMessages)
{
    const QString eAcute = QString::fromUtf8("\xc3\xa9");
    const QMap<QString, int> k1{{k, 1}};
    // A seventh value is not sent; numbers travel as text.
    const Rows plans{row(a, 1, b, c, 2.5, a, x)};
    const Rows plansIn{row(a, QStringLiteral("1"), b, c, QStringLiteral("2.5"), a)};
    // The last row's empty map goes out without its count and reads as empty.
    const Rows workshop{row(a, b, c, d, 1, 2, 3, QVariantMap{{k, 4}}),
                        row(a, b, c, d, 1, 2, 3, intMap({}))};
    const Rows workshopIn{row(a, b, c, d, 1, 2, 3, intMap({{k, 4}})),
                          row(a, b, c, d, 1, 2, 3, intMap({}))};
    const Rows many = copies(32768, row(a, b, c, 1, 2));
    const Rows wrapped = copies(65537, row(a, b, c, 1, 2));
    checkRows({
        KZ_ROW(lanInitPlan(), "", LanInitPlanCB),
        KZ_ROW(lanInitPlanResponse({eAcute}, plans),
               "01 00 c3 a9 00 01 00 61 00 31 00 62 00 63 00 32 2e 35 00 61 00",
               LanInitPlanResultCB, QStringList{eAcute}, plansIn),
        KZ_ROW(lanAddPlan(a, b, k1, 2), "61 00 62 00 01 00 6b 00 01 00 00 00 02 00 00 00",
               LanAddPlanCB, a, b, k1, 2),
        KZ_ROW(lanEditPlan(a, b, c, 1, -1), "61 00 62 00 63 00 01 00 00 00 ff ff ff ff",
               LanEditPlanCB, a, b, c, 1, -1),
        KZ_ROW(lanDelPlan(a, b, c), "61 00 62 00 63 00", LanDelPlanCB, a, b, c),
        KZ_ROW(lanGetDatePlan(d), "64 00", LanGetDatePlanCB, d),
        KZ_ROW(lanGetDatePlanResponse(d, {}), "64 00 00 00", LanGetDatePlanResultCB, d, Rows()),
        KZ_ROW(lanGetDatePlanResponse(d, {row(1, 2, 3, 4, 5, 6)}),
               "64 00 01 00 31 00 32 00 33 00 34 00 35 00 36 00", LanGetDatePlanResultCB, d,
               Rows{row(QStringLiteral("1"), QStringLiteral("2"), QStringLiteral("3"),
                        QStringLiteral("4"), QStringLiteral("5"), QStringLiteral("6"))}),

        KZ_ROW(lanInitWorkshopData(), "", LanInitWorkshopDataCB),
        KZ_ROW(lanInitWorkshopDataResponse(workshop),
               "02 00 61 00 62 00 63 00 64 00 01 00 00 00 02 00 00 00 03 00 00 00 01 00 6b 00 04 "
               "00 00 00 61 00 62 00 63 00 64 00 01 00 00 00 02 00 00 00 03 00 00 00",
               LanInitWorkshopDataResultCB, workshopIn),
        KZ_ROW(lanWorkshopQueryPlan(k), "6b 00", LanWorkshopQueryPlanCB, k),
        // Text where an integer belongs goes out as 0.
        KZ_ROW(lanWorkshopQueryPlanResult(k, {row(a, b, c, 1, x)}),
               "6b 00 01 00 61 00 62 00 63 00 01 00 00 00 00 00 00 00",
               LanWorkshopQueryPlanResultCB, k, Rows{row(a, b, c, 1, 0)}),
        // Signed-count loop: 32768 rows announce themselves and send none;
        // 65537 rows send the count 1 and one row.
        KZ_ROW(lanWorkshopQueryPlanResult(k, many), "6b 00 00 80", LanWorkshopQueryPlanResultCB, k,
               Rows()),
        KZ_ROW(lanWorkshopQueryPlanResult(k, wrapped),
               "6b 00 01 00 61 00 62 00 63 00 01 00 00 00 02 00 00 00",
               LanWorkshopQueryPlanResultCB, k, Rows{row(a, b, c, 1, 2)}),
        // Unlike lanAddPlan, an empty map is sent.
        KZ_ROW(lanWorkshopAddPlan(a, b, c, {}, 5), "61 00 62 00 63 00 00 00 05 00 00 00",
               LanWorkshopAddPlanCB, a, b, c, QMap<QString, int>(), 5),
        KZ_ROW(lanWorkshopEditPlan(a, b, c, d, e, {{k, -1}}, 0),
               "61 00 62 00 63 00 64 00 65 00 01 00 6b 00 ff ff ff ff 00 00 00 00",
               LanWorkshopEditPlanCB, a, b, c, d, e, QMap<QString, int>{{k, -1}}, 0),
        KZ_ROW(lanWorkshopDelPlan(a, b), "61 00 62 00", LanWorkshopDelPlanCB, a, b),
    });
}

TEST(Plans, StopAndWorkTimeMessages)
{
    using Stops = QMap<int, QList<QVariant>>;
    const Stops stops{{2, {a, x, 1.5}}};
    // Six significant digits; text where a number belongs goes out as 0.
    const Stops rounded{{-1, {a, b, 123456789}}, {3, {a, b, n0}}};
    const Stops roundedIn{{-1, {a, b, 123457000.0}}, {3, {a, b, 0.0}}};
    oee_shut_item item;
    item.id = 1;
    item.kind = 2;
    item.date = d;
    item.names = justA;
    item.workTimes = {{QStringLiteral("w"), {0.1, QStringLiteral("f"), QStringLiteral("s")}}};
    item.stops = {{QStringLiteral("g"), {QStringLiteral("t"), {{3, {a, b, 0.5}}}, {b}}}};
    const QMap<int, oee_worktime_item> times{{1, {8, QStringLiteral("f"), QStringLiteral("s")}}};
    const QMap<int, QString> out{{2, b}, {1, a}};
    checkRows({
        // u16 1 | i32 id, i32 kind, "d", strlist | work times: "w", "f", "s", "0.1" |
        // stops: "g", "t", stop map {3: "a", "b", "0.5"}, strlist
        KZ_ROW(lanOeeShutItemList({item}),
               "01 00 01 00 00 00 02 00 00 00 64 00 01 00 61 00 01 00 77 00 66 00 73 00 30 2e 31 "
               "00 01 00 67 00 74 00 01 00 03 00 00 00 61 00 62 00 30 2e 35 00 01 00 62 00",
               LanOeeShutItemCB, QList<oee_shut_item>{item}),
        KZ_ROW(lanAddPlanShutItem(a, b, stops, {c}),
               "61 00 62 00 01 00 02 00 00 00 61 00 78 00 31 2e 35 00 01 00 63 00",
               LanAddPlanShutItemCB, a, b, stops, QStringList{c}),
        // The echo, then n, then the flags (inverted); status first in the call.
        KZ_ROW(lanAddPlanShutItemResponse(true, false, 7, a, b, stops, {c}),
               "61 00 62 00 01 00 02 00 00 00 61 00 78 00 31 2e 35 00 01 00 63 00 07 00 00 00 00 "
               "01",
               LanAddPlanShutItemResultCB, true, false, 7, a, b, stops, QStringList{c}),
        KZ_ROW(lanEditPlanShutItem(a, b, c, rounded, {}),
               "61 00 62 00 63 00 02 00 ff ff ff ff 61 00 62 00 31 2e 32 33 34 35 37 65 2b 30 38 "
               "00 03 00 00 00 61 00 62 00 30 00 00 00",
               LanEditPlanShutItemCB, a, b, c, roundedIn, QStringList()),
        KZ_ROW(lanEditPlanShutItemResponse(false, true, -2, a, b, c, {}, justA),
               "61 00 62 00 63 00 00 00 01 00 61 00 fe ff ff ff 01 00", LanEditPlanShutItemResultCB,
               false, true, -2, a, b, c, Stops(), justA),
        KZ_ROW(lanDelPlanShutItem(QStringLiteral("7")), "37 00", LanDelPlanShutItemCB,
               QStringLiteral("7")),
        KZ_ROW(lanDelPlanShutItemResponse(true, false, 7), "07 00 00 00 00 01",
               LanDelPlanShutItemResultCB, true, false, 7),
        KZ_ROW(lanDelPlanShutByDate(d), "64 00", LanDelPlanShutByDateCB, d),
        KZ_ROW(lanDelPlanShutByDateResponse(false, false, d), "64 00 01 01",
               LanDelPlanShutByDateResultCB, false, false, d),
        KZ_ROW(lanEditPlanWorkTime(d, times), "64 00 01 00 01 00 00 00 66 00 73 00 38 00",
               LanEditPlanWorkTimeCB, d, times),
        KZ_ROW(lanEditPlanWorkTimeResponse(true, true, d, {}), "64 00 00 00 00 00",
               LanEditPlanWorkTimeResultCB, true, true, d, QMap<int, oee_worktime_item>()),
        KZ_ROW(lanDelPlanWorkTime(d), "64 00", LanDelPlanWorkTimeCB, d),
        KZ_ROW(lanDelPlanWorkTimeResponse(true, false, d), "64 00 00 01",
               LanDelPlanWorkTimeResultCB, true, false, d),
        // n first in the call, last on the wire; the reply does not echo it.
        KZ_ROW(lanEditPlanOutShutItem(9, out),
               "02 00 01 00 00 00 61 00 02 00 00 00 62 00 09 00 00 00", LanEditPlanOutShutItemCB, 9,
               out),
        KZ_ROW(lanEditPlanOutShutItemResponse(false, true, {{1, a}}),
               "01 00 01 00 00 00 61 00 01 00", LanEditPlanOutShutItemResultCB, false, true,
               QMap<int, QString>{{1, a}}),
    });
}

TEST(Plans, OeeMessages)
{
    oee_date_data data;
    data.counts = {{n0, 3}};
    data.first = QStringLiteral("f");
    data.second = QStringLiteral("s");
    data.amount = 0.5;
    // Figures go out as whole numbers, truncated toward zero; out of range: INT_MIN.
    data.process = {{QStringLiteral("p"), {2.9, 4, -2.9}}, {QStringLiteral("q"), {1e10, 0, 0}}};
    data.items = {{QStringLiteral("i"), 5}};
    data.values = {{QStringLiteral("v"), 1.5}};
    oee_date_data dataIn = data;
    dataIn.process = {{QStringLiteral("p"), {2, 4, -2}},
                      {QStringLiteral("q"), {-2147483648.0, 0, 0}}};
    const QDate from(2024, 3, 5), to(2024, 3, 7);
    const QVariant figure = row(a, b, c, d, 12, 0.5, 0.5, 0.5, 0.5, 0.5);
    const QVariant figureIn = row(a, b, c, d, 12, 0.5, 0.5, 0.5, 0.5, 0.5);
    const QVariant byName = row(a, QVariantMap{{x, 2.5}});
    const QVariant typedMap = row(b, QVariant::fromValue(QMap<QString, double>{{n0, 1}}));
    checkRows({
        // n travels as its low 16 bits: 70000 arrives as 4464.
        KZ_ROW(lanLoadOEEData(justA, b, c, 70000), "01 00 61 00 62 00 63 00 70 11",
               LanLoadOEEDataCB, justA, b, c, 4464),
        // request fields | u16 1, "k" | "f" "s" "0.5" | counts | process: "p" 4 2 -2,
        // "q" 0 INT_MIN 0 | items | values
        KZ_ROW(lanLoadOEEDataResult(justA, b, c, 1, {{k, data}}),
               "01 00 61 00 62 00 63 00 01 00 01 00 6b 00 66 00 73 00 30 2e 35 00 01 00 6e 00 03 "
               "00 00 00 02 00 70 00 04 00 00 00 02 00 00 00 fe ff ff ff 71 00 00 00 00 00 00 00 "
               "00 80 00 00 00 00 01 00 69 00 05 00 00 00 01 00 76 00 31 2e 35 00",
               LanLoadOEEDataResultCB, justA, b, c, 1, QMap<QString, oee_date_data>{{k, dataIn}}),
        // The four-value row is skipped but counted.
        KZ_ROW(lanUpdateOEEMacRunTimeResult({row(a, b, 3), row(a, b, 3, 4)}),
               "02 00 61 00 62 00 03 00 00 00", LanUpdateOEEMacRunTimeResultCB, Rows{row(a, b, 3)}),
        KZ_ROW(lanQueryDateOEEData(from, to, 1),
               "32 30 32 34 2d 30 33 2d 30 35 00 32 30 32 34 2d 30 33 2d 30 37 00 01 00 00 00",
               LanQueryDateOEEDataCB, from, to, 1),
        KZ_ROW(lanQueryDateOEEData(QDate(), to, -1),
               "00 32 30 32 34 2d 30 33 2d 30 37 00 ff ff ff ff", LanQueryDateOEEDataCB, QDate(),
               to, -1),
        // figures: 4 texts, itext 12, five dtext | breakdowns: text, map of numbers | n last
        KZ_ROW(lanQueryDateOEEDataResult(1, {figure}, {byName}, {typedMap}),
               "01 00 61 00 62 00 63 00 64 00 31 32 00 30 2e 35 00 30 2e 35 00 30 2e 35 00 30 2e "
               "35 00 30 2e 35 00 01 00 61 00 01 00 78 00 32 2e 35 00 01 00 62 00 01 00 6e 00 31 "
               "00 01 00 00 00",
               LanQueryDateOEEDataResultCB, 1, Rows{figureIn}, Rows{byName},
               Rows{row(b, QVariantMap{{n0, 1.0}})}),
        // 40000 figure rows: the count, and no rows.
        KZ_ROW(lanQueryDateOEEDataResult(2, copies(40000, figure), {}, {}),
               "40 9c 00 00 00 00 02 00 00 00", LanQueryDateOEEDataResultCB, 2, Rows(), Rows(),
               Rows()),
    });
}

TEST(Plans, WhatRowsCannotShow)
{
    // An empty plan map sends nothing at all.
    EXPECT_TRUE(sentBody([](R& r) { r.lanAddPlan(a, b, {}, 1); }).isEmpty());

    // A date-plan reply whose count has no rows behind it: an empty list,
    // not a row made of the body's closing zero; a cut row is filled with
    // empty text.
    EXPECT_EQ(dispatchBody(unhex("01 11 24 10 64 00 03 00 00")),
              calls({arrives<Cb::LanGetDatePlanResultCB>(d, Rows())}));
    EXPECT_EQ(
        dispatchBody(unhex("01 11 24 10 64 00 01 00 61 00 62 00")),
        calls({arrives<Cb::LanGetDatePlanResultCB>(d, Rows{row(a, b, none, none, none, none)})}));

    // Workshop data: every row is written though the count is cut to 16 bits.
    const QByteArray body = sentBody(
        [](R& r) { r.lanInitWorkshopDataResponse(copies(65537, row(a, b, c, d, 1, 2, 3))); });
    EXPECT_EQ(body.mid(4, 2), unhex("01 00"));
    EXPECT_EQ(body.size(), 4 + 2 + 65537 * 20 + 1);

    // A date that is no date arrives invalid.
    EXPECT_EQ(dispatchBody(unhex("00 11 1a 04 78 00 32 30 32 34 2d 30 33 2d 30 37 00 01 00 00 00")),
              calls({arrives<Cb::LanQueryDateOEEDataCB>(QDate(), QDate(2024, 3, 7), 1)}));
}
