// Planning steps: the client asks for the plans of a date, adds a planned
// stop and asks for the OEE figures of three days; the server answers each
// from its own tables and the client prints what arrives as small tables.
#include "demo.h"

#include <QDate>
#include <QStringList>

namespace {

const QString kDate = QStringLiteral("2024-03-05");
const QDate kFrom(2024, 3, 5), kTo(2024, 3, 7);

QString cell(const QVariant& v, int width)
{
    return v.toString().leftJustified(width, QLatin1Char(' '), true);
}

// --- server side ---

void onGetDatePlan(void* ctx, const QString& date)
{
    Peer& p = peer(ctx);
    p.handled(QStringLiteral("GetDatePlan date=%1").arg(date));
    // Plan rows: order, product, machine, shift, quantity, due.
    const QList<QVariant> plans{
        QVariantList{QStringLiteral("PO-1001"), QStringLiteral("Logo patch"),
                     QStringLiteral("M-01"), QStringLiteral("early"), 1200, date},
        QVariantList{QStringLiteral("PO-1002"), QStringLiteral("Cap front"), QStringLiteral("M-02"),
                     QStringLiteral("late"), 800, date}};
    p.resolver.lanGetDatePlanResponse(date, plans);
    p.sent(QStringLiteral("GetDatePlanResponse plans=%1").arg(plans.size()));
}

void onAddPlanShutItem(void* ctx, const QString& a, const QString& b,
                       const QMap<int, QList<QVariant>>& stops, const QStringList& names)
{
    Peer& p = peer(ctx);
    p.handled(QStringLiteral("AddPlanShutItem %1 %2 stops=%3 machines=%4")
                  .arg(a, b)
                  .arg(stops.size())
                  .arg(names.join(QLatin1Char(','))));
    p.resolver.lanAddPlanShutItemResponse(true, true, stops.size(), a, b, stops, names);
    p.sent(QStringLiteral("AddPlanShutItemResponse ok1=1 ok2=1 n=%1").arg(stops.size()));
}

void onQueryDateOEEData(void* ctx, const QDate& from, const QDate& to, int n)
{
    Peer& p = peer(ctx);
    p.handled(QStringLiteral("QueryDateOEEData %1 to %2 n=%3")
                  .arg(from.toString(Qt::ISODate), to.toString(Qt::ISODate))
                  .arg(n));
    // One figure row per day: date, machine, line, shift, pieces, then
    // availability, performance, quality, OEE and run hours.
    QList<QVariant> figures;
    int day = 0;
    for (QDate d = from; d.isValid() && d <= to; d = d.addDays(1), ++day)
        figures << QVariant(QVariantList{d.toString(Qt::ISODate), QStringLiteral("M-01"),
                                         QStringLiteral("Line 1"), QStringLiteral("early"),
                                         1100 + 50 * day, 0.9 + 0.01 * day, 0.85, 0.98,
                                         (0.9 + 0.01 * day) * 0.85 * 0.98, 7.5});
    const QList<QVariant> stops{
        QVariantList{QStringLiteral("M-01"),
                     QVariantMap{{QStringLiteral("lunch"), 0.5}, {QStringLiteral("setup"), 0.25}}}};
    const QList<QVariant> losses{
        QVariantList{QStringLiteral("M-01"), QVariantMap{{QStringLiteral("thread break"), 0.1}}}};
    p.resolver.lanQueryDateOEEDataResult(n, figures, stops, losses);
    p.sent(QStringLiteral("QueryDateOEEDataResult days=%1").arg(figures.size()));
}

// --- client side ---

void onGetDatePlanResult(void* ctx, const QString& date, const QList<QVariant>& plans)
{
    Peer& p = peer(ctx);
    p.handled(QStringLiteral("GetDatePlanResponse date=%1 plans=%2").arg(date).arg(plans.size()));
    for (const QVariant& row : plans) {
        QString line;
        for (const QVariant& v : row.toList()) line += cell(v, 12);
        p.handled(QStringLiteral("  ") + line.trimmed());
    }
    if (plans.size() != 2) return p.demo->fail(QStringLiteral("expected two plans"));
    p.demo->next();
}

void onAddPlanShutItemResult(void* ctx, bool ok1, bool ok2, int n, const QString& a,
                             const QString& b, const QMap<int, QList<QVariant>>& stops,
                             const QStringList&)
{
    Peer& p = peer(ctx);
    p.handled(QStringLiteral("AddPlanShutItemResponse ok1=%1 ok2=%2 n=%3 %4 %5")
                  .arg(ok1)
                  .arg(ok2)
                  .arg(n)
                  .arg(a, b));
    for (auto it = stops.cbegin(); it != stops.cend(); ++it)
        p.handled(QStringLiteral("  stop %1: %2-%3, %4 min")
                      .arg(it.key())
                      .arg(it->value(0).toString(), it->value(1).toString())
                      .arg(it->value(2).toDouble()));
    if (!ok1 || !ok2) return p.demo->fail(QStringLiteral("planned stop refused"));
    p.demo->next();
}

void onQueryDateOEEDataResult(void* ctx, int, const QList<QVariant>& figures,
                              const QList<QVariant>& stops, const QList<QVariant>& losses)
{
    Peer& p = peer(ctx);
    p.handled(QStringLiteral("QueryDateOEEDataResult days=%1").arg(figures.size()));
    p.handled(QStringLiteral("  date        machine pieces avail  perf   qual   OEE"));
    for (const QVariant& row : figures) {
        const QVariantList f = row.toList();
        p.handled(QStringLiteral("  %1 %2 %3 %4 %5 %6 %7")
                      .arg(cell(f.value(0), 11), cell(f.value(1), 7))
                      .arg(f.value(4).toInt(), 6)
                      .arg(f.value(5).toDouble(), 6, 'f', 3)
                      .arg(f.value(6).toDouble(), 6, 'f', 3)
                      .arg(f.value(7).toDouble(), 6, 'f', 3)
                      .arg(f.value(8).toDouble(), 6, 'f', 3));
    }
    for (const QVariant& row : stops + losses) {
        const QVariantList r = row.toList();
        const QVariantMap m = r.value(1).toMap();
        for (auto it = m.cbegin(); it != m.cend(); ++it)
            p.handled(QStringLiteral("  %1 %2: %3 h")
                          .arg(r.value(0).toString(), it.key(), it->toString()));
    }
    if (figures.size() != kFrom.daysTo(kTo) + 1)
        return p.demo->fail(QStringLiteral("expected one figure row per day"));
    p.demo->next();
}

} // namespace

