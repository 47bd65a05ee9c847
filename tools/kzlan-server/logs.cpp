// Log queries and statistics from the event log, and the price table.
#include "server_p.h"
#include "texts.h"

#include <QDate>

#include <cmath>

namespace {

// An event as a log record: kind, machine, date, time, text, user, and its
// id as the figure.
kz_log_alarm_info recordOf(const StoredEvent& e)
{
    kz_log_alarm_info a;
    a.text0 = e.kind;
    a.text1 = e.mac;
    a.text2 = e.at.left(10);
    a.text3 = e.at.mid(11);
    a.text4 = e.text;
    a.text5 = e.who;
    a.figure6 = double(e.id);
    return a;
}

QList<kz_log_alarm_info> recordsOf(const QList<StoredEvent>& events)
{
    QList<kz_log_alarm_info> list;
    for (const StoredEvent& e : events) list.append(recordOf(e));
    return list;
}

QString priceText(double v) { return QString::number(v, 'g', 6); }

} // namespace

void Server::attachLogs(Client* c)
{
    KZConnection* k = c->conn;
    KZProtocolResolver* r = c->r;

    // QueryLog: machine (empty: all), kind, from, to (dates or
    // "yyyy-MM-dd HH:mm:ss"), four flags, a list; the events as records,
    // then the closing answer.
    connect(k, &KZConnection::queryLog, c,
            [=](const QString& mac, int, const QString& from, const QString& to, bool, bool, bool,
                bool, const QStringList&) {
                if (!allowed(c, "QueryLog"))
                    return r->lanQueryLogResponse(QStringLiteral("refused"));
                r->lanQueryAlarm2Result(mac, recordsOf(storage_.events(mac, from, to)));
                r->lanQueryLogResponse(QStringLiteral("done"));
            });
    connect(k, &KZConnection::queryLog2, c,
            [=](const QString& mac, const QString& from, const QString& to, const QStringList&) {
                if (!allowed(c, "QueryLog2")) return;
                r->lanQueryAlarm2Result(mac, recordsOf(storage_.events(mac, from, to)));
            });
    connect(k, &KZConnection::queryLogsByFilter, c,
            [=](bool, const QString& mac, const QString& from, const QString& to,
                const QStringList&, const QStringList&) {
                if (!allowed(c, "QueryLogsByFilter")) return;
                r->lanQueryAlarm2Result(mac, recordsOf(storage_.events(mac, from, to)));
            });
    connect(k, &KZConnection::queryMacDatas, c, [=](const QString& a, const QString& b) {
        if (allowed(c, "QueryMacDatas"))
            qCInfo(lcServer).noquote()
                << c->peer << "asked for machine data" << Texts::forLog(a) << Texts::forLog(b);
    });
    connect(k, &KZConnection::queryMacProcess, c,
            [=](const QString& mac, const QString& date, const QList<work_log>& logs) {
                if (allowed(c, "QueryMacProcess"))
                    record(c, mac, QStringLiteral("process"),
                           QStringLiteral("%1: %2 entries").arg(date).arg(logs.size()));
            });
    // Statistics of a machine from its plans: the files planned with their
    // quantities and plan counts, the quantity per day and the events per day.
    connect(k, &KZConnection::queryMacStatistic, c,
            [=](const QString& mac, const QString& from, const QString& to, const QString&) {
                QDate first = QDate::fromString(from, QStringLiteral("yyyy-MM-dd"));
                QDate last = QDate::fromString(to, QStringLiteral("yyyy-MM-dd"));
                if (!first.isValid() || !last.isValid() || first > last || first.daysTo(last) > 366)
                    first = last = QDate::currentDate();
                const QString start = first.toString(QStringLiteral("yyyy-MM-dd"));
                const QString end = last.toString(QStringLiteral("yyyy-MM-dd"));
                QStringList names;
                QMap<QString, int> quantity, plans, perDay, eventsPerDay;
                if (allowed(c, "QueryMacStatistic")) {
                    for (const StoredPlan& p : storage_.plans()) {
                        if (p.mac != mac || p.date < start || p.date > end) continue;
                        if (!names.contains(p.file)) names.append(p.file);
                        quantity[p.file] += p.quantity;
                        plans[p.file] += 1;
                        perDay[p.date] += p.quantity;
                    }
                    for (const StoredEvent& e : storage_.events(mac, start, end, 100000))
                        eventsPerDay[e.at.left(10)] += 1;
                }
                r->lanQueryMacStatisticResult(start, end, names, quantity, plans, perDay,
                                              eventsPerDay, {}, {});
            });
    // The grouped queries of an app: per machine of the list, its events.
    connect(
        k, &KZConnection::appQueryProcessLogs, c,
        [=](const QString& from, const QString& to, bool, const QString&, const QStringList& macs) {
            QMap<QString, QList<work_log>> logs;
            if (allowed(c, "AppQueryProcessLogs"))
                for (const QString& mac : macs.mid(0, 100))
                    for (const StoredEvent& e : storage_.events(mac, from, to)) {
                        work_log w;
                        w.text1 = e.at;
                        w.text2 = e.kind;
                        w.text5 = e.text;
                        w.value3 = int(e.id);
                        logs[mac].append(w);
                    }
            r->lanAppQueryProcessLogsResponse(logs);
        });
    connect(k, &KZConnection::appQueryRuntimeLogs, c,
            [=](const QString& from, const QString& to, const QStringList& macs) {
                QMap<QString, QList<boot_record>> logs;
                if (allowed(c, "AppQueryRuntimeLogs"))
                    for (const QString& mac : macs.mid(0, 100))
                        for (const StoredEvent& e : storage_.events(mac, from, to)) {
                            boot_record b;
                            b.text1 = e.at;
                            b.text2 = e.kind;
                            b.value3 = int(e.id);
                            logs[mac].append(b);
                        }
                r->lanAppQueryRuntimeLogsResponse(logs);
            });
    connect(k, &KZConnection::appQueryAlarmLogs, c,
            [=](const QString& from, const QString& to, const QStringList& macs) {
                QMap<QString, QList<alarm_log_info>> logs;
                if (allowed(c, "AppQueryAlarmLogs"))
                    for (const QString& mac : macs.mid(0, 100))
                        for (const StoredEvent& e : storage_.events(mac, from, to))
                            logs[mac].append({e.at, e.kind + QStringLiteral(": ") + e.text});
                r->lanAppQueryAlarmLogsResponse(logs);
            });

    // -- prices --------------------------------------------------------------
    // A table that the database could not read whole is not sent: the
    // refusal is an empty one.
    connect(k, &KZConnection::loadFilePrice, c, [=] {
        QMap<QString, double> table;
        if (allowed(c, "LoadFilePrice"))
            table = wholeRead(c, "LoadFilePrice", [this] { return storage_.prices(); });
        r->lanLoadFilePriceResult(table.keys(), table);
    });
    // AddFilePrice sets a price, new or not; the price is text.
    connect(k, &KZConnection::addFilePrice, c, [=](const QString& file, const QString& price) {
        bool valid = false;
        const double v = price.toDouble(&valid);
        const bool ok = allowed(c, "AddFilePrice") &&
                        acceptable(c, "AddFilePrice", Texts::isFileName(file)) && valid &&
                        std::isfinite(v) && storage_.setPrice(file, v);
        if (ok)
            record(c, QString(), QStringLiteral("price set"),
                   file + QLatin1Char('=') + priceText(v));
        r->lanAddFilePriceResult(ok, file, price);
    });
    // UpdateFilePrice: file, the price the client saw (empty: any), the new
    // price. Refused when the file has no price or its price has changed.
    connect(k, &KZConnection::updateFilePrice, c,
            [=](const QString& file, const QString& seen, const QString& price) {
                bool ok = allowed(c, "UpdateFilePrice") && storage_.hasPrice(file);
                if (ok && !seen.isEmpty())
                    ok = priceText(seen.toDouble()) == priceText(storage_.prices().value(file));
                bool valid = false;
                const double v = price.toDouble(&valid);
                ok = ok && valid && std::isfinite(v) && storage_.setPrice(file, v);
                if (ok)
                    record(c, QString(), QStringLiteral("price set"),
                           file + QLatin1Char('=') + priceText(v));
                r->lanUpdateFilePriceResult(ok, file, seen, price);
            });
    connect(k, &KZConnection::deleteFilePrice, c, [=](const QStringList& files) {
        const bool ok = allowed(c, "DeleteFilePrice") && storage_.deletePrices(files);
        if (ok)
            record(c, QString(), QStringLiteral("prices deleted"), files.join(QLatin1Char(',')));
        r->lanDeleteFilePriceResult(ok, files);
    });
    connect(k, &KZConnection::addFilePrices, c, [=](const QMap<QString, double>& prices) {
        bool ok = allowed(c, "AddFilePrices");
        bool names = prices.size() <= Texts::kMaxItems;
        for (auto it = prices.cbegin(); it != prices.cend(); ++it)
            names = names && Texts::isFileName(it.key());
        ok = ok && acceptable(c, "AddFilePrices", names);
        if (ok) {
            Storage::Transaction t(storage_);
            for (auto it = prices.cbegin(); ok && it != prices.cend(); ++it)
                ok = std::isfinite(*it) && storage_.setPrice(it.key(), *it);
            ok = ok && t.commit();
        }
        if (ok) record(c, QString(), QStringLiteral("prices set"), QString::number(prices.size()));
        r->lanAddFilePricesResult(ok, prices);
    });
    // QueryFilePrice: three texts and a list of files; the answer is the sum
    // of their prices (files without a price count 0).
    connect(k, &KZConnection::queryFilePrice, c,
            [=](const QString&, const QString&, const QString&, const QStringList& files) {
                double sum = 0;
                if (allowed(c, "QueryFilePrice")) {
                    const QMap<QString, double> table =
                        wholeRead(c, "QueryFilePrice", [this] { return storage_.prices(); });
                    for (const QString& f : files) sum += table.value(f);
                }
                r->lanQueryFilePriceResult(priceText(sum));
            });
    connect(k, &KZConnection::queryFilePriceInfo, c,
            [=](const QString& text, const QList<QVariant>& rows) {
                if (allowed(c, "QueryFilePriceInfo"))
                    qCInfo(lcServer).noquote() << c->peer << "sent price information"
                                               << Texts::forLog(text) << rows.size() << "rows";
            });
}
