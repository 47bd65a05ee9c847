// Log and price steps: the client queries a machine's logs and the server
// answers with processing records and alarms before its closing answer; the
// client asks for a week's statistics; then a price-table session: prices
// added in bulk and one by one, and the table loaded back with every price
// as it arrives (six significant digits).
#include "demo.h"

namespace {

const QString kMac = QStringLiteral("KZ-0001");
const QString kFrom = QStringLiteral("2024-05-06");
const QString kTo = QStringLiteral("2024-05-12");

// The server's price table.
QMap<QString, double>& priceTable()
{
    static QMap<QString, double> table;
    return table;
}

QList<kz_log_process> processLogs()
{
    kz_log_process job;
    job.text1 = kMac;
    job.text2 = QStringLiteral("rose.dst");
    job.text3 = kFrom;
    for (int i = 0; i < 3; ++i)
        job.entries.append({QStringLiteral("08:%1").arg(i * 20, 2, 10, QLatin1Char('0')), 12000 + i,
                            35, 2, 0, 1, 800, i});
    return {job};
}

QList<kz_log_alarm_info> alarms()
{
    kz_log_alarm_info a;
    a.text0 = QStringLiteral("E-17");
    a.text1 = kMac;
    a.text2 = kFrom;
    a.text3 = QStringLiteral("08:41");
    a.text4 = QStringLiteral("thread break");
    a.text5 = QStringLiteral("head 3");
    a.figure6 = 2.5; // goes out as a whole number, halves to even: 2
    return {a};
}

// -- server ------------------------------------------------------------------

void onQueryLog(void* ctx, const QString& mac, int kind, const QString& from, const QString& to,
                bool f1, bool f2, bool f3, bool f4, const QStringList& heads)
{
    Peer& p = peer(ctx);
    p.handled(QStringLiteral("QueryLog %1 kind=%2 %3..%4 flags=%5%6%7%8 heads=%9")
                  .arg(mac)
                  .arg(kind)
                  .arg(from, to)
                  .arg(int(f1))
                  .arg(int(f2))
                  .arg(int(f3))
                  .arg(int(f4))
                  .arg(heads.join(QLatin1Char(','))));
    const QList<kz_log_process> jobs = processLogs();
    p.resolver.lanQueryProcessResponse(mac, jobs);
    p.sent(QStringLiteral("QueryProcess %1 job, %2 entries")
               .arg(jobs.size())
               .arg(jobs[0].entries.size()));
    p.resolver.lanQueryAlarm2Result(mac, alarms());
    p.sent(QStringLiteral("QueryAlarm2 1 alarm, figure 2.5"));
    p.resolver.lanQueryLogResponse(QStringLiteral("done"));
    p.sent(QStringLiteral("QueryLogResponse done"));
}

void onQueryStatistic(void* ctx, const QString& mac, const QString& from, const QString& to,
                      const QString& shift)
{
    Peer& p = peer(ctx);
    p.handled(QStringLiteral("QueryMacStatistic %1 %2..%3 %4").arg(mac, from, to, shift));
    const QStringList names{QStringLiteral("rose.dst"), QStringLiteral("tulip.dst")};
    const QMap<QString, int> pieces{{names[0], 40}, {names[1], 12}};
    const QMap<QString, int> stitches{{names[0], 480000}, {names[1], 96000}};
    const QMap<QString, int> perDay{{kFrom, 20}, {QStringLiteral("2024-05-08"), 32}};
    p.resolver.lanQueryMacStatisticResult(from, to, names, pieces, stitches, perDay, {}, {}, {});
    p.sent(QStringLiteral("QueryMacStatisticResult %1 names, days %2..%3 and the day after")
               .arg(names.size())
               .arg(from, to));
}

void onAddPrices(void* ctx, const QMap<QString, double>& prices)
{
    Peer& p = peer(ctx);
    p.handled(QStringLiteral("AddFilePrices %1 prices").arg(prices.size()));
    for (auto it = prices.cbegin(); it != prices.cend(); ++it) priceTable().insert(it.key(), *it);
    p.resolver.lanAddFilePricesResult(true, prices);
    p.sent(QStringLiteral("AddFilePricesResult ok"));
}

void onAddPrice(void* ctx, const QString& file, const QString& price)
{
    Peer& p = peer(ctx);
    p.handled(QStringLiteral("AddFilePrice %1 = %2").arg(file, price));
    bool ok = false;
    const double v = price.toDouble(&ok);
    if (ok) priceTable().insert(file, v);
    p.resolver.lanAddFilePriceResult(ok, file, price);
    p.sent(QStringLiteral("AddFilePriceResult ok=%1").arg(ok));
}

void onLoadPrices(void* ctx)
{
    Peer& p = peer(ctx);
    p.handled(QStringLiteral("LoadFilePrice"));
    p.resolver.lanLoadFilePriceResult(priceTable().keys(), priceTable());
    p.sent(QStringLiteral("LoadFilePriceResult %1 prices").arg(priceTable().size()));
}

// -- client ------------------------------------------------------------------

int g_logRecords = 0; // records received for the current log query

void onProcess(void* ctx, const QString& mac, const QList<kz_log_process>& jobs)
{
    Peer& p = peer(ctx);
    p.handled(QStringLiteral("QueryProcess %1: %2 job").arg(mac).arg(jobs.size()));
    for (const kz_log_process& j : jobs) {
        p.handled(
            QStringLiteral("  %1 %2: %3 entries").arg(j.text2, j.text3).arg(j.entries.size()));
        g_logRecords += j.entries.size();
    }
    if (jobs != processLogs()) p.demo->fail(QStringLiteral("processing log damaged"));
}

void onAlarm2(void* ctx, const QString& mac, const QList<kz_log_alarm_info>& records)
{
    Peer& p = peer(ctx);
    for (const kz_log_alarm_info& a : records)
        p.handled(QStringLiteral("QueryAlarm2 %1: %2 %3 figure=%4")
                      .arg(mac, a.text0, a.text4)
                      .arg(a.figure6));
    g_logRecords += records.size();
    if (records.value(0).figure6 != 2.0) p.demo->fail(QStringLiteral("alarm figure not rounded"));
}

void onQueryLogResult(void* ctx, const QString& text)
{
    Peer& p = peer(ctx);
    p.handled(QStringLiteral("QueryLogResponse %1 after %2 records").arg(text).arg(g_logRecords));
    if (g_logRecords != 4) return p.demo->fail(QStringLiteral("log records missing"));
    p.demo->next();
}

void onStatistic(void* ctx, const QString& from, const QString& to, const QStringList& names,
                 const QMap<QString, int>& pieces, const QMap<QString, int>&,
                 const QMap<QString, int>& perDay, const QMap<QString, int>&,
                 const QMap<QString, int>&, const QMap<QString, int>&)
{
    Peer& p = peer(ctx);
    p.handled(QStringLiteral("QueryMacStatisticResult %1..%2: %3 names, %4 days")
                  .arg(from, to)
                  .arg(names.size())
                  .arg(perDay.size()));
    for (const QString& n : names)
        p.handled(QStringLiteral("  %1: %2 pieces").arg(n).arg(pieces[n]));
    // 2024-05-06 to 2024-05-12 and the day after: eight days.
    if (perDay.size() != 8 || perDay.value(QStringLiteral("2024-05-08")) != 32)
        return p.demo->fail(QStringLiteral("statistics days wrong"));
    p.demo->next();
}

void onAddPricesResult(void* ctx, bool ok, const QMap<QString, double>& prices)
{
    Peer& p = peer(ctx);
    p.handled(QStringLiteral("AddFilePricesResult ok=%1, %2 prices").arg(ok).arg(prices.size()));
    if (!ok) return p.demo->fail(QStringLiteral("prices refused"));
    p.demo->next();
}

void onAddPriceResult(void* ctx, bool ok, const QString& file, const QString& price)
{
    Peer& p = peer(ctx);
    p.handled(QStringLiteral("AddFilePriceResult ok=%1 %2 = %3").arg(ok).arg(file, price));
    if (!ok) return p.demo->fail(QStringLiteral("price refused"));
    p.demo->next();
}

void onPrices(void* ctx, const QStringList& files, const QMap<QString, double>& prices)
{
    Peer& p = peer(ctx);
    p.handled(QStringLiteral("LoadFilePriceResult %1 files").arg(files.size()));
    for (auto it = prices.cbegin(); it != prices.cend(); ++it)
        p.handled(QStringLiteral("  %1: %2").arg(it.key()).arg(*it));
    if (prices.value(QStringLiteral("tulip.dst")) != 0.3 || prices.size() != 3)
        return p.demo->fail(QStringLiteral("price table wrong"));
    p.demo->next();
}

} // namespace