void addPlanningSteps(Demo& demo)
{
    KZProtocolResolver& server = demo.server.resolver;
    server.setLanGetDatePlanCB(&onGetDatePlan);
    server.setLanAddPlanShutItemCB(&onAddPlanShutItem);
    server.setLanQueryDateOEEDataCB(&onQueryDateOEEData);
    KZProtocolResolver& client = demo.client.resolver;
    client.setLanGetDatePlanResultCB(&onGetDatePlanResult);
    client.setLanAddPlanShutItemResultCB(&onAddPlanShutItemResult);
    client.setLanQueryDateOEEDataResultCB(&onQueryDateOEEDataResult);

    // Before the logout, which stays the last step.
    demo.steps.insert(demo.steps.size() - 1, [&demo] {
        demo.client.sent(QStringLiteral("GetDatePlan date=%1").arg(kDate));
        demo.client.resolver.lanGetDatePlan(kDate);
    });
    demo.steps.insert(demo.steps.size() - 1, [&demo] {
        demo.client.sent(QStringLiteral("AddPlanShutItem %1 Line 1: lunch 12:00-12:30").arg(kDate));
        demo.client.resolver.lanAddPlanShutItem(
            kDate, QStringLiteral("Line 1"),
            {{1, {QStringLiteral("12:00"), QStringLiteral("12:30"), 30}}},
            {QStringLiteral("M-01"), QStringLiteral("M-02")});
    });
    demo.steps.insert(demo.steps.size() - 1, [&demo] {
        demo.client.sent(QStringLiteral("QueryDateOEEData %1 to %2")
                             .arg(kFrom.toString(Qt::ISODate), kTo.toString(Qt::ISODate)));
        demo.client.resolver.lanQueryDateOEEData(kFrom, kTo, 0);
    });
}
