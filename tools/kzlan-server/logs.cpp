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

    // The events of `mac` from `from` to `to` as records, to `answer`.
    const auto eventsTo = [=](const char* what, bool may, const QString& mac, const QString& from,
                              const QString& to, auto answer) {
        lookUp(
            c, what, may, [=](Storage& s) { return recordsOf(s.events(mac, from, to)); }, answer);
    };
    // QueryLog: machine (empty: all), kind, from, to (dates or
    // "yyyy-MM-dd HH:mm:ss"), four flags, a list; the events as records,
    // then the closing answer.
    connect(k, &KZConnection::queryLog, c,
            [=](const QString& mac, int, const QString& from, const QString& to, bool, bool, bool,
                bool, const QStringList&) {
                if (!allowed(c, "QueryLog"))
                    return later(
                        c, [] { return 0; },
                        [r](int) { r->lanQueryLogResponse(QStringLiteral("refused")); });
                eventsTo("QueryLog", true, mac, from, to,
                         [r, mac](const QList<kz_log_alarm_info>& l) {
                             r->lanQueryAlarm2Result(mac, l);
                             r->lanQueryLogResponse(QStringLiteral("done"));
                         });
            });
    // Without the right, an empty list (a refusal is an answer too).
    const auto queryEvents = [=](const char* what, bool may, const QString& mac,
                                 const QString& from, const QString& to) {
        eventsTo(what, may, mac, from, to,
                 [r, mac](const QList<kz_log_alarm_info>& l) { r->lanQueryAlarm2Result(mac, l); });
    };
    connect(k, &KZConnection::queryLog2, c,
            [=](const QString& mac, const QString& from, const QString& to, const QStringList&) {
                queryEvents("QueryLog2", allowed(c, "QueryLog2"), mac, from, to);
            });
    connect(k, &KZConnection::queryLogsByFilter, c,
            [=](bool, const QString& mac, const QString& from, const QString& to,
                const QStringList&, const QStringList&) {
                queryEvents("QueryLogsByFilter", allowed(c, "QueryLogsByFilter"), mac, from, to);
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
                struct Figures
                {
                    QStringList names;
                    QMap<QString, int> quantity, plans, perDay, eventsPerDay;
                };
                lookUp(
                    c, "QueryMacStatistic", allowed(c, "QueryMacStatistic"),
                    [=](Storage& s) {
                        Figures f;
                        for (const StoredPlan& p : s.plans()) {
                            if (p.mac != mac || p.date < start || p.date > end) continue;
                            if (!f.names.contains(p.file)) f.names.append(p.file);
                            f.quantity[p.file] += p.quantity;
                            f.plans[p.file] += 1;
                            f.perDay[p.date] += p.quantity;
                        }
                        for (const StoredEvent& e : s.events(mac, start, end, 100000))
                            f.eventsPerDay[e.at.left(10)] += 1;
                        return f;
                    },
                    [=](const Figures& f) {
                        r->lanQueryMacStatisticResult(start, end, f.names, f.quantity, f.plans,
                                                      f.perDay, f.eventsPerDay, {}, {});
                    });
            });
    // The grouped queries of an app: per machine of the list (100 at most),
    // its events as `Entry` made by `entryOf`, to `answer`.
    const auto perMachine = [=](const char* what, bool may, const QString& from, const QString& to,
                                const QStringList& macs, auto entryOf, auto answer) {
        using Entry = decltype(entryOf(StoredEvent()));
        lookUp(
            c, what, may,
            [=](Storage& s) {
                QMap<QString, QList<Entry>> logs;
                for (const QString& mac : macs.mid(0, 100))
                    for (const StoredEvent& e : s.events(mac, from, to))
                        logs[mac].append(entryOf(e));
                return logs;
            },
            answer);
    };
    connect(
        k, &KZConnection::appQueryProcessLogs, c,
        [=](const QString& from, const QString& to, bool, const QString&, const QStringList& macs) {
            perMachine(
                "AppQueryProcessLogs", allowed(c, "AppQueryProcessLogs"), from, to, macs,
                [](const StoredEvent& e) {
                    work_log w;
                    w.text1 = e.at;
                    w.text2 = e.kind;
                    w.text5 = e.text;
                    w.value3 = int(e.id);
                    return w;
                },
                [r](const QMap<QString, QList<work_log>>& logs) {
                    r->lanAppQueryProcessLogsResponse(logs);
                });
        });
    connect(k, &KZConnection::appQueryRuntimeLogs, c,
            [=](const QString& from, const QString& to, const QStringList& macs) {
                perMachine(
                    "AppQueryRuntimeLogs", allowed(c, "AppQueryRuntimeLogs"), from, to, macs,
                    [](const StoredEvent& e) {
                        boot_record b;
                        b.text1 = e.at;
                        b.text2 = e.kind;
                        b.value3 = int(e.id);
                        return b;
                    },
                    [r](const QMap<QString, QList<boot_record>>& logs) {
                        r->lanAppQueryRuntimeLogsResponse(logs);
                    });
            });
    connect(k, &KZConnection::appQueryAlarmLogs, c,
            [=](const QString& from, const QString& to, const QStringList& macs) {
                perMachine(
                    "AppQueryAlarmLogs", allowed(c, "AppQueryAlarmLogs"), from, to, macs,
                    [](const StoredEvent& e) {
                        return alarm_log_info{e.at, e.kind + QStringLiteral(": ") + e.text};
                    },
                    [r](const QMap<QString, QList<alarm_log_info>>& logs) {
                        r->lanAppQueryAlarmLogsResponse(logs);
                    });
            });

    // -- prices --------------------------------------------------------------
    // A table that the database could not read whole is not sent: the
    // refusal is an empty one.
    connect(k, &KZConnection::loadFilePrice, c, [=] {
        lookUp(
            c, "LoadFilePrice", allowed(c, "LoadFilePrice"), [](Storage& s) { return s.prices(); },
            [r](const QMap<QString, double>& table) {
                r->lanLoadFilePriceResult(table.keys(), table);
            });
    });
    // A change of prices: `change(Storage&)` on the writer when `may`;
    // recorded as `kind` with `text` when it went through.
    const auto changePrices = [=](bool may, const QString& kind, const QString& text, auto change,
                                  auto answer) {
        stored(
            c, [may, change](Storage& s) { return may && change(s); },
            [=](bool ok) {
                if (ok) record(c, QString(), kind, text);
                answer(ok);
            });
    };
    // AddFilePrice sets a price, new or not; the price is text.
    connect(k, &KZConnection::addFilePrice, c, [=](const QString& file, const QString& price) {
        bool valid = false;
        const double v = price.toDouble(&valid);
        const bool may = allowed(c, "AddFilePrice") &&
                         acceptable(c, "AddFilePrice", Texts::isFileName(file)) && valid &&
                         std::isfinite(v);
        changePrices(
            may, QStringLiteral("price set"), file + QLatin1Char('=') + priceText(v),
            [file, v](Storage& s) { return s.setPrice(file, v); },
            [=](bool ok) { r->lanAddFilePriceResult(ok, file, price); });
    });
    // UpdateFilePrice: file, the price the client saw (empty: any), the new
    // price. Refused when the file has no price or its price has changed.
    connect(k, &KZConnection::updateFilePrice, c,
            [=](const QString& file, const QString& seen, const QString& price) {
                bool valid = false;
                const double v = price.toDouble(&valid);
                const bool may = allowed(c, "UpdateFilePrice") && valid && std::isfinite(v);
                changePrices(
                    may, QStringLiteral("price set"), file + QLatin1Char('=') + priceText(v),
                    [=](Storage& s) {
                        Storage::Transaction t(s);
                        return s.hasPrice(file) &&
                               (seen.isEmpty() ||
                                priceText(seen.toDouble()) == priceText(s.prices().value(file))) &&
                               s.setPrice(file, v) && t.commit();
                    },
                    [=](bool ok) { r->lanUpdateFilePriceResult(ok, file, seen, price); });
            });
    connect(k, &KZConnection::deleteFilePrice, c, [=](const QStringList& files) {
        changePrices(
            allowed(c, "DeleteFilePrice"), QStringLiteral("prices deleted"),
            files.join(QLatin1Char(',')), [files](Storage& s) { return s.deletePrices(files); },
            [=](bool ok) { r->lanDeleteFilePriceResult(ok, files); });
    });
    connect(k, &KZConnection::addFilePrices, c, [=](const QMap<QString, double>& prices) {
        bool names = prices.size() <= Texts::kMaxItems;
        for (auto it = prices.cbegin(); it != prices.cend(); ++it)
            names = names && Texts::isFileName(it.key()) && std::isfinite(*it);
        const bool may = allowed(c, "AddFilePrices") && acceptable(c, "AddFilePrices", names);
        changePrices(
            may, QStringLiteral("prices set"), QString::number(prices.size()),
            [prices](Storage& s) {
                Storage::Transaction t(s);
                bool ok = true;
                for (auto it = prices.cbegin(); ok && it != prices.cend(); ++it)
                    ok = s.setPrice(it.key(), *it);
                return ok && t.commit();
            },
            [=](bool ok) { r->lanAddFilePricesResult(ok, prices); });
    });
    // QueryFilePrice: three texts and a list of files; the answer is the sum
    // of their prices (files without a price count 0).
    connect(k, &KZConnection::queryFilePrice, c,
            [=](const QString&, const QString&, const QString&, const QStringList& files) {
                lookUp(
                    c, "QueryFilePrice", allowed(c, "QueryFilePrice"),
                    [](Storage& s) { return s.prices(); },
                    [=](const QMap<QString, double>& table) {
                        double sum = 0;
                        for (const QString& f : files) sum += table.value(f);
                        r->lanQueryFilePriceResult(priceText(sum));
                    });
            });
    connect(k, &KZConnection::queryFilePriceInfo, c,
            [=](const QString& text, const QList<QVariant>& rows) {
                if (allowed(c, "QueryFilePriceInfo"))
                    qCInfo(lcServer).noquote() << c->peer << "sent price information"
                                               << Texts::forLog(text) << rows.size() << "rows";
            });
}
