// Production plans: written here are an added plan, which is not sent at all
// when its map is empty, and the plans of a date, whose reply reads rows only
// when some follow; the other messages come from protocol/plans.table.
#include "kzprotocolresolver_p.h"

using namespace kz;

// AddPlan request: strz a, strz b, strintmap map, i32 n. An empty map sends
// nothing at all; kept as it is (WorkshopAddPlan, by contrast, sends an empty
// map as the count 0).
void KZProtocolResolver::lanAddPlan(const QString& a, const QString& b,
                                    const QMap<QString, int>& map, int n)
{
    if (map.isEmpty()) return;
    d->send(Method::AddPlan, Request, Payload() << strz{a} << strz{b} << strintmap{map} << i32{n});
}

// The reply reads rows only when something follows the date and the count
// besides the body's closing zero: a count with no rows behind it gives an
// empty list rather than one row of empty texts.
template <class R>
void KZProtocolResolverPrivate::decodeGetDatePlanReply(R& r)
{
    r.label("date");
    const QString date = r.strz();
    QList<QVariant> plans;
    r.label("plans");
    if (r.remaining() > 3)
        plans = Field<listof<rowof<strz, strz, strz, strz, strz, strz>>>::read(r);
    else
        r.u16();
    fire(cb.onLanGetDatePlanResultCB, date, plans);
}

#include "kz_plans.inc"
