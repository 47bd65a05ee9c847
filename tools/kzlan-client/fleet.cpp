// machines list, plans and logs: what the server knows about the fleet.
#include "commands.h"
#include "output.h"

#include <QDate>

namespace {

// A plan row: one machine's quantity of a file on a date, a number and who
// planned it.
const QStringList kPlanColumns{QStringLiteral("date"),    QStringLiteral("file"),
                               QStringLiteral("machine"), QStringLiteral("quantity"),
                               QStringLiteral("n"),       QStringLiteral("author")};

QJsonArray jsonOf(const QList<kz_log_process_entry>& entries)
{
    QJsonArray out;
    for (const kz_log_process_entry& e : entries)
        out.append(QJsonArray{e.text1, e.value2, e.value3, e.value4, e.value5, e.value6, e.value7,
                              e.value8});
    return out;
}

} // namespace

int cmdMachinesList(Session& s, Args& a)
{
    QStringList rest;
    if (!a.positionals(&rest) || !rest.isEmpty()) return usageError();
    if (int rc = s.open()) return rc;
    // The server sends the list after the login.
    if (int rc = s.run({}, [&s] { return s.haveMacs; })) return rc;
    QJsonArray rows;
    for (const mac_info& m : s.macs)
        rows.append(
            QJsonObject{{QStringLiteral("mac"), m.mac},
                        {QStringLiteral("group"), m.lv1Group + QLatin1Char('/') + m.lv2Group},
                        {QStringLiteral("lv1Group"), m.lv1Group},
                        {QStringLiteral("lv2Group"), m.lv2Group},
                        {QStringLiteral("code"), int(m.code)},
                        {QStringLiteral("text2"), m.text2},
                        {QStringLiteral("text4"), m.text4},
                        {QStringLiteral("value7"), m.value7}});
    s.close();
    if (s.options().json)
        printJson(rows);
    else
        printRows({QStringLiteral("mac"), QStringLiteral("group"), QStringLiteral("code"),
                   QStringLiteral("text2"), QStringLiteral("text4"), QStringLiteral("value7")},
                  rows);
    return ExitOk;
}

int cmdPlans(Session& s, Args& a)
{
    QStringList rest;
    if (!a.positionals(&rest) || rest.size() != 1) return usageError();
    const QString date = rest[0];
    if (!QDate::fromString(date, Qt::ISODate).isValid())
        return usageError(QStringLiteral("not a date (YYYY-MM-DD): %1").arg(date));
    if (int rc = s.open()) return rc;
    auto* reply = s.client().getDatePlan(date);
    if (int rc = s.await(reply)) return rc;
    QJsonArray rows;
    for (const QVariant& plan : reply->values().plans) {
        const QVariantList fields = plan.toList();
        QJsonObject row;
        for (int i = 0; i < kPlanColumns.size(); ++i)
            row.insert(kPlanColumns[i], fields.value(i).toString());
        rows.append(row);
    }
    s.close();
    if (s.options().json)
        printJson(QJsonObject{{QStringLiteral("date"), date}, {QStringLiteral("plans"), rows}});
    else
        printRows(kPlanColumns, rows);
    return ExitOk;
}

int cmdLogs(Session& s, Args& a)
{
    bool kindOk = true;
    const int kind = a.option(QStringLiteral("kind"), QStringLiteral("0")).toInt(&kindOk);
    QStringList rest;
    if (!a.positionals(&rest) || rest.size() != 3 || !kindOk) return usageError();
    // "*": every machine, and the server's own events.
    const QString mac = rest[0] == QLatin1String("*") ? QString() : rest[0];
    const QString from = rest[1], to = rest[2];
    if (int rc = s.open()) return rc;

    // The records come as data messages, one per log kind, and the closing
    // answer ends them. Event records (the second generation of alarm
    // records) have named columns; other kinds show their fields in one.
    QJsonArray rows;
    const auto other = [&rows](const char* kind, const QString& mac, const QJsonArray& fields) {
        rows.append(QJsonObject{{QStringLiteral("event"), QLatin1String(kind)},
                                {QStringLiteral("machine"), mac},
                                {QStringLiteral("text"), cellText(fields)},
                                {QStringLiteral("fields"), fields}});
    };
    KZConnection& c = s.connection();
    QObject::connect(&c, &KZConnection::queryAlarm2Result, &s,
                     [&](const QString&, const QList<kz_log_alarm_info>& list) {
                         for (const kz_log_alarm_info& r : list)
                             rows.append(QJsonObject{{QStringLiteral("event"), r.text0},
                                                     {QStringLiteral("machine"), r.text1},
                                                     {QStringLiteral("date"), r.text2},
                                                     {QStringLiteral("time"), r.text3},
                                                     {QStringLiteral("text"), r.text4},
                                                     {QStringLiteral("user"), r.text5},
                                                     {QStringLiteral("id"), r.figure6}});
                     });
    QObject::connect(&c, &KZConnection::queryProcessResult, &s,
                     [&](const QString& t, const QList<kz_log_process>& list) {
                         for (const kz_log_process& r : list)
                             other("process", t, {r.text1, r.text2, r.text3, jsonOf(r.entries)});
                     });
    QObject::connect(&c, &KZConnection::queryAlarmResult, &s,
                     [&](const QString& t, const QList<kz_log_alarm>& list) {
                         for (const kz_log_alarm& r : list) {
                             QJsonArray entries;
                             for (const kz_log_alarm_entry& e : r.entries)
                                 entries.append(QJsonArray{e.text1, e.text2, e.text3, e.value4});
                             other("alarm", t, {r.text1, r.text2, r.text3, entries});
                         }
                     });
    QObject::connect(&c, &KZConnection::queryShutdownResult, &s,
                     [&](const QString& t, const QList<kz_log_shutdown>& list) {
                         for (const kz_log_shutdown& r : list)
                             other("shutdown", t, {r.text1, r.text2, r.text3, r.text4, r.value5});
                     });
    QString closing;
    QObject::connect(&c, &KZConnection::queryLogResult, &s, [&](const QString& t) {
        closing = t;
        s.finish();
    });
    if (int rc = s.run([&] {
            s.lan().lanQueryLog(mac, kind, from, to, true, true, true, true, QStringList());
        }))
        return rc;
    s.close();
    if (s.options().json)
        printJson(QJsonObject{{QStringLiteral("machine"), mac},
                              {QStringLiteral("from"), from},
                              {QStringLiteral("to"), to},
                              {QStringLiteral("records"), rows},
                              {QStringLiteral("end"), closing}});
    else
        printRows({QStringLiteral("date"), QStringLiteral("time"), QStringLiteral("machine"),
                   QStringLiteral("event"), QStringLiteral("text"), QStringLiteral("user")},
                  rows);
    return ExitOk;
}
