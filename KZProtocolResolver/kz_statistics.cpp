// Machine data and statistics: the statistics reply is written here (it
// expands a date range into one entry per day); the other messages come from
// protocol/statistics.table.
#include "kzprotocolresolver_p.h"

#include <QDate>

using namespace kz;

namespace {

const QString kDayFormat = QStringLiteral("yyyy-MM-dd");

} // namespace

// QueryMacStatistic reply: strz start, strz end,
//       u16 names { strz name, i32 m1[name], i32 m2[name] },
//       u16 n (days from start to end, plus one),
//       n + 1 times { strz day, i32 m3[day], i32 m4[day] } from start on,
//       strintmap m5, strintmap m6
// The day entries run one past the count written (the day after end is
// included) and the receiver reads as many: kept as the peers expect it.
void KZProtocolResolver::lanQueryMacStatisticResult(
    const QString& start, const QString& end, const QStringList& names,
    const QMap<QString, int>& m1, const QMap<QString, int>& m2, const QMap<QString, int>& m3,
    const QMap<QString, int>& m4, const QMap<QString, int>& m5, const QMap<QString, int>& m6)
{
    const QDate from = QDate::fromString(start, kDayFormat);
    const QDate to = QDate::fromString(end, kDayFormat);
    // An invalid date gives -1: no day entries, and the receiver reads none.
    const qint64 n = from.isValid() && to.isValid() ? from.daysTo(to) + 1 : -1;

    Payload p(32 + 16 * names.size() + 24 * int(qBound(qint64(0), n + 1, qint64(1) << 16)));
    p << strz{start} << strz{end} << count16(names.size());
    if (names.size() > 0xFFFF) p.noteLoss("statistics names beyond 16 bits", names.size());
    for (const QString& name : names) p << strz{name} << i32{m1.value(name)} << i32{m2.value(name)};
    p << count16(int(n));
    if (n < -0x8000 || n > 0x7FFF) p.noteLoss("statistics day count beyond 16 bits", n);
    for (qint64 i = 0; i <= n; ++i) {
        const QString day = from.addDays(i).toString(kDayFormat);
        p << strz{day} << i32{m3.value(day)} << i32{m4.value(day)};
    }
    p << strintmap{m5} << strintmap{m6};
    d->send(Method::QueryMacStatistic, Reply, p);
}

template <class R>
void KZProtocolResolverPrivate::decodeQueryMacStatisticReply(R& r)
{
    r.label("start");
    const QString start = r.strz();
    r.label("end");
    const QString end = r.strz();
    QStringList names;
    QMap<QString, int> m1, m2, m3, m4;
    r.label("nameCount");
    r.forEach(r.count16(), [&] {
        r.label("name");
        const QString name = r.strz();
        r.label("v1");
        const int v1 = r.i32();
        r.label("v2");
        const int v2 = r.i32();
        names.append(name);
        m1.insert(name, v1);
        m2.insert(name, v2);
    });
    r.label("days");
    const int days = r.i16() + 1;
    r.forEach(days, [&] {
        r.label("day");
        const QString day = r.strz();
        r.label("v3");
        const int v3 = r.i32();
        r.label("v4");
        const int v4 = r.i32();
        m3.insert(day, v3);
        m4.insert(day, v4);
    });
    r.label("m5");
    const QMap<QString, int> m5 = r.strintmap();
    r.label("m6");
    const QMap<QString, int> m6 = r.strintmap();
    fire(cb.onLanQueryMacStatisticResultCB, start, end, names, m1, m2, m3, m4, m5, m6);
}

#include "kz_statistics.inc"
