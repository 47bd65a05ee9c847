// OEE data: the OEE data of a set of keys over a span, the OEE figures of a
// date range, and the pushed machine run times.
#include "kzprotocolresolver_p.h"

#include <cmath>
#include <limits>

namespace kz {
namespace {

/// A QDate as strz "yyyy-MM-dd" (an invalid date as empty text); text that
/// is no such date reads as an invalid date.
struct datetext
{
};

/// A QVariantMap of numbers: u16 n { strz key, dtext value }.
struct numbermap
{
};

} // namespace

template <>
struct Field<datetext>
{
    using Value = QDate;
    static void write(Payload& p, const QDate& v)
    {
        p << strz{v.toString(QStringLiteral("yyyy-MM-dd"))};
    }
    static QDate read(Reader& r)
    {
        return QDate::fromString(r.strz(), QStringLiteral("yyyy-MM-dd"));
    }
};

template <>
struct Field<numbermap>
{
    using Value = QVariantMap;
    static void write(Payload& p, const QVariantMap& m)
    {
        p << count16(m.size());
        for (auto it = m.cbegin(); it != m.cend(); ++it)
            p << strz{it.key()} << dtext{it->toDouble()};
    }
    static QVariantMap read(Reader& r)
    {
        QVariantMap out;
        const Reader::Quiet q(&r, "map");
        r.forEach(r.count16(), [&] {
            r.label("key");
            const QString key = r.strz();
            out.insert(key, r.dtext());
        });
        q.done([&] { return QString(QStringLiteral("[%1]").arg(out.size())); });
        return out;
    }
};

} // namespace kz

using namespace kz;

namespace {

// A process figure as a whole number: truncated toward zero; outside the
// 32-bit range (or not a number) it is -2147483648.
qint32 truncated(Payload& p, double v)
{
    if (v > -2147483649.0 && v < 2147483648.0) return qint32(v);
    p.noteLoss("process figure outside the 32-bit range",
               std::fabs(v) < 9e18 ? qint64(v) : 0); // NaN compares false: 0
    return std::numeric_limits<qint32>::min();
}

// oee_date_data: strz first, strz second, dtext amount, strintmap counts,
//   u16 n { strz key, i32 count, i32 figure1, i32 figure2 } (figures
//   truncated), u16 n { strz text, i32 value }, u16 n { strz key, dtext value }
void writeDateData(Payload& p, const oee_date_data& o)
{
    p << strz{o.first} << strz{o.second} << dtext{o.amount} << strintmap{o.counts};
    p << count16(o.process.size());
    for (auto it = o.process.cbegin(); it != o.process.cend(); ++it) {
        const qint32 f1 = truncated(p, it->figure1);
        const qint32 f2 = truncated(p, it->figure2);
        p << strz{it.key()} << i32{it->count} << i32{f1} << i32{f2};
    }
    p << count16(o.items.size());
    for (const oee_date_item& item : o.items) p << strz{item.text} << i32{item.value};
    Field<mapof<strz, dtext>>::write(p, o.values);
}

oee_date_data readDateData(Reader& r)
{
    oee_date_data o;
    r.label("first");
    o.first = r.strz();
    r.label("second");
    o.second = r.strz();
    r.label("amount");
    o.amount = r.dtext();
    r.label("counts");
    o.counts = r.strintmap();
    r.label("processCount");
    r.forEach(r.count16(), [&] {
        r.label("key");
        const QString key = r.strz();
        oee_process_data v;
        r.label("count");
        v.count = r.i32();
        r.label("figure1");
        v.figure1 = r.i32();
        r.label("figure2");
        v.figure2 = r.i32();
        o.process.insert(key, v);
    });
    r.label("items");
    o.items = r.list<oee_date_item>([&] {
        oee_date_item item;
        r.label("text");
        item.text = r.strz();
        r.label("value");
        item.value = r.i32();
        return item;
    });
    r.label("values");
    o.values = Field<mapof<strz, dtext>>::read(r);
    return o;
}
using DateData = record<oee_date_data, writeDateData, readDateData>;

// LoadOEEData request: strlist keys, strz a, strz b, u16 n (low 16 bits of n)
struct Load : Layout<strlist, strz, strz, low16>
{
    static constexpr const char* names[] = {"keys", "a", "b", "n"};
};

// LoadOEEData reply: the request's fields, u16 n { strz key, oee_date_data }
struct LoadResult : Layout<strlist, strz, strz, low16, mapof<strz, DateData>>
{
    static constexpr const char* names[] = {"keys", "a", "b", "n", "data"};
};

// A run-time row: strz, strz, i32
using RunTimeRow = rowof<strz, strz, i32>;

// QueryDateOEEData request: strz from, strz to ("yyyy-MM-dd"), i32 n
struct DateRange : Layout<datetext, datetext, i32>
{
    static constexpr const char* names[] = {"from", "to", "n"};
};

// A figure row: strz x4, itext, dtext x5. A breakdown row: strz, numbermap.
using FigureRow = rowof<strz, strz, strz, strz, itext, dtext, dtext, dtext, dtext, dtext>;
using BreakdownRow = rowof<strz, numbermap>;

// QueryDateOEEData reply: figure rows, breakdown rows A, breakdown rows B
// (each under the signed-count rule), i32 n (n first in the API)
struct DateFigures : Layout<signedlistof<FigureRow>, signedlistof<BreakdownRow>,
                            signedlistof<BreakdownRow>, i32>::Api<3, 0, 1, 2>
{
    static constexpr const char* names[] = {"figures", "breakdownA", "breakdownB", "n"};
};

} // namespace

