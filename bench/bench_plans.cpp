// Round trips of the plans and OEE messages.
#include "loop.h"

#include <QDate>

namespace {

// A month of OEE figures: 31 daily rows of ten values for each of 20
// machines, with a stop and a loss breakdown per machine.
void BM_QueryDateOEE31Days(benchmark::State& state)
{
    Loop loop;
    loop.receiver.setLanQueryDateOEEDataResultCB([](void* ctx, int, const QList<QVariant>& figures,
                                                    const QList<QVariant>& stops,
                                                    const QList<QVariant>& losses) {
        if (figures.size() == 31 * 20 && stops.size() == 20 && losses.size() == 20)
            ++loopOf(ctx).delivered;
    });
    const QDate first(2024, 3, 1);
    QList<QVariant> figures, stops, losses;
    for (int m = 0; m < 20; ++m) {
        const QString mac = QStringLiteral("KZ-%1").arg(m, 4, 10, QLatin1Char('0'));
        for (int day = 0; day < 31; ++day)
            figures.append(QVariant(QVariantList{
                first.addDays(day).toString(Qt::ISODate), mac, QStringLiteral("Line 1"),
                QStringLiteral("early"), 1000 + day, 0.9, 0.85 + day * 0.001, 0.98, 0.75, 7.5}));
        stops.append(QVariant(QVariantList{
            mac, QVariantMap{{QStringLiteral("lunch"), 15.5}, {QStringLiteral("setup"), 7.75}}}));
        losses.append(QVariant(QVariantList{
            mac, QVariantMap{{QStringLiteral("thread break"), 3.1}, {QStringLiteral("idle"), 2}}}));
    }
    qint64 bytes = 0;
    for (auto _ : state) {
        loop.sender.lanQueryDateOEEDataResult(31, figures, stops, losses);
        bytes = loop.wire.size();
        loop.flush();
    }
    finish(state, loop, bytes);
}
BENCHMARK(BM_QueryDateOEE31Days);

} // namespace