void addLogsSteps(Demo& demo)
{
    KZProtocolResolver& server = demo.server.resolver;
    server.setLanQueryLogCB(&onQueryLog);
    server.setLanQueryMacStatisticCB(&onQueryStatistic);
    server.setLanAddFilePricesCB(&onAddPrices);
    server.setLanAddFilePriceCB(&onAddPrice);
    server.setLanLoadFilePriceCB(&onLoadPrices);

    KZProtocolResolver& client = demo.client.resolver;
    client.setLanQueryProcessResultCB(&onProcess);
    client.setLanQueryAlarm2ResultCB(&onAlarm2);
    client.setLanQueryLogResultCB(&onQueryLogResult);
    client.setLanQueryMacStatisticResultCB(&onStatistic);
    client.setLanAddFilePricesResultCB(&onAddPricesResult);
    client.setLanAddFilePriceResultCB(&onAddPriceResult);
    client.setLanLoadFilePriceResultCB(&onPrices);

    // Each step goes in before the logout, which stays last.
    const auto step = [&demo](std::function<void()> fn) {
        demo.steps.insert(demo.steps.size() - 1, fn);
    };

    step([&demo] {
        g_logRecords = 0;
        demo.client.sent(QStringLiteral("QueryLog %1 %2..%3").arg(kMac, kFrom, kTo));
        demo.client.resolver.lanQueryLog(kMac, 1, kFrom, kTo, true, false, true, true,
                                         {QStringLiteral("head 1"), QStringLiteral("head 3")});
    });
    step([&demo] {
        demo.client.sent(QStringLiteral("QueryMacStatistic %1 %2..%3").arg(kMac, kFrom, kTo));
        demo.client.resolver.lanQueryMacStatistic(kMac, kFrom, kTo, QStringLiteral("day"));
    });
    step([&demo] {
        const QMap<QString, double> prices{{QStringLiteral("rose.dst"), 12.5},
                                           {QStringLiteral("tulip.dst"), 0.1 + 0.2}};
        demo.client.sent(QStringLiteral("AddFilePrices rose.dst 12.5, tulip.dst 0.1 + 0.2"));
        demo.client.resolver.lanAddFilePrices(prices);
    });
    step([&demo] {
        demo.client.sent(QStringLiteral("AddFilePrice lily.dst 8.75"));
        demo.client.resolver.lanAddFilePrice(QStringLiteral("lily.dst"), QStringLiteral("8.75"));
    });
    step([&demo] {
        demo.client.sent(QStringLiteral("LoadFilePrice"));
        demo.client.resolver.lanLoadFilePrice();
    });
}
