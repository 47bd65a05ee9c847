// Round trip of the statistics answer: a year of days and 50 names.
#include "loop.h"

#include <QDate>

namespace {

// 2023-01-01 to 2023-12-31 (365 days, and the day after that the message
// always adds), 50 names with two values each, a value per day in two maps.
void BM_MacStatisticResult365Days50Names(benchmark::State& state)
{
    Loop loop;
    loop.receiver.setLanQueryMacStatisticResultCB(
        [](void* ctx, const QString&, const QString&, const QStringList& names,
           const QMap<QString, int>&, const QMap<QString, int>&, const QMap<QString, int>& m3,
           const QMap<QString, int>&, const QMap<QString, int>&, const QMap<QString, int>&) {
            if (names.size() == 50 && m3.size() == 366) ++loopOf(ctx).delivered;
        });
    QStringList names;
    QMap<QString, int> m1, m2, m3, m4, m5, m6;
    for (int i = 0; i < 50; ++i) {
        const QString n = QStringLiteral("design-%1.dst").arg(i, 2, 10, QLatin1Char('0'));
        names.append(n);
        m1.insert(n, i * 40);
        m2.insert(n, i * 12000);
    }
    const QDate first(2023, 1, 1);
    for (int day = 0; day < 365; ++day) {
        const QString d = first.addDays(day).toString(QStringLiteral("yyyy-MM-dd"));
        m3.insert(d, day);
        m4.insert(d, day * 60);
    }
    m5.insert(QStringLiteral("total"), 2000);
    m6.insert(QStringLiteral("stops"), 17);
    const QString start = QStringLiteral("2023-01-01"), end = QStringLiteral("2023-12-31");
    const auto send = [&] {
        loop.sender.lanQueryMacStatisticResult(start, end, names, m1, m2, m3, m4, m5, m6);
    };
    send();
    const qint64 bytes = loop.wire.size();
    loop.flush();
    loop.delivered = 0;
    for (auto _ : state) {
        send();
        loop.flush();
    }
    finish(state, loop, bytes);
}
BENCHMARK(BM_MacStatisticResult365Days50Names);

} // namespace
