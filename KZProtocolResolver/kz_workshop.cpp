// Workshop plans: the workshop data set, the plans of one key, and adding,
// editing and deleting workshop plans.
#include "kzprotocolresolver_p.h"

using namespace kz;

namespace {

#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
// Rows carry their map as a QMap<QString, int> QVariant; Qt 5 compares such
// QVariants by value only once a comparator is registered.
const bool rowMapsCompare = QMetaType::registerEqualsComparator<QMap<QString, int>>();
#endif

// A query-plan row: strz, strz, strz, i32, i32.
using QueryPlanRow = rowof<strz, strz, strz, i32, i32>;

// WorkshopQueryPlan request: strz key
struct Key : Layout<strz>
{
    static constexpr const char* names[] = {"key"};
};

// WorkshopQueryPlan reply: strz key, u16 n { query-plan row } under the
// signed-count rule
struct QueryPlanResult : Layout<strz, signedlistof<QueryPlanRow>>
{
    static constexpr const char* names[] = {"key", "rows"};
};

// WorkshopAddPlan request: strz a, b, c, strintmap map, i32 n
struct AddPlan : Layout<strz, strz, strz, strintmap, i32>
{
    static constexpr const char* names[] = {"a", "b", "c", "map", "n"};
};

// WorkshopEditPlan request: strz a, b, c, d, e, strintmap map, i32 n
struct EditPlan : Layout<strz, strz, strz, strz, strz, strintmap, i32>
{
    static constexpr const char* names[] = {"a", "b", "c", "d", "e", "map", "n"};
};

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

QVariant readWorkshopRow(Reader& r)
{
    QVariantList row;
    for (int k = 0; k < 4; ++k) row.append(r.strz());
    for (int k = 4; k < 7; ++k) row.append(r.i32());
    row.append(QVariant::fromValue(r.strintmap()));
    return row;
}

} // namespace

// InitWorkshopData: request (empty) | reply u16 n { workshop-data row }
// The count is the size cut to 16 bits, but every row is written.
void KZProtocolResolver::lanInitWorkshopData()
{
    d->send<Empty>(Method::InitWorkshopData, Request);
}

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

void KZProtocolResolverPrivate::decodeInitWorkshopData(uchar flag, Reader& r)
{
    if (flag == Request) return take<Empty>(r, cb.onLanInitWorkshopDataCB);
    if (flag != Reply) return;
    r.label("rows");
    const QList<QVariant> rows = r.list<QVariant>([&] { return readWorkshopRow(r); });
    fire(cb.onLanInitWorkshopDataResultCB, rows);
}

// WorkshopQueryPlan: request Key | reply QueryPlanResult
void KZProtocolResolver::lanWorkshopQueryPlan(const QString& key)
{
    d->send<Key>(Method::WorkshopQueryPlan, Request, key);
}

void KZProtocolResolver::lanWorkshopQueryPlanResult(const QString& key, const QList<QVariant>& rows)
{
    d->send<QueryPlanResult>(Method::WorkshopQueryPlan, Reply, key, rows);
}

void KZProtocolResolverPrivate::decodeWorkshopQueryPlan(uchar flag, Reader& r)
{
    route<Key, QueryPlanResult>(flag, r, cb.onLanWorkshopQueryPlanCB,
                                cb.onLanWorkshopQueryPlanResultCB);
}

// WorkshopAddPlan: request AddPlan (an empty map goes out as the count 0)
void KZProtocolResolver::lanWorkshopAddPlan(const QString& a, const QString& b, const QString& c,
                                            const QMap<QString, int>& map, int n)
{
    d->send<AddPlan>(Method::WorkshopAddPlan, Request, a, b, c, map, n);
}

void KZProtocolResolverPrivate::decodeWorkshopAddPlan(uchar flag, Reader& r)
{
    if (flag == Request) take<AddPlan>(r, cb.onLanWorkshopAddPlanCB);
}

// WorkshopEditPlan: request EditPlan
void KZProtocolResolver::lanWorkshopEditPlan(const QString& a, const QString& b, const QString& c,
                                             const QString& dText, const QString& e,
                                             const QMap<QString, int>& map, int n)
{
    d->send<EditPlan>(Method::WorkshopEditPlan, Request, a, b, c, dText, e, map, n);
}

void KZProtocolResolverPrivate::decodeWorkshopEditPlan(uchar flag, Reader& r)
{
    if (flag == Request) take<EditPlan>(r, cb.onLanWorkshopEditPlanCB);
}

// WorkshopDelPlan: request Texts2
void KZProtocolResolver::lanWorkshopDelPlan(const QString& a, const QString& b)
{
    d->send<Texts2>(Method::WorkshopDelPlan, Request, a, b);
}

void KZProtocolResolverPrivate::decodeWorkshopDelPlan(uchar flag, Reader& r)
{
    if (flag == Request) take<Texts2>(r, cb.onLanWorkshopDelPlanCB);
}