// LoadOEEData: request Load | reply LoadResult
void KZProtocolResolver::lanLoadOEEData(const QStringList& keys, const QString& a, const QString& b,
                                        int n)
{
    d->send<Load>(Method::LoadOEEData, Request, keys, a, b, n);
}

void KZProtocolResolver::lanLoadOEEDataResult(const QStringList& keys, const QString& a,
                                              const QString& b, int n,
                                              const QMap<QString, oee_date_data>& data)
{
    d->send<LoadResult>(Method::LoadOEEData, Reply, keys, a, b, n, data);
}

void KZProtocolResolverPrivate::decodeLoadOEEData(uchar flag, Reader& r)
{
    route<Load, LoadResult>(flag, r, cb.onLanLoadOEEDataCB, cb.onLanLoadOEEDataResultCB);
}

// UpdateOEEMacRunTime: reply u16 n { run-time row }. The count is the list's
// size, but only rows of exactly three values are written, and the loop
// stops at the count read as signed 16 bits. Kept as peers send it; rows
// left out are noted.
void KZProtocolResolver::lanUpdateOEEMacRunTimeResult(const QList<QVariant>& rows)
{
    Payload p(2 + 16 * rows.size());
    const c16 count = count16(rows.size());
    const int loop = qMax(0, int(qint16(count.v)));
    p << count;
    if (loop != rows.size())
        p.noteLoss("run-time rows not sent (signed 16-bit count)", rows.size());
    for (int i = 0; i < loop; ++i) {
        if (rows.at(i).toList().size() == 3)
            Field<RunTimeRow>::write(p, rows.at(i));
        else
            p.noteLoss("run-time row skipped: not three values", i);
    }
    d->send(Method::UpdateOEEMacRunTime, Reply, p);
}

// A row cut by the end of the data is no row: after the rows the sender
// skipped, the count runs past the data and the last "row" would be just the
// body's closing zero.
void KZProtocolResolverPrivate::decodeUpdateOEEMacRunTime(uchar flag, Reader& r)
{
    if (flag != Reply) return;
    QList<QVariant> rows;
    r.label("rowCount");
    r.forEach(r.count16(), [&] {
        r.label("row");
        const QVariant row = Field<RunTimeRow>::read(r);
        if (!r.isShort()) rows.append(row);
    });
    fire(cb.onLanUpdateOEEMacRunTimeResultCB, rows);
}

// QueryDateOEEData: request DateRange | reply DateFigures
void KZProtocolResolver::lanQueryDateOEEData(const QDate& from, const QDate& to, int n)
{
    d->send<DateRange>(Method::QueryDateOEEData, Request, from, to, n);
}

void KZProtocolResolver::lanQueryDateOEEDataResult(int n, const QList<QVariant>& figures,
                                                   const QList<QVariant>& breakdownA,
                                                   const QList<QVariant>& breakdownB)
{
    d->send<DateFigures>(Method::QueryDateOEEData, Reply, n, figures, breakdownA, breakdownB);
}

void KZProtocolResolverPrivate::decodeQueryDateOEEData(uchar flag, Reader& r)
{
    route<DateRange, DateFigures>(flag, r, cb.onLanQueryDateOEEDataCB,
                                  cb.onLanQueryDateOEEDataResultCB);
}
