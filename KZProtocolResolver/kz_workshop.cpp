// Workshop plans: the workshop data set is written here (a row's empty map is
// left out, count included); the other messages come from
// protocol/workshop.table.
#include "kzprotocolresolver_p.h"

using namespace kz;

namespace {

#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
// Rows carry their map as a QMap<QString, int> QVariant; Qt 5 compares such
// QVariants by value only once a comparator is registered.
const bool rowMapsCompare = QMetaType::registerEqualsComparator<QMap<QString, int>>();
#endif

// A workshop-data row: strz x4, i32 x3, then the map of value 7 as strintmap;
// an empty map is left out entirely, count included (kept as peers send it).
// The reader always reads a map count, so a row whose map was left out reads
// as an empty map only when it is the last one.
bool writeWorkshopRow(Payload& p, const QVariant& v)
{
    const QVariantList row = v.toList();
    for (int k = 0; k < 4; ++k) p << strz{row.value(k).toString()};
    for (int k = 4; k < 7; ++k) p << i32{row.value(k).toInt()};
    const QMap<QString, int> map = fromVariant<QMap<QString, int>>(row.value(7));
    if (!map.isEmpty()) p << strintmap{map};
    return !map.isEmpty();
}

template <class R>
QVariant readWorkshopRow(R& r)
{
    QVariantList row;
    for (int k = 0; k < 4; ++k) row.append(r.strz());
    for (int k = 4; k < 7; ++k) row.append(r.i32());
    row.append(QVariant::fromValue(r.strintmap()));
    return row;
}

} // namespace

// InitWorkshopData reply: u16 n { workshop-data row }. The count is the size
// cut to 16 bits, but every row is written.
void KZProtocolResolver::lanInitWorkshopDataResponse(const QList<QVariant>& rows)
{
    Payload p(2 + 40 * rows.size());
    p << count16(rows.size());
    if (rows.size() > 0xFFFF) p.noteLoss("workshop rows: count cut to 16 bits", rows.size());
    for (int i = 0; i < rows.size(); ++i)
        if (!writeWorkshopRow(p, rows.at(i)) && i + 1 < rows.size())
            p.noteLoss("workshop row: empty map left out before another row", i);
    d->send(Method::InitWorkshopData, Reply, p);
}

template <class R>
void KZProtocolResolverPrivate::decodeInitWorkshopDataReply(R& r)
{
    r.label("rows");
    const QList<QVariant> rows = r.template list<QVariant>([&] { return readWorkshopRow(r); });
    fire(cb.onLanInitWorkshopDataResultCB, rows);
}

#include "kz_workshop.inc"
